#include "host/parser/html/NamedReferences.h"

#include <algorithm>
#include <vector>

namespace Corvane::Html {

namespace {

constexpr char kNameEnd = '\1';
constexpr char kTextEnd = '\2';

std::vector<NamedReference> s_parse(std::string_view table) {
    std::vector<NamedReference> references;
    references.reserve(static_cast<std::size_t>(std::count(table.begin(), table.end(), kTextEnd)));
    while (!table.empty()) {
        const std::size_t name = table.find(kNameEnd);
        const std::size_t end = table.find(kTextEnd, name);
        references.push_back({table.substr(0, name), table.substr(name + 1, end - name - 1)});
        table.remove_prefix(end + 1);
    }
    return references;
}

const std::vector<NamedReference> &s_references() {
    static const std::vector<NamedReference> s_all = s_parse(kNamedReferenceTable);
    return s_all;
}

} // namespace

ReferenceSearch::ReferenceSearch()
    : first_(s_references().data()), last_(first_ + s_references().size()) {}

bool ReferenceSearch::take(char character) {
    const std::size_t place = length_;
    // A name that is over comes before all that go on.
    const auto at = [place](const NamedReference &reference) {
        return reference.name.size() > place ? reference.name[place] : '\0';
    };
    const auto *first = std::partition_point(
        first_, last_, [&](const NamedReference &one) { return at(one) < character; });
    const auto *last = std::partition_point(
        first, last_, [&](const NamedReference &one) { return at(one) == character; });
    if (first == last || character == '\0') {
        return false;
    }
    first_ = first;
    last_ = last;
    ++length_;
    if (first_->name.size() == length_) {
        longest_ = *first_;
    }
    return true;
}

} // namespace Corvane::Html
