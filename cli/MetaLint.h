#ifndef CORVANE_CLI_METALINT_H
#define CORVANE_CLI_METALINT_H

// Finds what is wrong with the expressions of meta rules: names that count for nothing, forms that
// are read otherwise than they look, values that never change. Expressions are cut by the rules
// themselves and evaluated as in a scan.
//
//     MetaLint(rules, findings).check();
//
// Threads: one thread.

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "Finding.h"
#include "LintedRule.h"
#include "heuristic/MetaRule.h"

namespace Corvane::Cli {

class MetaLint {
public:
    // Names up to which an expression is tried with every set of tripped rules.
    static constexpr std::size_t kMostNames = 12;

    // Both are borrowed. The rules are those that were filed, with their scores.
    MetaLint(const std::vector<LintedRule> &rules, std::vector<Finding> &findings);

    // Appends what is found to the findings.
    void check();

private:
    using Atom = Heuristic::MetaRule::Atom;
    // An atom and where it is written; length counts the bytes.
    struct Token {
        const Atom *atom;
        unsigned int column;
        std::size_t length;
    };
    using Tokens = std::vector<Token>;
    using Candidates = std::vector<const LintedRule *>;

    static Tokens tokens(const LintedRule &meta);
    Candidates named(const std::string &name, std::uint8_t languages) const;
    bool isWord(const Token &token) const;
    bool isNumber(const Token &token) const;

    void checkRule(const LintedRule &meta);
    bool checkForm(const LintedRule &meta, const Tokens &tokens);
    bool checkPair(const LintedRule &meta, const Token *before, const Token *token);
    bool checkParentheses(const LintedRule &meta, const Tokens &tokens);
    bool checkName(const LintedRule &meta, const Token &token);
    bool checkUnknownName(const LintedRule &meta, const Token &token);
    void checkOrder(const LintedRule &meta, const Token &token, const Candidates &candidates);
    void checkPrecedence(const LintedRule &meta, const Tokens &tokens);
    void checkValues(const LintedRule &meta, const Tokens &tokens);
    bool reaches(const LintedRule &from, const LintedRule &to) const;
    void add(const LintedRule &meta, unsigned int column, Level level, const std::string &code,
             const std::string &text, const std::string &remedy);

    const std::vector<LintedRule> &rules_;
    std::vector<Finding> &findings_;
    std::unordered_map<std::string, Candidates> byName_;
};

} // namespace Corvane::Cli

#endif
