#ifndef CORVANE_HEURISTIC_LETTERSANDDIGITS_H
#define CORVANE_HEURISTIC_LETTERSANDDIGITS_H

// Texts without what senders put between the letters of a word to hide it.

#include <cstddef>

namespace Corvane::Heuristic {

// Copies the bytes a-z, A-Z and 0-9 of the text to out and answers the end of the copy. What is behind it may be
// overwritten too: out must have room for length + kCopyRoomBytes, and may not overlap the text.
unsigned char *copyLettersAndDigits(const unsigned char *text, std::size_t length,
                                    unsigned char *out);
constexpr std::size_t kCopyRoomBytes = 64;

// The same a byte at a time, as it is done on processors without fitting instructions.
unsigned char *copyLettersAndDigitsBytewise(const unsigned char *text, std::size_t length,
                                            unsigned char *out);

} // namespace Corvane::Heuristic

#endif
