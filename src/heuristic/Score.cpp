#include "heuristic/Score.h"

#include <array>

#include "heuristic/NumberStream.h"

namespace Corvane::Heuristic {

Score::Score() : value_(0.0F) {}

Score::~Score() = default;

RefScore::RefScore() = default;

RefScore::RefScore(const std::string &text) : Ref<Score>(new Score) {
    parse(text);
}

void RefScore::parse(const std::string &text) {
    constexpr std::size_t kMostNumbers = 4;
    NumberStream stream(text);
    std::array<float, kMostNumbers> numbers{};
    std::size_t count = 0;
    while (count < numbers.size() && stream >> numbers[count]) {
        ++count;
    }
    // A failed extraction may leave a number behind, so only what was counted is used.
    const float first = count > 0 ? numbers[0] : 0.0F;
    (*this)->value_ = count > 1 ? numbers[1] : first;
}

} // namespace Corvane::Heuristic
