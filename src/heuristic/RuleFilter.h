#ifndef CORVANE_HEURISTIC_RULEFILTER_H
#define CORVANE_HEURISTIC_RULEFILTER_H

// Says which of many expressions are worth matching against which texts: one pass over the texts looks for a literal of
// each expression without which it cannot match. What the filter lets through still has to be matched; what it does not
// let through matches nothing.
//
// Threads: immutable once constructed; any number of threads may use one, each with a memory of its own.

#include <array>
#include <bitset>
#include <cstdint>
#include <string>
#include <vector>

#include "heuristic/ScanEffort.h"
#include "heuristic/ScanMemory.h"
#include "host/regex/AutomatonTable.h"
#include "host/regex/LiteralMatcher.h"
#include "host/regex/Literals.h"
#include "host/regex/PhraseTable.h"
#include "host/regex/WorkBudget.h"

namespace Corvane::Heuristic {

// Bytes with their ASCII letters in lower case, made when they are first asked for.
class LoweredRange {
public:
    // Good until the memory is used for another one.
    LoweredRange(const unsigned char *data, std::size_t length, ScanMemory &memory,
                 ScanEffort &effort)
        : data_(data), length_(length), memory_(memory), effort_(effort) {}

    // From an offset on. Null where the bytes are more than ScanMemory::kMaxCopiedBytes.
    const unsigned char *from(std::size_t offset) {
        const unsigned char *bytes = done_ ? memory_.lowered.data() : make();
        return bytes != nullptr ? bytes + offset : nullptr;
    }

private:
    const unsigned char *make();

    const unsigned char *data_;
    std::size_t length_;
    ScanMemory &memory_;
    ScanEffort &effort_;
    bool done_ = false;
};

// One text as the cheap tests see it; what they need of it is prepared when the first one asks.
class TextFacts {
public:
    // The text starts at an offset of the lowered range. known is where to note what is found out about its bytes.
    TextFacts(const unsigned char *data, std::uint32_t length, LoweredRange &lowered,
              std::size_t offset, KnownBytes &known, ScanEffort &effort)
        : data_(data), length_(length), lowered_(lowered), offset_(offset), known_(known),
          effort_(effort) {}

    const unsigned char *data() const { return data_; }
    std::uint32_t length() const { return length_; }
    const BytesPresent &present();
    bool isCounted() const { return known_.isCounted; }
    const unsigned char *lowered() { return lowered_.from(offset_); }
    void spend(ScanEffort::Work work) { effort_.spend(work); }

private:
    const unsigned char *data_;
    std::uint32_t length_;
    LoweredRange &lowered_;
    std::size_t offset_;
    KnownBytes &known_;
    ScanEffort &effort_;
};

class RuleFilter {
public:
    // An expression as it was compiled, the form of text that it is for, and whether texts are to be searched for it.
    struct Source {
        std::string text;
        unsigned int options = 0;
        std::uint8_t form = 0;
        bool searched = true;
        // Whether the compiled expression can match at the beginning of a text alone.
        bool anchored = false;
    };

    // Expressions are known by their position in sources. Those for which the budget does not suffice, of its steps or of
    // its bytes, are left unfiltered.
    RuleFilter(const std::vector<Source> &sources, Regex::TextKind kind, Regex::WorkBudget &budget);

    // The expressions that no literal can be looked for; in ascending order. They are for the caller to try.
    const std::vector<std::uint32_t> &unfiltered() const { return unfiltered_; }

    // Whether a literal is looked for, without which the expression cannot match.
    bool isSearched(std::uint32_t expression) const { return claims_[expression].hasKey; }

    // What to find out by trying that an expression does not match a text of that length takes at
    // least; and whether that depends on the length.
    ScanEffort::Work leastWork(std::uint32_t expression, std::size_t length) const {
        return ScanEffort::kTry +
               static_cast<ScanEffort::Work>(length) * claims_[expression].tryByteWork;
    }
    bool readsTexts(std::uint32_t expression) const { return !claims_[expression].anchored; }

    // Adds to memory.candidates, in no order and some maybe more than once, each admitted
    // expression that may match a text of memory.texts, or that does match it. base is what the
    // texts are ranges of; from there so many bytes may be read, which need not end with the texts:
    // it is better if they do not. The policy says whether an expression is admitted (admits), is
    // told of each candidate (found), and counts the work (effort). Answers false, with candidates
    // missing, where that was exceeded. Defined in RuleFilterSearch.h.
    template <class Policy>
    bool select(const unsigned char *base, std::size_t readable, ScanMemory &memory,
                Policy &policy) const;

    // What that takes for texts of so many bytes before anything is found.
    ScanEffort::Work searchWork(std::size_t bytes) const;

    // Whether the text passes what else is known of the expression: its length, a second literal, bytes it must hold, and
    // where there is one its automaton.
    bool mayMatch(std::uint32_t expression, TextFacts &text) const {
        return passes(expression, text) && isAccepted(expression, text);
    }

    // The same in two steps: all but the automaton, and that, if there is one, for one text, or for
    // many texts at once, of which those that it accepts are left, in their order.
    bool hasAutomaton(std::uint32_t expression) const {
        return claims_[expression].automaton != kNoAutomaton;
    }
    bool passes(std::uint32_t expression, TextFacts &text) const;
    bool isAccepted(std::uint32_t expression, TextFacts &text) const;

    // What the first step takes at most.
    ScanEffort::Work passWork(std::uint32_t expression, std::size_t length) const {
        const Claims &claims = claims_[expression];
        return claims.passWork + static_cast<ScanEffort::Work>(length) * claims.passByteWork;
    }

