#ifndef CORVANE_SRC_HOST_PARSER_HTML_OPENELEMENTS_H
#define CORVANE_SRC_HOST_PARSER_HTML_OPENELEMENTS_H

// The elements that are open at a place of a document, with the effects that start and end tags
// have on each other: paragraphs that end where blocks begin, cells that end with their row,
// formatting that reopens behind the block it was left open in.
//
// It remembers kMaxOpenElements; what is deeper looks like the last of them, or is in doubt seen
// where it has a style of its own.
//
// Threads: one thread at a time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/parser/html/OpenElement.h"

namespace Corvane::Html {

constexpr std::size_t kMaxOpenElements = 256;

class OpenElements {
public:
    OpenElements();

    // Closes what a start tag of that name closes.
    void beforeStart(const Element &element);

    // Opens an element that has its look, once beforeStart() was called for it.
    void open(const OpenElement &element);

    // Takes an end tag; whether an element was closed.
    bool close(const Element &element, std::uint32_t name);

    // How text at this place looks, and an element around which it would stand.
    const Look &textLook() const;
    const Look &parentLook(const Element &element) const;

    std::span<const OpenPlace> around() const { return elements_; }

    bool has(ElementId id) const;

    // Whether parts of tables mean anything here.
    bool isInTable() const { return !elements_.empty() && elements_.back().open->inTable; }

    // Closes SVG and MathML, as HTML inside them does.
    void leaveForeign();
    bool isForeign() const { return !elements_.empty() && elements_.back().open->look.isForeign; }

    // A document without a type makes tables forget sizes and colours of text.
    void inQuirks(bool inQuirks) { inQuirks_ = inQuirks; }
    bool isInQuirks() const { return inQuirks_; }

    // What is opened from here on stays among itself: its tags close nothing that is open now, and
    // unfence() forgets what is still open of it.
    void fence();
    void unfence();

private:
    enum class Reopen { Formatting, Nothing };

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    template <class Wanted, class Barrier>
    std::size_t find(Wanted wanted, Barrier barrier) const;
    // Whether one of that name may be open: never wrong where it is.
    bool mayHave(std::uint32_t name) const { return counts_[name % kCounts] != 0; }
    void closeP();
    void closeItem(const Element &element);
    void closeToTable(const Element &element);
    bool closeBlock(const Element &element);
    bool closeFormatting(std::uint32_t name);
    bool closeInline(std::uint32_t name);
    bool closeNamed(const Element &element, std::uint32_t name);
    void closeFrom(std::size_t place, Reopen reopen);
    void push(const OpenElement &element);
    void resize(std::size_t count);
    OpenElement *unused();
    void forget(const OpenPlace &one);
    void recomputeFrom(std::size_t first);
    void place(std::size_t where);
    const Look &lookBelow(std::size_t place, bool beforeTable) const;

    std::vector<OpenPlace> elements_;
    // All that were ever open at once, and those of them that are not now.
    std::vector<std::unique_ptr<OpenElement>> made_;
    std::vector<OpenElement *> unused_;
    // How many of elements_ have a name of that remainder.
    static constexpr std::size_t kCounts = 256;
    std::array<std::uint16_t, kCounts> counts_{};
    std::size_t headings_ = 0;
    // End tags that closed nothing, by the remainder of their names, and how often elements_ had
    // changed by then: nor do they now if it has not changed since.
    struct Missed {
        std::uint32_t name = 0;
        std::size_t changes = 0;
    };
    static constexpr std::size_t kMissed = 64;
    std::array<Missed, kMissed> missed_{};
    std::size_t changes_ = 1;
    std::size_t floor_ = 0;         // elements below are out of reach
    std::size_t deeperOutside_ = 0; // deeper_ as it is below the fence
    std::size_t deeper_ = 0;        // elements that are open, but not remembered
    // How deep the outermost of these is that has a style of its own, which nobody looks at: what
    // is in it may be seen. 0: there is none.
    std::size_t inDoubtFrom_ = 0;
    std::size_t inDoubtOutside_ = 0;
    bool inQuirks_ = true;
    // Looks that may still be computed anew; a document that needs more is made to cost time.
    std::size_t recomputations_ = 65536;
    Look outermost_;
};

} // namespace Corvane::Html

#endif
