// Explanations of real messages against an engine and an evaluation of their own: for every message
// below CORVANE_MAIL_DIR, or of the example rules, with the example rules or those of
// CORVANE_RULES_DIR.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <gtest/gtest.h>
#include <pcre2.h>

#include "corvane/RuleSet.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/ScanTexts.h"
#include "heuristic/Scanner.h"
#include "support/TempDir.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
namespace Heuristic = Corvane::Heuristic;
using Corvane::TempDir;

std::string fromEnvironment(const char *name, const char *otherwise) {
    const char *chosen = std::getenv(name);
    return chosen != nullptr ? chosen : otherwise;
}

// A rule's pattern, compiled without anything of the engine.
class Pattern {
public:
    Pattern(const Heuristic::Rule &rule) {
        std::string text = rule.type() == Heuristic::Rule::Header
                               ? static_cast<const Heuristic::HeaderRule &>(rule).expression()
                               : rule.value();
        text.erase(0, text.find_first_not_of(" \t"));
        text.erase(text.find_last_not_of(" \t\r") + 1);
        std::uint32_t options = rule.type() == Heuristic::Rule::Header ? PCRE2_DOTALL : 0U;
        if (text.front() == '/') {
            const std::size_t end = text.rfind('/');
            for (const char modifier : text.substr(end + 1)) {
                options |= modifier == 'i'   ? PCRE2_CASELESS
                           : modifier == 'm' ? PCRE2_MULTILINE
                           : modifier == 's' ? PCRE2_DOTALL
                           : modifier == 'x' ? PCRE2_EXTENDED
                           : modifier == 'u' ? PCRE2_UTF | PCRE2_MATCH_INVALID_UTF
                                             : 0U;
            }
            text = text.substr(1, end - 1);
        }
        const bool isOfBody =
            rule.type() == Heuristic::Rule::Body || rule.type() == Heuristic::Rule::RawBody;
        const std::unique_ptr<pcre2_compile_context, decltype(&pcre2_compile_context_free)> context(
            pcre2_compile_context_create(nullptr), &pcre2_compile_context_free);
        pcre2_set_newline(context.get(), isOfBody ? PCRE2_NEWLINE_ANYCRLF : PCRE2_NEWLINE_LF);
        int error = 0;
        std::size_t offset = 0;
        code_.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), options,
                                  &error, &offset, context.get()));
    }

    // The range of the first match, or (1, 0).
    std::pair<std::size_t, std::size_t> find(const std::string &text) const {
        const std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data(
            pcre2_match_data_create(1, nullptr), &pcre2_match_data_free);
        const int result = pcre2_match(code_.get(), reinterpret_cast<PCRE2_SPTR>(text.data()),
                                       text.size(), 0, 0, data.get(), nullptr);
        const std::size_t *range = pcre2_get_ovector_pointer(data.get());
        return result >= 0 ? std::make_pair(range[0], range[1])
                           : std::pair<std::size_t, std::size_t>(1, 0);
    }
    bool matches(const std::string &text) const {
        return find(text).first != 1 || find(text).second != 0;
    }

private:
    struct Deleter {
        void operator()(pcre2_code *code) const { pcre2_code_free(code); }
    };
    std::unique_ptr<pcre2_code, Deleter> code_;
};

class ExplanationMail : public testing::Test {
protected:
    ExplanationMail()
        : directory_(fromEnvironment("CORVANE_RULES_DIR", CORVANE_EXAMPLE_RULES_DIR)),
          rules_(RuleSet::load(directory_)), scanner_(Corvane::File::Path(directory_)) {}

    // The rule of a message's language, as the layer below has it.
    const Heuristic::Rule *below(const Rule &rule, std::string_view language) const {
        constexpr std::string_view kLanguages[] = {"DEFAULT", "CN", "JP", "KO", "RU", "TH"};
        const auto number = static_cast<Heuristic::langID>(
            std::find(std::begin(kLanguages), std::end(kLanguages), language) - kLanguages);
        return scanner_.rules()
            .rules(number, static_cast<Heuristic::Rule::Type>(rule.kind))
            .find(rule.name)
            .
            operator->();
    }

    const Pattern &patternOf(const Heuristic::Rule &rule) {
        auto &pattern = patterns_[&rule];
        if (pattern == nullptr) {
            pattern = std::make_unique<Pattern>(rule);
        }
        return *pattern;
    }

