#ifndef CORVANE_SRC_HOST_PARSER_HTML_NAMEDREFERENCES_H
#define CORVANE_SRC_HOST_PARSER_HTML_NAMEDREFERENCES_H

// The named character references of HTML, such as "amp;" and the old "amp" without its semicolon.
//
//     ReferenceSearch search;
//     while (search.take(next())) {}
//     search.longest().text;   // what the longest name among the characters taken stands for
//
// Threads: the table is immutable; a search belongs to one thread.

#include <cstddef>
#include <string_view>

namespace Corvane::Html {

struct NamedReference {
    std::string_view name; // without '&', with ';' where it has one
    std::string_view text; // one or two characters in UTF-8
};

// All names, one text as tools/make_named_references.py writes it.
extern const char kNamedReferenceTable[];

// Narrows the names down by one character after the other.
class ReferenceSearch {
public:
    ReferenceSearch();

    // Whether some name goes on with this character; if none does, nothing changes.
    bool take(char character);

    // The longest name that the characters taken begin with; empty where there is none.
    const NamedReference &longest() const { return longest_; }

private:
    const NamedReference *first_;
    const NamedReference *last_;
    std::size_t length_ = 0;
    NamedReference longest_;
};

} // namespace Corvane::Html

#endif
