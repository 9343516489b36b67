#ifndef CORVANE_HEURISTIC_HEADERPASS_H
#define CORVANE_HEURISTIC_HEADERPASS_H

// Header rules tried on the headers of one message through the index of their set: each header only in the forms, and
// with the rules, that its name calls for. The forms are gathered where they are scanned; no header is copied.

#include <cstdint>
#include <string>
#include <string_view>

#include "heuristic/FilteredList.h"
#include "heuristic/HeaderRule.h"

namespace Corvane::Heuristic {

// How the values of headers are taken.
enum class HeaderValues { AsTheyAre, InUtf8 };

// The value repaired to UTF-8 and cut to the 2047 bytes that header rules see of it.
std::string headerValueInUtf8(const std::string &value);

class HeaderPass {
public:
    // The list and the match set must outlive the pass.
    HeaderPass(FilteredList &list, RefMatches &matches, HeaderValues values)
        : list_(list), matches_(matches), values_(values), pass_(list) {}

    // Takes the next header. Once the pass is full it should be run before it takes another one.
    void add(const Header &header);
    bool isFull() const { return pass_.isFull(); }

    // Tries the headers taken, up to the first at whose end the match set is tripped, and forgets them; answers whether
    // the match set is tripped, or false where no header was taken. Throws as RefMatches::add.
    bool run();

private:
    void stageForms(const Header &header, const std::string &value, unsigned int wanted);
    void stageText(std::string_view name, std::string_view text, unsigned int forms);

    FilteredList &list_;
    RefMatches &matches_;
    HeaderValues values_;
    FilteredPass pass_;
    FilteredPass::Headers headers_;
};

} // namespace Corvane::Heuristic

#endif
