#include "report/Numbers.h"

#include <array>
#include <charconv>

namespace Corvane::Reporting {

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

} // namespace Corvane::Reporting
