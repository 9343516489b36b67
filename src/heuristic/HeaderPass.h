#ifndef CORVANE_HEURISTIC_HEADERPASS_H
#define CORVANE_HEURISTIC_HEADERPASS_H

// Header rules tried on the headers of one message through the index of their set: each header only in the forms, and
// with the rules, that its name calls for.

#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "heuristic/FilteredList.h"
#include "heuristic/HeaderRule.h"

namespace Corvane::Heuristic {

class HeaderPass {
public:
    // Both must outlive the pass.
    HeaderPass(FilteredList &list, RefMatches &matches)
        : list_(list), matches_(matches), pass_(list) {}

    // Takes a copy of the next header. Once the pass is full it should be run before it takes another one.
    void add(const Header &header);
    bool isFull() const { return pass_.isFull(); }

    // Tries the headers taken, up to the first at whose end the match set is tripped, and forgets them; answers whether
    // the match set is tripped, or false where no header was taken. Throws as RefMatches::add.
    bool run();

private:
    // A header that some rule may be for, with a range of selectors_.
    struct Unit {
        std::optional<HeaderRuleParameter> header;
        std::size_t firstSelector;
        std::size_t lastSelector;
    };

    FilteredList &list_;
    RefMatches &matches_;
    FilteredPass pass_;
    std::list<Unit> units_;
    std::vector<std::uint32_t> selectors_;
    std::vector<std::uint32_t> found_;
};

} // namespace Corvane::Heuristic

#endif
