#include "host/parser/html/OpenElements.h"

#include <algorithm>
#include <utility>

namespace Corvane::Html {

namespace {

// Formatting elements with a style that are reopened behind a block.
constexpr std::size_t kMaxReopened = 8;

bool s_isScope(const Element &element) {
    return element.is(Trait::kScope);
}

bool s_isButtonScope(const Element &element) {
    return element.is(Trait::kScope) || element.id == ElementId::Button;
}

bool s_isListScope(const Element &element) {
    return element.is(Trait::kScope) || element.id == ElementId::List;
}

bool s_isTableScope(const Element &element) {
    return element.id == ElementId::Table || element.id == ElementId::Template;
}

bool s_isTableContent(const Element &element) {
    return element.is(Trait::kTablePart | Trait::kCell);
}

} // namespace

// The place of the innermost element that is wanted, unless a barrier comes before it.
template <class Wanted, class Barrier>
std::size_t OpenElements::find(Wanted wanted, Barrier barrier) const {
    for (std::size_t place = elements_.size(); place-- > floor_;) {
        if (wanted(elements_[place])) {
            return place;
        }
        if (barrier(*elements_[place].element)) {
            return kNone;
        }
    }
    return kNone;
}

bool OpenElements::has(ElementId id) const {
    return std::any_of(elements_.begin(), elements_.end(),
                       [id](const OpenElement &one) { return one.element->id == id; });
}

void OpenElements::fence() {
    floor_ = elements_.size();
    deeperOutside_ = std::exchange(deeper_, 0);
}

void OpenElements::unfence() {
    elements_.resize(floor_);
    floor_ = 0;
    deeper_ = deeperOutside_;
}

void OpenElements::leaveForeign() {
    while (elements_.size() > floor_ && isForeign()) {
        elements_.pop_back();
    }
}

// What stands in a table, but in no cell, is shown before the table.
const Look &OpenElements::lookBelow(std::size_t place, bool beforeTable) const {
    while (beforeTable && place > 0 && elements_[place - 1].element->is(Trait::kTablePart)) {
        --place;
    }
    return place == 0 ? outermost_ : elements_[place - 1].look;
}

const Look &OpenElements::textLook() const {
    return lookBelow(elements_.size(), true);
}

const Look &OpenElements::parentLook(const Element &element) const {
    return lookBelow(elements_.size(), !s_isTableContent(element));
}

void OpenElements::open(const OpenElement &element) {
    if (elements_.size() == kMaxOpenElements) {
        ++deeper_;
        return;
    }
    elements_.push_back(element);
    recomputeFrom(elements_.size() - 1);
}

void OpenElements::recomputeFrom(std::size_t place) {
    for (; place < elements_.size(); ++place) {
        OpenElement &one = elements_[place];
        const Look &parent = lookBelow(place, !s_isTableContent(*one.element));
        one.look = lookOf(*one.element, one.isLink, one.declared, parent, inQuirks_);
        const OpenElement *around = place == 0 ? nullptr : &elements_[place - 1];
        one.inParagraph =
            one.element->id == ElementId::P ||
            (around != nullptr && around->inParagraph && !s_isButtonScope(*one.element));
        one.inTable = s_isTableScope(*one.element) || (around != nullptr && around->inTable);
    }
}

// Closes the element at the place and all inside it. Formatting that was left open goes on; only
// what has a style of its own matters.
void OpenElements::closeFrom(std::size_t place, Reopen reopen) {
    std::vector<OpenElement> reopened;
    if (reopen == Reopen::Formatting) {
        for (std::size_t inner = place + 1; inner < elements_.size(); ++inner) {
            const OpenElement &one = elements_[inner];
            const bool matters = one.element->is(Trait::kFormatting) && !one.declared.isEmpty();
            if (matters && reopened.size() < kMaxReopened) {
                reopened.push_back(one);
            }
        }
    }
    elements_.resize(place);
    elements_.insert(elements_.end(), reopened.begin(), reopened.end());
    recomputeFrom(place);
}

void OpenElements::closeP() {
    if (elements_.empty() || !elements_.back().inParagraph) {
        return;
    }
    const std::size_t place = find(
        [](const OpenElement &one) { return one.element->id == ElementId::P; }, s_isButtonScope);
    if (place != kNone) {
        closeFrom(place, Reopen::Formatting);
    }
}

// An item ends where the next of its list begins.
void OpenElements::closeItem(const Element &element) {
    const bool isListItem = element.id == ElementId::Li;
    const std::size_t place = find(
        [isListItem](const OpenElement &one) {
            const ElementId id = one.element->id;
            return isListItem ? id == ElementId::Li : id == ElementId::Dd || id == ElementId::Dt;
        },
        [](const Element &one) {
            return one.is(Trait::kSpecial) && one.id != ElementId::P && one.name != "div" &&
                   one.name != "address";
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
        [isCell, isRow](const OpenElement &one) {
            const Element &holder = *one.element;
            return holder.id == ElementId::Table || holder.id == ElementId::Template ||
                   (isCell && holder.id == ElementId::Tr) ||
                   ((isRow || isCell) && holder.is(Trait::kRowGroup));
        },
        [](const Element &) { return false; });
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
                               ? elements_.empty() || !elements_.back().inParagraph
                               : ofTable && !isInTable();
    if (isOutside) {
        return false;
    }
    const bool isHeading = element.is(Trait::kHeading);
    const std::uint32_t name = nameHash(element.name);
    const auto wanted = [&](const OpenElement &one) {
        return one.facts.name == name || (isHeading && one.element->is(Trait::kHeading));
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
    closeFrom(place, ofTable || s_isScope(element) ? Reopen::Nothing : Reopen::Formatting);
    return true;
}

// Formatting ends where its end tag says, though blocks inside it may go on.
bool OpenElements::closeFormatting(std::uint32_t name) {
    const std::size_t place =
        find([name](const OpenElement &one) { return one.facts.name == name; }, s_isScope);
    if (place == kNone) {
        return false;
    }
    const auto inner = elements_.begin() + static_cast<std::ptrdiff_t>(place) + 1;
    const bool holdsBlock = std::any_of(inner, elements_.end(), [](const OpenElement &one) {
        return one.element->is(Trait::kSpecial);
    });
    if (!holdsBlock) {
        closeFrom(place, Reopen::Formatting);
        return true;
    }
    const bool matters = !elements_[place].declared.isEmpty() || elements_[place].isLink;
    const std::size_t count = elements_.size() - place;
    elements_.erase(inner - 1);
    if (matters && recomputations_ >= count) {
        recomputations_ -= count;
        recomputeFrom(place);
    }
    return true;
}

bool OpenElements::closeInline(std::uint32_t name) {
    const std::size_t place =
        find([name](const OpenElement &one) { return one.facts.name == name; },
             [](const Element &one) { return one.is(Trait::kSpecial); });
    if (place == kNone) {
        return false;
    }
    closeFrom(place, Reopen::Formatting);
    return true;
}

bool OpenElements::close(const Element &element, std::uint32_t name) {
    if (deeper_ > 0) {
        --deeper_;
        return true;
    }
    if (element.is(Trait::kFrame)) {
        return false;
    }
    if (element.is(Trait::kFormatting)) {
        return closeFormatting(name);
    }
    return element.is(Trait::kSpecial) ? closeBlock(element) : closeInline(name);
}

} // namespace Corvane::Html
