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
bool mayHoldEncodedWord(std::string_view text);

// Whether the text holds something like an encoded word, the case in which it is decoded: in one line "=?", behind that
// the letter B or Q between question marks, and behind that "?=". Answers what the expression /=\?.*\?[BQ]\?.*\?=/i does,
// but in time in proportion to the text, whatever stands in it.
bool holdsEncodedWord(std::string_view text);

// A header as it is taken.
Header headerFor(const Header &header, HeaderValues values);

class HeaderPass {
public:
    // The list and the match set must outlive the pass.
    HeaderPass(FilteredList &list, RefMatches &matches)
        : list_(list), matches_(matches), pass_(list) {
        headers_.units.reserve(kUsualHeaders);
        headers_.selectors.reserve(kUsualHeaders);
    }

    // Whether a header must not be added, since the pass would copy it.
    static bool isTooLong(const Header &header, HeaderValues values);

    // Takes the next header. Once the pass is full it should be run before it takes another one.
    void add(const Header &header, HeaderValues values);
    bool isFull() const {
        return pass_.isFull() || addressBytes_ > mostAddressBytes_ ||
               headers_.units.size() >= FilteredPass::kPassTexts ||
               headers_.selectors.size() >= ScanMemory::kMaxSelectors;
    }

    // Finds what matches the headers taken, none of which may follow before turns.
    void select();

    // Adds what matches the headers, in their order, from the first-th on up to one at whose end the match set is tripped,
    // and forgets them; answers whether that was so. Throws as RefMatches::add.
    bool turns(std::uint32_t first);

    // The same for the first header alone, without forgetting any.
    void firstTurn() { pass_.addMatches(0, Buffer(), matches_); }

    // Forgets the headers taken.
    void clear();

    // Both, for all headers taken.
    bool run() {
        select();
        return turns(0);
    }

private:
    static constexpr std::size_t kUsualHeaders = 64;
    static constexpr std::size_t kFirstAddressBytes = 512;

    unsigned int formsOf(const HeaderSelectors::Selector &selector) const;
    void stageForms(const Header &header, const std::string &value, unsigned int wanted);
    void stageText(std::string_view name, std::string_view text, unsigned int forms);

    FilteredList &list_;
    RefMatches &matches_;
    FilteredPass pass_;
    FilteredPass::Headers headers_;
    // Of the values that addresses were parsed from, which takes longer than all else: few at
    // first, since the rules that ask for them may soon have matched.
    std::size_t addressBytes_ = 0;
    std::size_t mostAddressBytes_ = kFirstAddressBytes;
};

} // namespace Corvane::Heuristic

#endif
