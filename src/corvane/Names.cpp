#include <array>

#include "corvane/Failure.h"
#include "corvane/LoadedRules.h"
#include "corvane/Problem.h"

namespace corvane {

std::string_view kindName(RuleKind kind) noexcept {
    constexpr std::array<std::string_view, 7> kNames = {"none",    "header", "uri", "body",
                                                        "rawbody", "full",   "meta"};
    const auto number = static_cast<std::size_t>(kind);
    return kNames[number < kNames.size() ? number : 0];
}

std::string_view codeName(ProblemCode code) noexcept {
    switch (code) {
    case ProblemCode::RuleRefused:
        return "rule-refused";
    case ProblemCode::RuleDuplicate:
        return "rule-duplicate";
    case ProblemCode::RuleEval:
        return "rule-eval";
    case ProblemCode::MetaFault:
        return "meta-fault";
    case ProblemCode::ScoreRefused:
        return "score-refused";
    case ProblemCode::ScoreUnreadable:
        return "score-unreadable";
    case ProblemCode::LineCut:
        return "line-cut";
    }
    return "unknown";
}

std::string toString(const Problem &problem) {
    return printable(problem.file) + ':' + std::to_string(problem.line) + ':' +
           std::to_string(problem.column) + ": " + printable(problem.rule) + ": " + problem.text;
}

float scoreOf(const Corvane::Heuristic::Rule &rule) {
    return rule.metasubrule() || rule.score().isNull() ? 0.0F : rule.score()->value();
}

std::string_view languageName(Corvane::Heuristic::langID language) {
    constexpr std::array<std::string_view, 6> kNames = {"DEFAULT", "CN", "JP", "KO", "RU", "TH"};
    return kNames.at(static_cast<std::size_t>(language));
}

} // namespace corvane
