#include "host/regex/LiteralCosts.h"

#include <algorithm>

#include "host/parser/Text.h"

namespace Corvane::Regex {

namespace {

// As was measured with Vectorscan 5.4: what any matcher costs, and each literal.
constexpr std::uint64_t kMatcherSteps = 400'000;
constexpr std::uint64_t kLiteralSteps = 24'000;
// For so many literals another engine may be made besides, for short texts.
constexpr std::size_t kFewLiterals = 512;
constexpr std::uint64_t kFewLiteralsSteps = 72'000;
// A literal that ends with a run of one byte makes a text of that byte a special case.
constexpr std::size_t kRunBytes = 3;
constexpr std::uint64_t kRunSteps = 60'000;
// Literals with the same last bytes are compared with each other.
constexpr std::size_t kTailBytes = 8;
constexpr std::uint64_t kSameTailSteps = 5;

// The last bytes, without their case.
std::uint64_t s_tail(const std::string &bytes) {
    constexpr unsigned int kBits = 8;
    std::uint64_t tail = 0;
    for (std::size_t i = bytes.size() - std::min(bytes.size(), kTailBytes); i < bytes.size(); ++i) {
        tail = tail << kBits | static_cast<unsigned char>(toLowerAscii(bytes[i]));
    }
    return tail;
}

bool s_endsWithRun(const std::string &bytes) {
    return bytes.size() >= kRunBytes &&
           std::all_of(bytes.end() - kRunBytes, bytes.end(),
                       [&](char c) { return toLowerAscii(c) == toLowerAscii(bytes.back()); });
}

} // namespace

LiteralCosts::LiteralCosts() = default;
LiteralCosts::~LiteralCosts() = default;

std::uint64_t LiteralCosts::of(const std::vector<Literal> &literals) const {
    std::uint64_t steps = count_ == 0 && !literals.empty() ? kMatcherSteps : 0;
    std::size_t number = count_;
    for (const Literal &literal : literals) {
        const auto same = tails_.find(s_tail(literal.bytes));
        steps += kLiteralSteps + (number++ < kFewLiterals ? kFewLiteralsSteps : 0) +
                 (s_endsWithRun(literal.bytes) ? kRunSteps : 0) +
                 (same == tails_.end() ? 0 : same->second * kSameTailSteps);
    }
    return steps;
}

std::uint64_t LiteralCosts::add(const std::vector<Literal> &literals) {
    const std::uint64_t steps = of(literals);
    count_ += literals.size();
    for (const Literal &literal : literals) {
        ++tails_[s_tail(literal.bytes)];
    }
    return steps;
}

} // namespace Corvane::Regex