    void selectAccepted(std::uint32_t expression,
                        std::vector<Regex::AutomatonTable::Text> &texts) const {
        if (hasAutomaton(expression)) {
            automata_.select(claims_[expression].automaton, texts);
        }
    }

    // Whether the expression, which is not searched for, is nothing but literals: mayMatch tells whether it matches then,
    // and it cannot fail.
    bool isLiteral(std::uint32_t expression) const {
        return claims_[expression].whole && !claims_[expression].searched;
    }

    std::size_t memoryBytes() const;

private:
    struct Needle {
        std::uint32_t offset;
        std::uint16_t length;
        bool ignoreCase;
    };
    static constexpr std::uint32_t kNoAutomaton = 0xFFFFFFFF;
    struct Claims {
        std::uint32_t minimumLength = 0;
        std::uint32_t maximumLength = 0xFFFFFFFF;
        std::uint32_t wholeUpTo = 0;
        std::uint32_t automaton = kNoAutomaton;
        std::uint32_t firstNeedle = 0;
        std::uint32_t firstSet = 0;
        // Of the tests but the automaton, on any text and for each byte, and of a try for each
        // byte.
        ScanEffort::SmallWork passWork = ScanEffort::kTest;
        ScanEffort::SmallWork passByteWork = 0;
        ScanEffort::SmallWork tryByteWork = ScanEffort::kTryByte;
        std::uint8_t needles = 0;
        std::uint8_t sets = 0;
        // Whether one more set, before those, says what texts begin with.
        bool boundStart = false;
        bool anchored = false;
        std::uint8_t form = 0;
        bool searched = true;
        bool hasKey = false;
        // Of a searched one: each text with one of the literals, in its phrase if it has one, matches.
        bool whole = false;
    };
    // Bytes of which a text must hold one. Where they are few, it is faster to search for them than to note all bytes.
    struct RequiredSet {
        static constexpr std::size_t kMaxFew = 2;

        BytesPresent bytes;
        std::array<unsigned char, kMaxFew> few;
        std::uint8_t count; // of few; 0: they are more
    };
    // An expression that a literal stands for, if what is asked besides is true.
    struct Key {
        enum class Asks : std::uint8_t { Nothing, Needle, Phrase };

        std::uint32_t expression;
        std::uint32_t number; // of the needle or phrase
        Asks asks;
    };

    // A literal matcher, and what each of its literals stands for: first those with a phrase, which is looked for
    // wherever the literal is found.
    struct Keys {
        Regex::LiteralMatcher matcher;
        std::vector<std::uint32_t> first; // by literal; one more at the end
        std::vector<std::uint32_t> firstPlain;
        std::vector<Key> keys;
    };
    // A literal that was found in a form of a text; offsets from where that starts.
    struct Hit {
        std::uint32_t unit;
        const unsigned char *data;
        std::size_t length;
        std::size_t start;
        std::size_t end;

        Hit from(std::size_t offset) const {
            return {unit, data + offset, length - offset, start - offset, end - offset};
        }
    };
    class KeyCollector;
    template <class Policy>
    class HitTaker;

    void claim(Claims &claims, const Regex::RequiredLiterals &required, bool keyIsFirst);
    bool addKeys(Regex::RequiredLiterals &required, std::uint32_t expression, KeyCollector &plain,
                 KeyCollector &squeezed, Regex::WorkBudget &budget);
    void addAutomaton(Claims &claims, const Regex::RequiredLiterals &required, const Source &source,
                      Regex::TextKind kind, Regex::WorkBudget &budget);
    void claimWhole(Claims &claims, const Regex::RequiredLiterals &required);
    bool addNeedles(Claims &claims, const std::vector<Regex::Literal> &literals);
    std::uint32_t addNeedle(const Regex::Literal &literal);
    std::vector<Key> makeKeys(const Regex::RequiredLiterals &required, std::uint32_t expression);
    bool holds(const unsigned char *text, const unsigned char *lowered, std::size_t length,
               std::uint32_t needle) const;
    template <class Policy>
    bool checkPhrase(const Key &key, const Hit &hit, ScanMemory &memory, Policy &policy) const;
    template <class Policy>
    static void addCandidate(std::uint32_t expression, std::uint32_t unit, bool decided,
                             ScanMemory &memory, Policy &policy);
    template <class Policy>
    void addUnsqueezed(ScanMemory &memory, Policy &policy) const;
    static RequiredSet requiredSet(const std::bitset<256> &set);
    static bool holdsOne(const RequiredSet &set, TextFacts &text);
    static bool isTooLong(const ScanText &text) {
        return text.length > ScanMemory::kMaxCopiedBytes;
    }
    static void squeeze(const unsigned char *base, ScanMemory &memory);
    static std::uint32_t takeSerials(const Keys &keys, std::size_t texts, ScanMemory &memory);
    template <class Policy>
    void scan(const Keys &keys, const unsigned char *base, std::size_t readable,
              const std::vector<ScanText> &texts, ScanMemory &memory, Policy &policy) const;

    Keys plain_;
    Keys squeezed_;
    std::vector<std::uint32_t> unfiltered_;
    std::vector<Claims> claims_;
    std::vector<Needle> needles_;
    std::string needleBytes_;
    std::vector<RequiredSet> sets_;
    Regex::PhraseTable phrases_;
    Regex::AutomatonTable automata_;
};

} // namespace Corvane::Heuristic

#endif
