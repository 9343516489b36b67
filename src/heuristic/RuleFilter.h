#ifndef CORVANE_HEURISTIC_RULEFILTER_H
#define CORVANE_HEURISTIC_RULEFILTER_H

// Says which of many expressions are worth matching against which texts: one pass over the texts looks for a literal of
// each expression without which it cannot match. What the filter lets through still has to be matched; what it does not
// let through matches nothing.
//
// Threads: immutable once constructed; any number of threads may use one, each with a memory of its own.

#include <cstdint>
#include <string>
#include <vector>

#include "heuristic/ScanMemory.h"
#include "host/regex/LiteralMatcher.h"
#include "host/regex/Literals.h"

namespace Corvane::Heuristic {

// Bytes with their ASCII letters in lower case, made when they are first asked for.
class LoweredRange {
public:
    // Good until the memory is used for another one.
    LoweredRange(const unsigned char *data, std::size_t length, ScanMemory &memory)
        : data_(data), length_(length), memory_(memory) {}

    const unsigned char *get() { return done_ ? memory_.lowered.data() : make(); }

private:
    const unsigned char *make();

    const unsigned char *data_;
    std::size_t length_;
    ScanMemory &memory_;
    bool done_ = false;
};

// One text as the cheap tests see it; what they need of it is prepared when the first one asks.
class TextFacts {
public:
    TextFacts(const unsigned char *data, std::uint32_t length, ScanMemory &memory)
        : data_(data), length_(length), lowered_(data, length, memory) {}

    const unsigned char *data() const { return data_; }
    std::uint32_t length() const { return length_; }
    const BytesPresent &present();
    const unsigned char *lowered() { return lowered_.get(); }

private:
    const unsigned char *data_;
    std::uint32_t length_;
    LoweredRange lowered_;
    bool isCounted_ = false;
    BytesPresent present_{};
};

class RuleFilter {
public:
    // An expression as it was compiled, the form of text that it is for, and whether texts are to be searched for it. One
    // with an empty text is never let through.
    struct Source {
        std::string text;
        unsigned int options = 0;
        std::uint8_t form = 0;
        bool searched = true;
    };

    // Expressions are known by their position in sources.
    RuleFilter(const std::vector<Source> &sources, Regex::TextKind kind);

    // The expressions that no literal can be looked for; in ascending order. They are for the caller to try.
    const std::vector<std::uint32_t> &unfiltered() const { return unfiltered_; }

    // Adds to memory.candidates, in no order and some maybe more than once, each admitted expression that may match a
    // text of memory.texts. base is what the texts are ranges of.
    template <class Admit>
    void select(const unsigned char *base, ScanMemory &memory, Admit admit) const;

    // Whether the text passes what else is known of the expression: its length, a second literal, bytes it must hold.
    bool mayMatch(std::uint32_t expression, TextFacts &text) const;

    // Whether the expression is nothing but literals: every candidate is a match then, and of one that is not searched for
    // mayMatch tells whether it matches. It cannot fail.
    bool isLiteral(std::uint32_t expression) const { return claims_[expression].whole; }

    std::size_t memoryBytes() const;

private:
    struct Needle {
        std::uint32_t offset;
        std::uint16_t length;
        bool ignoreCase;
    };
    struct Claims {
        std::uint32_t minimumLength = 0;
        std::uint32_t firstNeedle = 0;
        std::uint32_t firstSet = 0;
        std::uint8_t needles = 0;
        std::uint8_t sets = 0;
        std::uint8_t form = 0;
        bool whole = false;
    };
    // An expression that a literal stands for, if a needle (kNone: none) is in the text as well.
    struct Key {
        std::uint32_t expression;
        std::uint32_t needle;
    };
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    // A literal matcher, and what each of its literals stands for.
    struct Keys {
        Regex::LiteralMatcher matcher;
        std::vector<std::uint32_t> first; // by literal; one more at the end
        std::vector<Key> keys;
    };
    class KeyCollector;