    void checkTripped(const Explanation &why) {
        float total = 0.0F;
        for (const RuleExplanation &each : why.tripped) {
            total += each.rule->score;
            EXPECT_EQ(each.total, total);
            if (each.rule->kind == RuleKind::Meta) {
                EXPECT_FALSE(each.steps.empty());
                continue;
            }
            ASSERT_TRUE(each.where.has_value()) << each.name;
            const Heuristic::Rule &rule = *below(*each.rule, why.verdict.language());
            if (each.where->hasRange) {
                const auto range = patternOf(rule).find(each.where->text);
                EXPECT_EQ(range.first, each.where->start) << each.name;
                EXPECT_EQ(range.second, each.where->end) << each.name;
                ++ranges_;
            } else {
                EXPECT_EQ(each.rule->kind, RuleKind::Header) << each.name;
            }
        }
        EXPECT_EQ(why.tripped.size(), why.verdict.hits().size());
        if (why.verdict.score() != 0.0F) {
            EXPECT_EQ(total, why.verdict.score());
        }
    }

    // The reason that a rule has for not tripping on a message that nothing of was cut off.
    Reason reasonFor(const Rule &rule, const Explanation &why, const std::string &bytes) {
        const auto &languages = rule.languages;
        if (std::find(languages.begin(), languages.end(), why.verdict.language()) ==
            languages.end()) {
            return Reason::OtherLanguage;
        }
        if (!rule.active || rule.kind == RuleKind::Meta) {
            return rule.active ? Reason::ExpressionFalse : Reason::SwitchedOff;
        }
        const Heuristic::Rule &tried = *below(rule, why.verdict.language());
        bool isTried = false;
        bool matches = false;
        bool matchesUnread = false;
        const Corvane::Mail mail = Corvane::MailReader().read(bytes);
        Heuristic::ScanTexts(bytes, mail, mail.sender())
            .each([&](const Heuristic::ScannedText &text) {
                if (text.kind != tried.type() || !isOf(tried, text)) {
                    return;
                }
                isTried = true;
                matches = matches || patternOf(tried).matches(text.text.asString());
                Heuristic::ScanTexts::eachUnread(text, [&](const Heuristic::ScannedText &unread) {
                    matchesUnread =
                        matchesUnread || patternOf(tried).matches(unread.text.asString());
                });
            });
        if (matchesUnread) {
            return Reason::BeyondLimit;
        }
        if (!isTried) {
            return rule.kind == RuleKind::Header ? Reason::HeaderAbsent : Reason::NoText;
        }
        return matches ? Reason::Excluded : Reason::NoMatch;
    }

    static bool isOf(const Heuristic::Rule &rule, const Heuristic::ScannedText &text) {
        if (rule.type() != Heuristic::Rule::Header) {
            return true;
        }
        const auto &header = static_cast<const Heuristic::HeaderRule &>(rule);
        return header.form() == text.form && header.headers().matches(std::string(text.header));
    }

    std::string directory_;
    RuleSet rules_;
    Heuristic::Scanner scanner_;
    std::map<const Heuristic::Rule *, std::unique_ptr<Pattern>> patterns_;
    std::size_t ranges_ = 0;
};

TEST_F(ExplanationMail, AgreesWithAnEvaluationOfItsOwn) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::size_t> choose(0, rules_.size() - 1);
    std::map<std::string_view, std::size_t> reasons;
    std::size_t messages = 0;
    const std::string mail = fromEnvironment("CORVANE_MAIL_DIR", CORVANE_EXAMPLE_RULES_DIR);
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(mail)) {
        if (entry.path().extension() != ".eml") {
            continue;
        }
        SCOPED_TRACE(entry.path().string());
        const std::string bytes = TempDir::read(entry.path().string());
        const Rule &rule = rules_.rules()[choose(random)];
        const Explanation why = rules_.explain(bytes, ScanOptions(), {rule.name});
        checkTripped(why);
        ++messages;
        for (const RuleExplanation &each : why.untripped) {
            ++reasons[reasonName(each.reason)];
            if (why.verdict.limits().empty()) {
                EXPECT_EQ(reasonName(each.reason), reasonName(reasonFor(*each.rule, why, bytes)))
                    << each.name;
            }
        }
    }
    EXPECT_GT(ranges_, 0U);
    std::cout << messages << " messages, " << ranges_ << " ranges; reasons:";
    for (const auto &[reason, count] : reasons) {
        std::cout << ' ' << reason << ' ' << count;
    }
    std::cout << '\n';
}

} // namespace
} // namespace corvane
