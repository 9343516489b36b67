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

// Whether the text holds what each encoded word begins with.
bool mayHoldEncodedWord(const std::string &text);

class HeaderPass {
public:
    // The list and the match set must outlive the pass.
    HeaderPass(FilteredList &list, RefMatches &matches)
        : list_(list), matches_(matches), pass_(list) {
        headers_.units.reserve(kUsualHeaders);
        headers_.selectors.reserve(kUsualHeaders);
    }

    // Takes the next header. Once the pass is full it should be run before it takes another one.
    void add(const Header &header, HeaderValues values);
    bool isFull() const {
        return pass_.isFull() || headers_.units.size() >= FilteredPass::kPassTexts;
    }

    // Finds what matches the headers taken, none of which may follow before turns.
    void select();

    // Adds what matches the headers, in their order, from the first-th on up to one at whose end the match set is tripped,
    // and forgets them; answers whether that was so. Throws as RefMatches::add.
    bool turns(std::uint32_t first);

    // The same for the first header alone, without forgetting any.
    void firstTurn() { pass_.addMatches(0, Buffer(), matches_); }

    // Both, for all headers taken.
    bool run() {
        select();
        return turns(0);
    }

private:
    static constexpr std::size_t kUsualHeaders = 64;

    void stageForms(const Header &header, const std::string &value, unsigned int wanted);
    void stageText(std::string_view name, std::string_view text, unsigned int forms);

    FilteredList &list_;
    RefMatches &matches_;
    FilteredPass pass_;
    FilteredPass::Headers headers_;
};

} // namespace Corvane::Heuristic

#endif
