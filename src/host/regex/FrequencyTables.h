#ifndef CORVANE_SRC_HOST_REGEX_FREQUENCYTABLES_H
#define CORVANE_SRC_HOST_REGEX_FREQUENCYTABLES_H

// Figures counted over a large collection of mail: decoded texts, raw bodies, URIs and header
// values.

#include <array>
#include <cstddef>

#include "host/regex/Literals.h"

namespace Corvane::Regex {

// Characters are told apart by class: a letter each, and 20 more.
constexpr std::size_t kCharacterClasses = 46;

// Row: the class before, or the last row for none; column: the class of the character; letter: how
// rare that is, from a for always, each letter further 0.8 bits rarer.
using PairTable = std::array<const char *, kCharacterClasses + 1>;

// What such text is full of, and how many bits an occurrence tells. Texts are separated by blanks; ~
// stands for a blank.
struct Furniture {
    int bits;
    const char *texts;
};

struct FrequencyTable {
    const PairTable *pairs;
    const Furniture *furniture;
    std::size_t furnitureRows;
};

const FrequencyTable &frequencyTable(TextKind kind);

} // namespace Corvane::Regex

#endif
