#ifndef CORVANE_TESTS_SUPPORT_CHECKFIXTURE_H
#define CORVANE_TESTS_SUPPORT_CHECKFIXTURE_H

// What the tests of all checks start from: a list of rules of one kind, and a match set.
//
//     class UriCheckTest : public CheckFixture {
//     protected:
//         UriCheckTest() : CheckFixture(Rule::Uri) {}
//     };

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/Rules.h"

namespace Corvane::Heuristic {

// Names of the rules that the operation traces on standard output, one for each try.
template <class Operation>
Names tracedBy(Operation operation) {
    testing::internal::CaptureStdout();
    operation();
    std::istringstream trace(testing::internal::GetCapturedStdout());
    Names names;
    for (std::string name; std::getline(trace, name);) {
        names.push_back(name);
    }
    return names;
}

class CheckFixture : public testing::Test {
protected:
    explicit CheckFixture(Rule::Type kind) : kind_(kind) {}

    // Appends a rule with the next ordinal; the first has 1.
    RefRule rule(const std::string &name, const std::string &definition,
                 const std::string &score = "1.0") {
        rules_.add(makeRule(kind_, name, definition, score, ++ordinal_));
        return rules_->back();
    }

    // The same, but the match set will refuse it: it has lost its score since it was found active.
    void brokenRule(const std::string &name, const std::string &definition) {
        const RefRule broken = rule(name, definition);
        EXPECT_TRUE(broken->active());
        broken->score(RefScore());
    }

    Names tripped() const { return namesOf(*matches_); }
    Names left() const { return namesOf(*rules_); }

    Rule::Type kind_;
    unsigned int ordinal_ = 0;
    RefRuleList rules_ = RefRuleList::create();
    RefMatches matches_ = RefMatches::create();
};

} // namespace Corvane::Heuristic

#endif
