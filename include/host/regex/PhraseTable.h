#ifndef CORVANE_HOST_REGEX_PHRASETABLE_H
#define CORVANE_HOST_REGEX_PHRASETABLE_H

// Looks at what stands around literals that were found in a text: for an expression that is nothing but words and gaps,
// this tells at the place of one word whether the others follow.
//
//     RequiredLiterals required = requiredLiterals("/cheap\\s{1,4}watches/i", kAnyLineEnd, TextKind::Text);
//     PhraseTable table;
//     const std::uint32_t number = table.add(required.phrases[0]);
//     // wherever required.alternatives[0] was found in text, from start to end:
//     std::size_t read = 0;
//     table.check(number, text.data(), text.length(), start, end, read);
//
// Threads: add is for one thread; once all are added, any number of threads may check.

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/regex/Export.h"
#include "host/regex/Literals.h"

namespace Corvane::Regex {

class CORVANE_REGEX_API PhraseTable {
public:
    enum class Verdict {
        No,
        Yes,
        // A step takes more than kMaxRunBytes, and is not followed so far: texts of one run would else take time in
        // proportion to their square.
        Unknown
    };
    static constexpr std::uint32_t kMaxRunBytes = 64;

    PhraseTable();
    PhraseTable(PhraseTable &&source) noexcept;
    PhraseTable &operator=(PhraseTable &&source) noexcept;
    ~PhraseTable();

    // Answers the phrase's number. Equal sets of bytes are kept once.
    std::uint32_t add(const Phrase &phrase);

    // Whether the literal at start to end (behind its last byte) of the text stands in the phrase.
    // The text is borrowed for the call; start and end must lie in it. To read the number of bytes
    // is added that were looked at, for callers who count the work.
    Verdict check(std::uint32_t phrase, const unsigned char *text, std::size_t length,
                  std::size_t start, std::size_t end, std::size_t &read) const;

    // Bytes allocated.
    std::size_t memoryBytes() const;

    // What these would add to them, without their sets of bytes.
    static std::size_t bytesOf(const std::vector<Phrase> &phrases);

private:
    struct Step {
        std::uint32_t set;
        std::uint32_t least;
        std::uint32_t most;
    };
    // Ranges of steps_: those before the literal, then those after it.
    struct Entry {
        std::uint32_t before;
        std::uint32_t after;
        std::uint32_t end;
    };
    using Set = std::bitset<256>;

    void addSteps(const std::vector<PhraseStep> &steps);
    template <class At>
    Verdict follow(std::uint32_t first, std::uint32_t last, std::size_t room, std::size_t &read,
                   At at) const;

    std::vector<Entry> entries_;
    std::vector<Step> steps_;
    std::vector<Set> sets_;
    std::unordered_map<Set, std::uint32_t> numbers_;
};

} // namespace Corvane::Regex

#endif
