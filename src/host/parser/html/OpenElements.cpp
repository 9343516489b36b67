#include "host/parser/html/OpenElements.h"

#include <algorithm>
#include <utility>

namespace Corvane::Html {

namespace {

// Formatting elements with a style that are reopened behind a block.
constexpr std::size_t kMaxReopened = 8;

bool s_isScope(const OpenPlace &one) {
    return (one.traits & Trait::kScope) != 0;
}

bool s_isButtonScope(const OpenPlace &one) {
    return s_isScope(one) || one.element->id == ElementId::Button;
}

bool s_isListScope(const OpenPlace &one) {
    return s_isScope(one) || one.element->id == ElementId::List;
}

bool s_isTableScope(const OpenPlace &one) {
    return one.element->id == ElementId::Table || one.element->id == ElementId::Template;
}

bool s_isTableContent(const Element &element) {
    return element.is(Trait::kTablePart | Trait::kCell);
}

} // namespace

OpenElements::OpenElements() {
    elements_.reserve(kMaxOpenElements);
}

// The place of the innermost element that is wanted, unless a barrier comes before it.
template <class Wanted, class Barrier>
std::size_t OpenElements::find(Wanted wanted, Barrier barrier) const {
    for (std::size_t place = elements_.size(); place-- > floor_;) {
        if (wanted(elements_[place])) {
            return place;
        }
        if (barrier(elements_[place])) {
            return kNone;
        }
    }
    return kNone;
}

bool OpenElements::has(ElementId id) const {
    return std::any_of(elements_.begin(), elements_.end(),
                       [id](const OpenPlace &one) { return one.element->id == id; });
}

void OpenElements::fence() {
    ++changes_;
    floor_ = elements_.size();
    deeperOutside_ = std::exchange(deeper_, 0);
    inDoubtOutside_ = std::exchange(inDoubtFrom_, 0);
}

void OpenElements::unfence() {
    resize(floor_);
    ++changes_;
    floor_ = 0;
    deeper_ = deeperOutside_;
    inDoubtFrom_ = inDoubtOutside_;
}

void OpenElements::leaveForeign() {
    while (elements_.size() > floor_ && isForeign()) {
        resize(elements_.size() - 1);
    }
}

// What stands in a table, but in no cell, is shown before the table.
const Look &OpenElements::lookBelow(std::size_t place, bool beforeTable) const {
    while (beforeTable && place > 0 && elements_[place - 1].tableRun > 0) {
        place -= elements_[place - 1].tableRun;
    }
    return place == 0 ? outermost_ : elements_[place - 1].open->look;
}

const Look &OpenElements::textLook() const {
    if (inDoubtFrom_ != 0) {
        return outermost_;
    }
    return lookBelow(elements_.size(), true);
}

const Look &OpenElements::parentLook(const Element &element) const {
    if (inDoubtFrom_ != 0) {
        return outermost_;
    }
    return lookBelow(elements_.size(), !s_isTableContent(element));
}

void OpenElements::open(const OpenElement &element) {
    if (elements_.size() == kMaxOpenElements) {
        ++deeper_;
        if (inDoubtFrom_ == 0 && !element.declared.isEmpty()) {
            inDoubtFrom_ = deeper_;
        }
        return;
    }
    push(element);
    elements_.back().open->look = element.look;
    place(elements_.size() - 1);
}

OpenElement *OpenElements::unused() {
    if (unused_.empty()) {
        made_.push_back(std::make_unique<OpenElement>());
        return made_.back().get();
    }
    OpenElement *const one = unused_.back();
    unused_.pop_back();
    return one;
}

// Most elements declare nothing, and what they would declare takes up most of them.
void OpenElements::push(const OpenElement &element) {
    OpenElement *const copy = unused();
    copy->element = element.element;
    copy->facts = element.facts;
    copy->isLink = element.isLink;
    if (!element.declared.isEmpty() || !copy->declared.isEmpty()) {
        copy->declared = element.declared;
    }
    elements_.push_back({element.element, copy, element.facts.name, element.element->traits, 0});
    ++changes_;
    ++counts_[element.facts.name % kCounts];
    headings_ += element.element->is(Trait::kHeading) ? 1U : 0U;
}

void OpenElements::forget(const OpenPlace &one) {
    unused_.push_back(one.open);
    ++changes_;
    --counts_[one.name % kCounts];
    headings_ -= one.element->is(Trait::kHeading) ? 1U : 0U;
}

void OpenElements::resize(std::size_t count) {
    for (; elements_.size() > count; elements_.pop_back()) {
        forget(elements_.back());
    }
}

void OpenElements::recomputeFrom(std::size_t first) {
    for (; first < elements_.size(); ++first) {
        const Element &element = *elements_[first].element;
        OpenElement &one = *elements_[first].open;
        const Look &parent = lookBelow(first, !s_isTableContent(element));
        one.look = lookOf(element, one.isLink, one.declared, parent, inQuirks_);
        place(first);
    }
}

// Notes what the element there stands in.
void OpenElements::place(std::size_t where) {
    const OpenPlace outside{nullptr, nullptr, 0, 0, 0};
    const OpenPlace &around = where == 0 ? outside : elements_[where - 1];
    const Element &element = *elements_[where].element;
    elements_[where].tableRun = element.is(Trait::kTablePart) ? around.tableRun + 1 : 0;
    OpenElement &one = *elements_[where].open;
    const bool inParagraph = around.open != nullptr && around.open->inParagraph;
    const bool inTable = around.open != nullptr && around.open->inTable;
    one.inParagraph =
        element.id == ElementId::P || (inParagraph && !s_isButtonScope(elements_[where]));
    one.inTable = s_isTableScope(elements_[where]) || inTable;
}

// Closes the element at the place and all inside it. Formatting that was left open goes on; only
// what has a style of its own matters.
void OpenElements::closeFrom(std::size_t place, Reopen reopen) {
    const auto goesOn = [](const OpenPlace &one) {
        return one.element->is(Trait::kFormatting) && !one.open->declared.isEmpty();
    };
    std::vector<std::size_t> reopened; // the innermost, which outdo the others
    for (std::size_t inner = elements_.size();
         reopen == Reopen::Formatting && --inner > place && reopened.size() < kMaxReopened;) {
        if (goesOn(elements_[inner])) {
            reopened.push_back(inner);
        }
    }
    // To the front of what is closed, in the order in which they were opened.
    std::size_t end = place;
    const auto at = [this](std::size_t index) {
        return elements_.begin() + static_cast<std::ptrdiff_t>(index);
    };
    for (auto one = reopened.rbegin(); one != reopened.rend(); ++one, ++end) {
        std::rotate(at(end), at(*one), at(*one + 1));
    }
    resize(end);
    recomputeFrom(place);
}

void OpenElements::closeP() {
    if (elements_.empty() || !elements_.back().open->inParagraph) {
        return;
    }
    const std::size_t place =
        find([](const OpenPlace &one) { return one.element->id == ElementId::P; }, s_isButtonScope);
    if (place != kNone) {
        closeFrom(place, Reopen::Formatting);
    }
}

// An item ends where the next of its list begins.
void OpenElements::closeItem(const Element &element) {
    const bool isListItem = element.id == ElementId::Li;
    const bool mayHaveItem =
        isListItem ? mayHave(nameHash("li")) : mayHave(nameHash("dd")) || mayHave(nameHash("dt"));
    if (!mayHaveItem) {
        return;
    }
    const std::size_t place = find(
        [isListItem](const OpenPlace &one) {
            const ElementId id = one.element->id;
            return isListItem ? id == ElementId::Li : id == ElementId::Dd || id == ElementId::Dt;
        },
        [](const OpenPlace &one) {
            return (one.traits & Trait::kSpecial) != 0 && one.element->id != ElementId::P &&
                   one.element->name != "div" && one.element->name != "address";
        });
    if (place != kNone) {
        closeFrom(place, Reopen::Formatting);
    }
}

// A part of a table ends all inside of the part that can hold it.
void OpenElements::closeToTable(const Element &element) {
    const bool isCell = element.is(Trait::kCell);
    const bool isRow = element.id == ElementId::Tr;
    const std::size_t place = find(
        [isCell, isRow](const OpenPlace &one) {
            const Element &holder = *one.element;
            return holder.id == ElementId::Table || holder.id == ElementId::Template ||
                   (isCell && holder.id == ElementId::Tr) ||
                   ((isRow || isCell) && holder.is(Trait::kRowGroup));
        },
        [](const OpenPlace &) { return false; });
    if (place != kNone) {
        closeFrom(place + 1, Reopen::Nothing);
    }
}

void OpenElements::beforeStart(const Element &element) {
    if (element.is(Trait::kClosesP)) {
        closeP();
    }
    const Element *top = elements_.size() == floor_ ? nullptr : elements_.back().element;
    if (element.is(Trait::kHeading) && top != nullptr && top->is(Trait::kHeading)) {
        closeFrom(elements_.size() - 1, Reopen::Formatting);
    } else if (element.id == ElementId::Li || element.id == ElementId::Dd ||
               element.id == ElementId::Dt) {
        closeItem(element);
        closeP();
    } else if (element.id == ElementId::Option && top != nullptr && top->id == ElementId::Option) {
        closeFrom(elements_.size() - 1, Reopen::Formatting);
    } else if (element.id == ElementId::A) {
        closeFormatting(nameHash(element.name));
    } else if (element.id == ElementId::Button) {
        closeBlock(element);
    } else if (isInTable() && s_isTableContent(element) && element.id != ElementId::Table) {
        closeToTable(element);
    }
}

// The end tag of a block, a cell or a part of a table.
bool OpenElements::closeBlock(const Element &element) {
    const bool ofTable = s_isTableContent(element);
    const bool isOutside = element.id == ElementId::P
                               ? elements_.empty() || !elements_.back().open->inParagraph
                               : ofTable && !isInTable();
    if (isOutside) {
        return false;
    }
    const bool isHeading = element.is(Trait::kHeading);
    const std::uint32_t name = nameHash(element.name);
    if (isHeading ? headings_ == 0 : !mayHave(name)) {
        return false;
    }
    const auto wanted = [&](const OpenPlace &one) {
        return one.name == name || (isHeading && one.element->is(Trait::kHeading));
    };
    std::size_t place = kNone;
    if (ofTable) {
        place = find(wanted, s_isTableScope);
    } else if (element.id == ElementId::Li) {
        place = find(wanted, s_isListScope);
    } else {
        place = find(wanted, element.id == ElementId::P ? s_isButtonScope : s_isScope);
    }
    if (place == kNone) {
        return false;
    }
    closeFrom(place, ofTable || element.is(Trait::kScope) ? Reopen::Nothing : Reopen::Formatting);
    return true;
}

// Formatting ends where its end tag says, though blocks inside it may go on.
bool OpenElements::closeFormatting(std::uint32_t name) {
    if (!mayHave(name)) {
        return false;
    }
    const std::size_t place =
        find([name](const OpenPlace &one) { return one.name == name; }, s_isScope);
    if (place == kNone) {
        return false;
    }
    const auto inner = elements_.begin() + static_cast<std::ptrdiff_t>(place) + 1;
    const bool holdsBlock = std::any_of(inner, elements_.end(), [](const OpenPlace &one) {
        return one.element->is(Trait::kSpecial);
    });
    if (!holdsBlock) {
        closeFrom(place, Reopen::Formatting);
        return true;
    }
    const OpenElement &closed = *elements_[place].open;
    const bool matters = !closed.declared.isEmpty() || closed.isLink;
    const std::size_t count = elements_.size() - place;
    forget(elements_[place]);
    elements_.erase(inner - 1);
    if (matters && recomputations_ >= count) {
        recomputations_ -= count;
        recomputeFrom(place);
    }
    return true;
}

bool OpenElements::closeInline(std::uint32_t name) {
    if (!mayHave(name)) {
        return false;
    }
    const std::size_t place =
        find([name](const OpenPlace &one) { return one.name == name; },
             [](const OpenPlace &one) { return (one.traits & Trait::kSpecial) != 0; });
    if (place == kNone) {
        return false;
    }
    closeFrom(place, Reopen::Formatting);
    return true;
}

bool OpenElements::closeNamed(const Element &element, std::uint32_t name) {
    if (element.is(Trait::kFormatting)) {
        return closeFormatting(name);
    }
    return element.is(Trait::kSpecial) ? closeBlock(element) : closeInline(name);
}

bool OpenElements::close(const Element &element, std::uint32_t name) {
    if (deeper_ > 0) {
        --deeper_;
        inDoubtFrom_ = deeper_ < inDoubtFrom_ ? 0 : inDoubtFrom_;
        return true;
    }
    if (element.is(Trait::kFrame)) {
        return false;
    }
    Missed &missed = missed_[name % kMissed];
    if (missed.name == name && missed.changes == changes_) {
        return false;
    }
    const bool isClosed = closeNamed(element, name);
    if (!isClosed) {
        missed = {name, changes_};
    }
    return isClosed;
}

} // namespace Corvane::Html
