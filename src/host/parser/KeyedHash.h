#ifndef CORVANE_SRC_HOST_PARSER_KEYEDHASH_H
#define CORVANE_SRC_HOST_PARSER_KEYEDHASH_H

// A hash of texts that strangers choose.
//
//     std::unordered_set<std::string_view, KeyedHash> seen;
//
// The key is drawn anew for each process: nobody can make up names in advance that share a hash,
// be it to fill one place of a table with them, or to pass one for another.
//
// Threads: pure, once the key is drawn.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Corvane {

// The same for the same text until the process ends.
std::uint64_t keyedHash(std::string_view text);

// The same for a number.
std::uint64_t keyedHash(std::uint64_t number);

struct KeyedHash {
    std::size_t operator()(std::string_view text) const { return keyedHash(text); }
    std::size_t operator()(std::uint64_t number) const { return keyedHash(number); }
};

} // namespace Corvane

#endif