    void claim(Claims &claims, const Regex::RequiredLiterals &required, bool keyIsFirst);
    void claimWhole(Claims &claims, const Regex::RequiredLiterals &required);
    bool addNeedles(Claims &claims, const std::vector<Regex::Literal> &literals);
    std::uint32_t addNeedle(const Regex::Literal &literal);
    std::vector<std::uint32_t> addCompanions(const std::vector<Regex::Literal> &literals);
    bool holds(const unsigned char *text, const unsigned char *lowered, std::size_t length,
               std::uint32_t needle) const;
    static void squeeze(const unsigned char *base, ScanMemory &memory);
    static std::uint32_t takeSerials(const Keys &keys, std::size_t texts, ScanMemory &memory);
    template <class Admit>
    void scan(const Keys &keys, const unsigned char *base, const std::vector<ScanText> &texts,
              ScanMemory &memory, Admit admit) const;

    Keys plain_;
    Keys squeezed_;
    std::vector<std::uint32_t> unfiltered_;
    std::vector<Claims> claims_;
    std::vector<Needle> needles_;
    std::string needleBytes_;
    std::vector<BytesPresent> sets_;
};

// Finds the text that holds the byte before an end offset. Offsets come almost in order.
class TextLocator {
public:
    explicit TextLocator(const std::vector<ScanText> &texts) : texts_(texts), at_(0) {}

    // The number of the text that holds all of the range, or none() for a range that crosses an edge.
    std::size_t find(std::size_t end, std::size_t length);
    static constexpr std::size_t none() { return static_cast<std::size_t>(-1); }

private:
    const std::vector<ScanText> &texts_;
    std::size_t at_;
};

inline std::size_t TextLocator::find(std::size_t end, std::size_t length) {
    const auto endOf = [](const ScanText &text) { return std::size_t{text.start} + text.length; };
    while (at_ > 0 && end <= endOf(texts_[at_ - 1])) {
        --at_;
    }
    while (at_ + 1 < texts_.size() && end > endOf(texts_[at_])) {
        ++at_;
    }
    const ScanText &text = texts_[at_];
    return end <= endOf(text) && end >= text.start + length ? at_ : none();
}

template <class Admit>
void RuleFilter::scan(const Keys &keys, const unsigned char *base,
                      const std::vector<ScanText> &texts, ScanMemory &memory, Admit admit) const {
    if (keys.matcher.size() == 0 || texts.empty()) {
        return;
    }
    const std::size_t from = texts.front().start;
    const std::size_t to = std::size_t{texts.back().start} + texts.back().length;
    if (from == to) {
        return;
    }
    const std::uint32_t serial = takeSerials(keys, texts.size(), memory);
    TextLocator locator(texts);
    LoweredRange lowered(base + from, to - from, memory);
    const auto found = [&](std::uint32_t literal, std::size_t end) {
        const std::size_t number = locator.find(from + end, keys.matcher.literalLength(literal));
        if (number == TextLocator::none() || memory.lastSeen[literal] == serial + number) {
            return;
        }
        memory.lastSeen[literal] = static_cast<std::uint32_t>(serial + number);
        const ScanText &text = texts[number];
        for (std::uint32_t i = keys.first[literal]; i < keys.first[literal + 1]; ++i) {
            const Key &key = keys.keys[i];
            if (claims_[key.expression].form == text.form && admit(key.expression) &&
                (key.needle == kNone ||
                 holds(base + text.start, lowered.get() + (text.start - from), text.length,
                       key.needle))) {
                memory.candidates.push_back(std::uint64_t{text.unit} << 32U | key.expression);
            }
        }
    };
    keys.matcher.scan(base + from, to - from, memory.scratch, found);
}

template <class Admit>
void RuleFilter::select(const unsigned char *base, ScanMemory &memory, Admit admit) const {
    scan(plain_, base, memory.texts, memory, admit);
    if (squeezed_.matcher.size() != 0) {
        squeeze(base, memory);
        scan(squeezed_, memory.squeezed.data(), memory.squeezedTexts, memory, admit);
    }
}

} // namespace Corvane::Heuristic

#endif
