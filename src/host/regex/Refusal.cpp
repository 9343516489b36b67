#include "host/regex/Refusal.h"

#include <charconv>
#include <string_view>

namespace Corvane::Regex {

std::optional<Refusal> refusalOf(const Exception &failure) {
    constexpr std::string_view kPlace = " at offset ";
    if (failure.message() != "Regex::Expression" || failure.parameters().size() < 2) {
        return {};
    }
    Refusal refusal{failure.parameters()[0], {}, failure.parameters()[1]};
    const std::size_t place = refusal.reason.rfind(kPlace);
    if (place == std::string::npos) {
        return refusal;
    }
    const char *first = refusal.reason.data() + place + kPlace.size();
    const char *end = refusal.reason.data() + refusal.reason.size();
    std::size_t offset = 0;
    if (std::from_chars(first, end, offset).ptr == end) {
        refusal.offset = offset;
        refusal.reason.erase(place);
    }
    return refusal;
}

} // namespace Corvane::Regex
