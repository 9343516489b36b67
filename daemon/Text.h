#ifndef CORVANE_DAEMON_TEXT_H
#define CORVANE_DAEMON_TEXT_H

// Foreign bytes in headers, log lines and metrics: whatever a client, a message or a rule file
// holds must not end a line, close a quote or begin a field there.
//
// Threads: free functions without state.

#include <cstddef>
#include <string>
#include <string_view>

namespace Corvane::Milter {

// Longer names of rules are cut where they are shown.
constexpr std::size_t kMostNameBytes = 200;

// Which characters stand for themselves besides those of ASCII that are printable.
enum class Charset { Ascii, Utf8 };

// The text with every other byte, each byte of specials, and the backslash written as \xNN. What is
// longer than most bytes is cut there and ends in "...". The cut never lies within a character.
std::string escaped(std::string_view text, Charset charset, std::string_view specials = {},
                    std::size_t most = std::string_view::npos);

// Letters of ASCII as small ones; other bytes stay.
std::string lowercase(std::string_view text);

// Whether two texts differ by the case of ASCII letters at most.
bool equalsIgnoringCase(std::string_view left, std::string_view right);

// What the system says of an error number.
std::string systemReason(int error);

} // namespace Corvane::Milter

#endif
