#include "heuristic/LoadObserver.h"

#include <cctype>

#include "heuristic/PatternFaults.h"
#include "host/regex/Refusal.h"

namespace Corvane::Heuristic {

namespace {

const Exception &s_rootOf(const Exception &failure) {
    const Exception *root = &failure;
    while (root->cause() != nullptr) {
        root = root->cause();
    }
    return *root;
}

// Where the expression begins in a definition: that of a header rule stands behind the header's
// name. The refusal quotes its beginning.
std::size_t s_expressionStart(std::string_view definition, std::string_view quoted,
                              Rule::Type kind) {
    constexpr std::string_view kEllipsis = "...";
    std::size_t from = 0;
    if (kind == Rule::Header) {
        while (from < definition.size() &&
               std::isspace(static_cast<unsigned char>(definition[from])) == 0) {
            ++from;
        }
    }
    const std::size_t found = definition.find(quoted, from);
    const bool isShortened = quoted.size() > kEllipsis.size() &&
                             quoted.substr(quoted.size() - kEllipsis.size()) == kEllipsis;
    return found != std::string_view::npos || !isShortened
               ? found
               : definition.find(quoted.substr(0, quoted.size() - kEllipsis.size()), from);
}

} // namespace

void notePatternFault(LoadedLine &line, Rule::Type kind) {
    const Exception &root = s_rootOf(*line.failure);
    const std::optional<Regex::Refusal> refusal = Regex::refusalOf(root);
    if (!refusal.has_value()) {
        return;
    }
    line.pattern = {refusal->reason, refusal->offset};
    const std::size_t start = s_expressionStart(line.definition.text, refusal->text, kind);
    if (start != std::string_view::npos) {
        const bool hasSlash = line.definition.text[start] == '/';
        line.patternColumn =
            line.definition.column + static_cast<unsigned int>(start) + (hasSlash ? 1U : 0U);
    }
}

unsigned int LoadedLine::faultColumn() const {
    if (pattern.has_value() && pattern->offset.has_value() && patternColumn > 0) {
        return patternColumn + static_cast<unsigned int>(*pattern->offset);
    }
    for (const LinePart *part : {&definition, &name, &keyword}) {
        if (part->column > 0) {
            return part->column;
        }
    }
    return 1;
}

LoadObserver::~LoadObserver() = default;

void LoadObserver::fileBegins(const std::string & /*path*/, bool /*isEncrypted*/) {}
void LoadObserver::fileUnreadable(const std::string & /*path*/, int /*error*/) {}
void LoadObserver::content(std::string_view /*bytes*/) {}
void LoadObserver::line(const LoadedLine & /*line*/) {}
void LoadObserver::loaded(unsigned int /*rules*/, int /*active*/, const std::string & /*version*/) {
}

} // namespace Corvane::Heuristic
