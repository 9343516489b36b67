#include "host/parser/html/Selector.h"

#include <algorithm>
#include <optional>
#include <string>

#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

constexpr std::uint32_t kIdWeight = 1U << 16U;
constexpr std::uint32_t kClassWeight = 1U << 8U;
constexpr std::size_t kMaxParts = 16;

// What one selector of a list came to.
enum class Outcome { Usable, Never, Invalid };

class SelectorReader {
public:
    explicit SelectorReader(std::string_view text) : rest_(cssTrimmed(text)) {}

    Outcome read(Selector &selector);

private:
    bool compound(Selector &selector);
    bool simple(Selector &selector, Compound &compound);
    bool pseudo(Selector &selector);
    bool skipBrackets(char open, char close);
    bool combinator(Selector &selector);

    std::string_view rest_;
    bool neverMatches_ = false;
};

// Passes over brackets with all that is in them.
bool SelectorReader::skipBrackets(char open, char close) {
    unsigned int depth = 0;
    char quote = '\0';
    for (std::size_t at = 0; at < rest_.size(); ++at) {
        const char c = rest_[at];
        if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == open) {
            ++depth;
        } else if (c == close && --depth == 0) {
            rest_.remove_prefix(at + 1);
            return true;
        }
    }
    return false;
}

// A state that no one has brought about yet never matches, what is generated is no text of the
// mail; whether others match is not known.
bool SelectorReader::pseudo(Selector &selector) {
    const bool isElement = rest_.size() > 1 && rest_[1] == ':';
    rest_.remove_prefix(isElement ? 2 : 1);
    const std::string name = cssLower(takeCssName(rest_));
    if (name.empty() || name.front() == '-') {
        // Browsers know only their own of these, and drop the rule for those of others.
        return isElement && name.compare(0, 8, "-webkit-") == 0 ? (neverMatches_ = true) : false;
    }
    constexpr std::string_view kNever[] = {"hover",  "active",        "focus",        "visited",
                                           "target", "focus-visible", "focus-within", "before",
                                           "after",  "first-line",    "first-letter"};
    neverMatches_ = neverMatches_ || isElement ||
                    std::find(std::begin(kNever), std::end(kNever), name) != std::end(kNever);
    selector.isDoubtful = selector.isDoubtful || name != "root";
    selector.specificity += kClassWeight;
    return rest_.empty() || rest_.front() != '(' || skipBrackets('(', ')');
}

bool SelectorReader::simple(Selector &selector, Compound &compound) {
    const char kind = rest_.front();
    if (kind == '[') {
        selector.isDoubtful = true;
        selector.specificity += kClassWeight;
        return skipBrackets('[', ']');
    }
    if (kind == ':') {
        return pseudo(selector);
    }
    rest_.remove_prefix(1);
    const std::string name = takeCssName(rest_);
    if (name.empty()) {
        return false;
    }
    if (kind == '#') {
        const std::uint32_t id = nameHash(name);
        neverMatches_ = neverMatches_ || (compound.id != 0 && compound.id != id);
        compound.id = id;
        selector.specificity += kIdWeight;
    } else {
        compound.classes.push_back(nameHash(name));
        selector.specificity += kClassWeight;
    }
    return true;
}

bool SelectorReader::compound(Selector &selector) {
    constexpr std::string_view kSimple = "#.[:";
    Compound compound;
    const std::size_t before = rest_.size();
    if (!rest_.empty() && rest_.front() == '*') {
        rest_.remove_prefix(1);
    } else if (const std::string name = takeCssName(rest_); !name.empty()) {
        compound.name = nameHash(cssLower(name));
        ++selector.specificity;
    }
    while (!rest_.empty() && kSimple.find(rest_.front()) != std::string_view::npos) {
        if (!simple(selector, compound)) {
            return false;
        }
    }
    selector.parts.push_back(std::move(compound));
    return rest_.size() < before;
}

