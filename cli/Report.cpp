#include "Report.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace Corvane::Cli {

bool MessageResult::isUndecided() const {
    constexpr std::string_view kBudget = "budget";
    const auto &limits = verdict.limits();
    return failure.empty() && !verdict.over() &&
           std::find(limits.begin(), limits.end(), kBudget) != limits.end();
}

std::string shortest(float value) {
    constexpr std::size_t kMostBytes = 64;
    std::array<char, kMostBytes> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

float shownTotal(const corvane::Verdict &verdict, float threshold) {
    double exact = 0.0;
    for (const corvane::Hit &hit : verdict.hits()) {
        const std::string text = shortest(hit.score);
        double score = 0.0;
        std::from_chars(text.data(), text.data() + text.size(), score);
        exact += score;
    }
    const auto total = static_cast<float>(exact);
    return (total > threshold) == verdict.over() ? total : verdict.score();
}

} // namespace Corvane::Cli
