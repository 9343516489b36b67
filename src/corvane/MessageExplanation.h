#ifndef CORVANE_SRC_CORVANE_MESSAGEEXPLANATION_H
#define CORVANE_SRC_CORVANE_MESSAGEEXPLANATION_H

// One message's verdict, and where it comes from.
//
// Threads: one thread, one explanation.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/Explanation.h"
#include "corvane/LoadedRules.h"
#include "corvane/ScanOptions.h"
#include "heuristic/MetaRule.h"
#include "heuristic/Rule.h"
#include "heuristic/ScanTexts.h"
#include "host/parser/MailReader.h"

namespace corvane {

class MessageExplanation {
public:
    // Both must outlive the object.
    MessageExplanation(const LoadedRules &rules, const ScanOptions &options)
        : rules_(rules), options_(options) {}

    // As RuleSet::explain.
    Explanation explain(std::string_view message, const std::vector<std::string> &names);

private:
    using HeuristicRule = Corvane::Heuristic::Rule;
    using ScannedText = Corvane::Heuristic::ScannedText;

    // The stages of a scan, one behind the other.
    enum class Stage : unsigned int {
        Lines,
        Headers,
        Text,
        RawBody,
        SecondText,
        Uris,
        WholeHeaders,
        Metas
    };

    // What came of one rule on all texts that it is tried on.
    struct Search {
        const HeuristicRule *rule = nullptr;
        bool isTried = false;   // on some text
        bool isGivenUp = false; // on some text
        // The first text that trips it, by its number among all; and the first that matches.
        std::optional<ExplainedText> trips;
        std::optional<ExplainedText> matches;
        std::size_t tripsAt = 0;
        Stage stage = Stage::Lines;
    };

    // A rule that tripped, on its way to being told of.
    struct Tripped {
        std::size_t entry; // in rules_.rules
        unsigned int ordinal;
        Search search;
    };

    void run(std::string_view message, const std::vector<std::string> &names);
    std::size_t entryOf(unsigned int ordinal) const;
    const HeuristicRule &ruleOf(const Rule &rule, unsigned int ordinal) const;

    void locate(std::vector<Tripped> &tripped) const;
    void tell(const std::vector<Tripped> &tripped);
    void look(std::vector<Search *> &searches) const;
    static void lookAt(const ScannedText &text, std::size_t number, Search &search);

    void tellOf(const std::string &name);
    void tellOf(const Rule &rule, unsigned int ordinal);
    void refuse(const std::string &name);
    bool settleUntried(const Rule &rule, unsigned int ordinal, RuleExplanation &told) const;
    void settleMeta(const HeuristicRule &rule, RuleExplanation &told) const;
    void settle(const HeuristicRule &rule, RuleExplanation &told) const;
    void settleNoMatch(const HeuristicRule &rule, const Search &search,
                       RuleExplanation &told) const;
    Reason whyNotTripped(const Search &search, const RuleExplanation &told) const;
    bool isBeyondCutoff(const HeuristicRule &rule) const;
    bool isReached(const HeuristicRule &rule) const;
    std::optional<ExplainedText> findBeyondLimits(const HeuristicRule &rule) const;
    std::optional<NearestTry> nearest(const HeuristicRule &rule) const;
    Corvane::Heuristic::RefMatches trippedBefore(unsigned int ordinal) const;

    const LoadedRules &rules_;
    const ScanOptions &options_;
    std::string_view all_;
    // As much of it as a scan reads.
    std::string_view message_;
    std::optional<Corvane::Mail> mail_;
    Corvane::EmailAddress sender_;
    Corvane::Heuristic::langID language_ = Corvane::Heuristic::DEFAULT;
    std::vector<unsigned int> hitOrdinals_;
    // Of a scan that stopped: where, and at a meta rule at which.
    Stage lastStage_ = Stage::Metas;
    unsigned int lastOrdinal_ = 0;
    Explanation explanation_;
};

} // namespace corvane

#endif