// Takes what stands between two elements. What stands beside an element is not remembered.
bool SelectorReader::combinator(Selector &selector) {
    rest_ = cssTrimmed(rest_);
    switch (rest_.front()) {
    case '>':
        selector.parts.back().isParentOfNext = true;
        break;
    case '+':
    case '~':
        selector.parts.pop_back();
        selector.isDoubtful = true;
        break;
    default:
        return true;
    }
    rest_ = cssTrimmed(rest_.substr(1));
    return !rest_.empty();
}

Outcome SelectorReader::read(Selector &selector) {
    while (compound(selector)) {
        if (rest_.empty()) {
            return neverMatches_ ? Outcome::Never : Outcome::Usable;
        }
        const bool separated = isBlank(rest_.front()) || rest_.front() == '>' ||
                               rest_.front() == '+' || rest_.front() == '~';
        if (!separated || !combinator(selector)) {
            return Outcome::Invalid;
        }
        if (selector.parts.size() == kMaxParts) {
            // It may match less than without the outermost.
            selector.parts.erase(selector.parts.begin());
            selector.isDoubtful = true;
        }
    }
    return Outcome::Invalid;
}

// The next selector of a list, and what follows its comma.
std::string_view s_takeSelector(std::string_view &list) {
    std::size_t end = 0;
    unsigned int depth = 0;
    for (; end < list.size() && (list[end] != ',' || depth > 0); ++end) {
        if (list[end] == '(' || list[end] == '[') {
            ++depth;
        } else if (list[end] == ')' || list[end] == ']') {
            depth -= std::min(depth, 1U);
        }
    }
    const std::string_view selector = list.substr(0, end);
    list.remove_prefix(end);
    return selector;
}

bool s_isCompound(const Compound &compound, const ElementFacts &facts) {
    return (compound.name == 0 || compound.name == facts.name) &&
           (compound.id == 0 || compound.id == facts.id) &&
           std::all_of(compound.classes.begin(), compound.classes.end(),
                       [&facts](std::uint32_t hash) { return facts.hasClass(hash); });
}

// Units of work that comparing them takes at most.
std::size_t s_workOf(const Compound &compound, const ElementFacts &facts) {
    constexpr std::size_t kClassesPerUnit = 16;
    return 1 + compound.classes.size() * facts.classes.size() / kClassesPerUnit;
}

// Whether the first count parts match elements of around, the last of them the last of those where
// it has to be the parent.
bool s_matchAround(const Selector &selector, std::size_t count, std::span<const OpenPlace> around,
                   std::size_t &work) {
    if (count == 0) {
        return true;
    }
    const Compound &compound = selector.parts[count - 1];
    while (!around.empty() && work > 0) {
        const ElementFacts &facts = around.back().open->facts;
        work -= std::min(work, s_workOf(compound, facts));
        around = around.first(around.size() - 1);
        if (s_isCompound(compound, facts) && s_matchAround(selector, count - 1, around, work)) {
            return true;
        }
        if (compound.isParentOfNext) {
            return false;
        }
    }
    return false;
}

} // namespace

std::vector<Selector> selectorsOf(std::string_view list) {
    std::vector<Selector> selectors;
    for (bool isMore = true; isMore;) {
        Selector selector;
        const Outcome outcome = SelectorReader(s_takeSelector(list)).read(selector);
        if (outcome == Outcome::Invalid) {
            return {};
        }
        if (outcome == Outcome::Usable) {
            selectors.push_back(std::move(selector));
        }
        isMore = !list.empty();
        list.remove_prefix(isMore ? 1 : 0);
    }
    return selectors;
}

bool matches(const Selector &selector, const ElementFacts &facts, std::span<const OpenPlace> around,
             std::size_t &work) {
    if (work == 0) {
        return false;
    }
    work -= std::min(work, s_workOf(selector.parts.back(), facts));
    return s_isCompound(selector.parts.back(), facts) &&
           s_matchAround(selector, selector.parts.size() - 1, around, work);
}

} // namespace Corvane::Html
