#ifndef CORVANE_HOST_REGEX_AUTOMATONTABLE_H
#define CORVANE_HOST_REGEX_AUTOMATONTABLE_H

// Says of texts that an expression cannot match them, at a few cycles a byte, whatever the expression is: for those that
// hold no literal worth looking for.
//
//     AutomatonTable table;
//     const auto number = table.add("/[\"'].{0,3}\\bor\\b/i", kAnyLineEnd, TextKind::Text);
//     if (number.has_value() && !table.mayMatch(*number, {text.data(), text.length()})) {
//         // the expression does not match text
//     }
//
// Each expression becomes a deterministic automaton that accepts every text that the expression matches. It accepts others
// too: what it cannot express (most assertions, back-references) it takes for true, and after kMaxStates states it stops
// telling apart what is seldom met in such text. Every text is read once, byte by byte, so none takes long.
//
// Threads: add is for one thread; once all are added, any number of threads may ask.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/regex/Export.h"
#include "host/regex/Literals.h"

namespace Corvane::Regex {

class CORVANE_REGEX_API AutomatonTable {
public:
    static constexpr std::size_t kMaxStates = 1000;

    // Borrowed for a call; data may be null where length is 0.
    struct Text {
        const unsigned char *data = nullptr;
        std::size_t length = 0;
    };

    AutomatonTable();
    AutomatonTable(AutomatonTable &&source) noexcept;
    AutomatonTable &operator=(AutomatonTable &&source) noexcept;
    ~AutomatonTable();

    // text and options as the constructor of Expression takes them. Nothing for a pattern that is not understood
    // throughout, and for one whose automaton would accept about every text of that kind.
    std::optional<std::uint32_t> add(const std::string &text, unsigned int options, TextKind kind);

    // Whether the expression may match the text from its beginning on.
    bool mayMatch(std::uint32_t number, const Text &text) const;

    // The same for many texts, which is faster: leaves of the numbers, in their order, those whose text may match. The text
    // of number i is texts[i]; no number is 0xFFFFFFFF.
    void select(std::uint32_t number, const Text *texts, std::vector<std::uint32_t> &numbers) const;

    // Bytes allocated.
    std::size_t memoryBytes() const;

private:
    // The classes of bytes that it tells apart, and behind each other for each state the cells of the classes, and one for
    // the end of the text. A cell is where the cells of the next state are: 0 for the one that accepts all.
    struct Automaton {
        std::array<std::uint8_t, 256> classes;
        std::uint32_t cells;
        std::uint16_t start;
        std::uint16_t settled; // no cells up to these are ever left
        std::uint16_t end;     // the class
    };

    class Reader;

    std::vector<Automaton> automata_;
    std::vector<std::uint16_t> cells_;
};

} // namespace Corvane::Regex

#endif
