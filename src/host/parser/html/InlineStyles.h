#ifndef CORVANE_SRC_HOST_PARSER_HTML_INLINESTYLES_H
#define CORVANE_SRC_HOST_PARSER_HTML_INLINESTYLES_H

// What style attributes declare. The mails of programs repeat a few of them in hundreds of tags, so
// some of the last ones are remembered.
//
// Threads: one thread at a time.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/parser/html/Declarations.h"

namespace Corvane::Html {

class InlineStyles {
public:
    // Lasts until the next call.
    const std::vector<Declaration> &declarationsOf(std::string_view style);

private:
    struct Known {
        std::string style;
        std::vector<Declaration> declarations;
    };
    static constexpr std::size_t kSlots = 128;
    static constexpr std::size_t kMaxKnownBytes = 1024;

    // Empty until the first style: a message may have as many short parts as it likes.
    std::vector<Known> known_;
    std::vector<Declaration> declarations_; // of a style that is too long to be remembered
};

} // namespace Corvane::Html

#endif
