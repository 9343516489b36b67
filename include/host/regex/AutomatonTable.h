#ifndef CORVANE_HOST_REGEX_AUTOMATONTABLE_H
#define CORVANE_HOST_REGEX_AUTOMATONTABLE_H

// Says of texts that an expression cannot match them, at a few cycles a byte, whatever the
// expression is: for those that hold no literal worth looking for.
//
//     AutomatonTable table;
//     const auto number = table.add("/[\"'].{0,3}\\bor\\b/i", kAnyLineEnd, TextKind::Text,
//                                   AutomatonTable::When::Faster);
//     if (number.has_value() && !table.mayMatch(*number, {text.data(), text.length(), 0})) {
//         // the expression does not match text
//     }
//
// Each expression becomes a deterministic automaton that accepts every text that the expression
// matches. It accepts others too: what it cannot express (most assertions, back-references) it
// takes for true, and after kMaxStates states it stops telling apart what is seldom met in such
// text. Every text is read once, byte by byte, so none takes long.
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
#include "host/regex/WorkBudget.h"

namespace Corvane::Regex {

class CORVANE_REGEX_API AutomatonTable {
public:
    static constexpr std::size_t kMaxStates = 1000;
    // No automaton costs more, however much the budget allows.
    static constexpr std::uint64_t kMaxSteps = 96000000;

    // The bytes are borrowed for a call; data may be null where length is 0. The number is the
    // caller's, to know the text by.
    struct Text {
        const unsigned char *data = nullptr;
        std::size_t length = 0;
        std::size_t number = 0;
    };

    AutomatonTable();
    AutomatonTable(AutomatonTable &&source) noexcept;
    AutomatonTable &operator=(AutomatonTable &&source) noexcept;
    ~AutomatonTable();

    // text and options as the constructor of Expression takes them; the answer means nothing where
    // that refuses them. Nothing for a pattern that is not understood throughout, and for one that
    // matches every text; with Faster also where asking the automaton first would cost more than it
    // spares, as far as that can be guessed: it would accept most texts of that kind, or the engine
    // finds out soon by itself. Equal expressions are not looked for; each call adds anew. Nothing
    // is thrown but for want of memory.
    enum class When { Possible, Faster };
    std::optional<std::uint32_t> add(const std::string &text, unsigned int options, TextKind kind,
                                     When when);

    // The same, at the cost of a budget, also of its bytes. Nothing as well where that does not suffice; where little is
    // left, fewer states are told apart.
    std::optional<std::uint32_t> add(const std::string &text, unsigned int options, TextKind kind,
                                     When when, WorkBudget &budget);

    // Gives back memory that was set aside for more.
    void shrinkToFit();

    // Whether the expression may match the text from its beginning on.
    bool mayMatch(std::uint32_t number, const Text &text) const;

    // The same for many texts, which is faster: leaves those that the expression may match, in
    // their order.
    void select(std::uint32_t number, std::vector<Text> &texts) const;

    // Bytes allocated.
    std::size_t memoryBytes() const;

private:
    // The classes of bytes that it tells apart, and behind each other for each state the cells of
    // the classes, and one for the end of the text. A cell is where the cells of the next state
    // are: 0 for the one that accepts all.
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
