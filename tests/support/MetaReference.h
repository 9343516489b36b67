#ifndef CORVANE_TESTS_SUPPORT_METAREFERENCE_H
#define CORVANE_TESTS_SUPPORT_METAREFERENCE_H

// A second, slow evaluator of meta expressions for comparison, and random expressions to compare on. It shares no code
// with the library: expressions are lists of words, groups are frames of a stack (arithmetic) or calls that answer where
// they ended (boolean).

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Corvane::Heuristic {

using MetaTokens = std::vector<std::string>;

enum class MetaOutcome { False, True, Failed };

// The expression as a rule file has it, with every word between blanks.
inline std::string joined(const MetaTokens &tokens) {
    std::string text;
    for (const std::string &token : tokens) {
        text += (text.empty() ? "" : " ") + token;
    }
    return text;
}

// Thrown where an expression cannot be evaluated.
struct MetaIncomplete {};

class BooleanReference {
public:
    BooleanReference(const MetaTokens &tokens, const std::set<std::string> &tripped)
        : tokens_(tokens), tripped_(tripped) {}

    bool value() const { return sequence(0).first; }

private:
    // A value, and the place of the last word that belongs to it.
    using Result = std::pair<bool, std::size_t>;

    // Operands up to a closing parenthesis or the end.
    Result sequence(std::size_t at) const {
        bool value = false;
        std::string mode;
        for (; at < tokens_.size() && tokens_[at] != ")"; ++at) {
            if (isOperator(at)) {
                mode = tokens_[at];
                continue;
            }
            const auto [next, last] = operand(at);
            value = mode == "&&" ? value && next : mode == "||" ? value || next : next;
            at = last;
        }
        return {value, at};
    }

    Result operand(std::size_t at) const {
        if (tokens_[at] == "(") {
            return complete(sequence(at + 1));
        }
        if (tokens_[at] == "!") {
            const auto [value, last] = negated(at + 1);
            return {!value, last};
        }
        return {tripped_.count(tokens_[at]) != 0, at};
    }

    // A negation takes whatever stands next; what is no operand counts as false.
    Result negated(std::size_t at) const {
        if (at >= tokens_.size()) {
            throw MetaIncomplete();
        }
        return tokens_[at] == ")" || isOperator(at) ? Result{false, at} : operand(at);
    }

    Result complete(const Result &result) const {
        if (result.second >= tokens_.size()) {
            throw MetaIncomplete();
        }
        return result;
    }

    bool isOperator(std::size_t at) const { return tokens_[at] == "&&" || tokens_[at] == "||"; }

    const MetaTokens &tokens_;
    const std::set<std::string> &tripped_;
};

class ArithmeticReference {
public:
    ArithmeticReference(const MetaTokens &tokens, const std::set<std::string> &tripped)
        : tokens_(tokens), tripped_(tripped), frames_(1) {}

    float value() {
        bool eager = false;
        for (const std::string &token : tokens_) {
            if (token == "(") {
                frames_.emplace_back();
                eager = false;
            } else if (token == ")") {
                push(closeFrame());
            } else if (!isSign(token)) {
                eager ? applyTop(number(token)) : push(number(token));
                eager = false;
            } else {
                frames_.back().push_back({token, 0.0F});
                const bool takesNext =
                    token == "&&" || token == "||" || token == "*" || token == "/";
                eager = token != "!" && (eager || takesNext);
            }
        }
        return closeFrame();
    }

private:
    struct Item {
        std::string sign; // empty for a number
        float number;
    };

    static bool isSign(const std::string &token) {
        static const std::set<std::string> s_signs = {"!", "&&", "||", "+",  "-", "*",
                                                      "/", "<",  ">",  "<=", ">="};
        return s_signs.count(token) != 0;
    }

    static float truth(bool value) { return value ? 1.0F : 0.0F; }

    static float apply(const std::string &sign, float a, float b) {
        static const std::map<std::string, std::function<float(float, float)>> s_signs = {
            {"", [](float, float y) { return y; }},
            {"+", [](float x, float y) { return x + y; }},
            {"-", [](float x, float y) { return x - y; }},
            {"<", [](float x, float y) { return truth(x < y); }},
            {">", [](float x, float y) { return truth(x > y); }},
            {"<=", [](float x, float y) { return truth(x <= y); }},
            {">=", [](float x, float y) { return truth(x >= y); }},
            {"&&", [](float x, float y) { return truth(x != 0.0F && y != 0.0F); }},
            {"||", [](float x, float y) { return truth(x != 0.0F || y != 0.0F); }}};
        return s_signs.at(sign)(a, b);
    }

    float number(const std::string &name) const {
        return tripped_.count(name) != 0 ? 1.0F : leadingNumber(name);
    }

    // The digits, point and exponent at the front of a word, behind white space that ends no word; 0.0 where they are no
    // number that a float holds.
    static float leadingNumber(const std::string &word) {
        const auto digits = [&word](std::size_t from) {
            return std::min(word.find_first_not_of("0123456789", from), word.size());
        };
        const std::size_t start = std::min(word.find_first_not_of("\n\v\f\r"), word.size());
        std::size_t end = digits(start);
        bool complete = end > start;
        if (end < word.size() && word[end] == '.') {
            const std::size_t point = end;
            end = digits(point + 1);
            complete = complete || end > point + 1;
        }
        if (complete && end < word.size() && (word[end] == 'e' || word[end] == 'E')) {
            const std::size_t exponent = end;
            end = digits(exponent + 1);
            complete = end > exponent + 1;
        }
        const float value =
            complete ? std::strtof(word.substr(start, end - start).c_str(), nullptr) : 0.0F;
        return std::isinf(value) ? 0.0F : value;
    }

    void push(float number) { frames_.back().push_back({"", number}); }

    // The value of the innermost group, which is gone then.
    float closeFrame() {
        float value = 0.0F;
        bool negate = false;
        std::string pending;
        for (const Item &item : frames_.back()) {
            if (item.sign == "!") {
                negate = !negate;
            } else if (item.sign.empty() || item.sign == "*" || item.sign == "/") {
                value = apply(pending, value, negate ? truth(item.number == 0.0F) : item.number);
                pending.clear();
                negate = false;
            } else {
                pending = item.sign;
            }
        }
        frames_.pop_back();
        if (frames_.empty()) {
            frames_.emplace_back();
        }
        return value;
    }

    // The item before an operator; an opening parenthesis goes with a value of 0.0.
    float takeLast() {
        if (!frames_.back().empty()) {
            const float value = frames_.back().back().number;
            frames_.back().pop_back();
            return value;
        }
        if (frames_.size() == 1) {
            throw MetaIncomplete();
        }
        frames_.pop_back();
        return 0.0F;
    }

    void applyTop(float right) {
        const std::string sign = frames_.back().back().sign;
        frames_.back().pop_back();
        if (sign == "*" || sign == "/") {
            const float left = takeLast();
            push(sign == "*" ? left * right : left / right);
        } else if (!sign.empty() && sign != "+" && sign != "-" && sign != "!") {
            push(apply(sign, closeFrame(), right));
        }
    }

    const MetaTokens &tokens_;
    const std::set<std::string> &tripped_;
    std::vector<std::vector<Item>> frames_;
};

inline MetaOutcome referenceOutcome(const MetaTokens &tokens,
                                    const std::set<std::string> &tripped) {
    static const std::set<std::string> s_arithmetic = {"+", "-", "*", "/", "<", ">", "<=", ">="};
    bool arithmetic = false;
    for (const std::string &token : tokens) {
        arithmetic = arithmetic || s_arithmetic.count(token) != 0;
    }
    try {
        const bool value = arithmetic ? ArithmeticReference(tokens, tripped).value() != 0.0F
                                      : BooleanReference(tokens, tripped).value();
        return value ? MetaOutcome::True : MetaOutcome::False;
    } catch (const MetaIncomplete &) {
        return MetaOutcome::Failed;
    }
}

// Expressions that mostly make sense, half of them damaged in a few places.
class MetaExpressionGenerator {
public:
    explicit MetaExpressionGenerator(unsigned int seed) : random_(seed) {}

    MetaTokens expression() {
        signs_ = oneIn(2) ? MetaTokens{"&&", "||"}
                          : MetaTokens{"&&", "||", "+", "-", "*", "/", "<", ">", "<=", ">="};
        MetaTokens tokens;
        sequence(tokens, 3);
        if (oneIn(2)) {
            for (int damage = below(3); damage < 3 && !tokens.empty(); ++damage) {
                tokens.erase(tokens.begin() + below(tokens.size()));
                tokens.insert(tokens.begin() + below(tokens.size() + 1), anyToken());
            }
        }
        return tokens;
    }

    std::set<std::string> tripped() {
        std::set<std::string> names;
        for (const std::string &name : names_) {
            if (oneIn(2)) {
                names.insert(name);
            }
        }
        return names;
    }

private:
    int below(std::size_t limit) {
        return static_cast<int>(random_() % static_cast<unsigned int>(limit));
    }
    bool oneIn(std::size_t n) { return below(n) == 0; }
    const std::string &any(const MetaTokens &from) {
        return from[static_cast<std::size_t>(below(from.size()))];
    }
    std::string operand() { return oneIn(3) ? any(numbers_) : any(names_); }

    std::string anyToken() {
        static const MetaTokens s_marks = {"(", ")", "!"};
        return oneIn(3) ? any(s_marks) : oneIn(2) ? any(signs_) : operand();
    }

    void sequence(MetaTokens &tokens, unsigned int depth) {
        for (int count = 1 + below(4); count > 0; --count) {
            if (oneIn(4)) {
                tokens.emplace_back("!");
            }
            if (depth > 0 && oneIn(4)) {
                tokens.emplace_back("(");
                sequence(tokens, depth - 1);
                tokens.emplace_back(")");
            } else {
                tokens.push_back(operand());
            }
            if (count > 1) {
                tokens.push_back(any(signs_));
            }
        }
    }

    std::mt19937 random_;
    MetaTokens signs_;
    const MetaTokens names_ = {"A", "B", "C", "__D", "3"};
    const MetaTokens numbers_ = {"0", "1", "2", "2.5", "7x", "0.1"};
};

} // namespace Corvane::Heuristic

#endif
