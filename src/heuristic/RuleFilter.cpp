#include "heuristic/RuleFilter.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace Corvane::Heuristic {

namespace {

// Tables over byte values.
constexpr auto s_lower = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte) {
        table[byte] = static_cast<unsigned char>(byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
    }
    return table;
}();
constexpr auto s_isLetterOrDigit = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte) {
        const unsigned int lower = s_lower[byte];
        table[byte] = (lower >= 'a' && lower <= 'z') || (byte >= '0' && byte <= '9') ? 1 : 0;
    }
    return table;
}();

constexpr unsigned int kWordBits = 64;

bool s_meet(const BytesPresent &a, const BytesPresent &b) {
    return ((a[0] & b[0]) | (a[1] & b[1]) | (a[2] & b[2]) | (a[3] & b[3])) != 0;
}

BytesPresent s_words(const std::bitset<256> &set) {
    BytesPresent words{};
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        words[byte / kWordBits] |= std::uint64_t{set[byte]} << byte % kWordBits;
    }
    return words;
}

} // namespace

const BytesPresent &TextFacts::present() {
    if (!isCounted_) {
        isCounted_ = true;
        for (std::uint32_t i = 0; i < length_; ++i) {
            present_[data_[i] / kWordBits] |= std::uint64_t{1} << data_[i] % kWordBits;
        }
    }
    return present_;
}

const unsigned char *TextFacts::lowered() {
    if (!isLowered_) {
        isLowered_ = true;
        memory_.lowered.resize(std::max<std::size_t>(memory_.lowered.size(), length_));
        std::transform(data_, data_ + length_, memory_.lowered.begin(),
                       [](unsigned char byte) { return s_lower[byte]; });
    }
    return memory_.lowered.data();
}

// Collects (literal, expression) pairs and makes a matcher of them.
class RuleFilter::KeyCollector {
public:
    void add(const std::vector<Regex::Literal> &literals, std::uint32_t expression) {
        for (const Regex::Literal &literal : literals) {
            literals_.push_back(literal);
            expressions_.push_back(expression);
        }
    }

    Keys build() const {
        Keys keys;
        keys.matcher = Regex::LiteralMatcher(literals_);
        const std::vector<std::uint32_t> &numbers = keys.matcher.numbers();
        keys.first.assign(keys.matcher.size() + 1, 0);
        for (const std::uint32_t number : numbers) {
            ++keys.first[number + 1];
        }
        for (std::size_t i = 1; i < keys.first.size(); ++i) {
            keys.first[i] += keys.first[i - 1];
        }
        keys.expressions.resize(expressions_.size());
        std::vector<std::uint32_t> next = keys.first;
        for (std::size_t i = 0; i < expressions_.size(); ++i) {
            keys.expressions[next[numbers[i]]++] = expressions_[i];
        }
        return keys;
    }

private:
    std::vector<Regex::Literal> literals_;
    std::vector<std::uint32_t> expressions_;
};

RuleFilter::RuleFilter(const std::vector<Source> &sources, Regex::TextKind kind) {
    KeyCollector plain;
    KeyCollector squeezed;
    claims_.reserve(sources.size());
    for (std::uint32_t i = 0; i < sources.size(); ++i) {
        Claims claims;
        claims.form = sources[i].form;
        if (!sources[i].text.empty()) {
            const Regex::RequiredLiterals required =
                Regex::requiredLiterals(sources[i].text, sources[i].options, kind);
            const bool plainKey = required.squeezed.empty() && !required.alternatives.empty();
            if (plainKey) {
                plain.add(required.alternatives, i);
            } else if (!required.squeezed.empty()) {
                squeezed.add(required.squeezed, i);
            } else {
                unfiltered_.push_back(i);
            }
            claim(claims, required, plainKey);
        }
        claims_.push_back(claims);
    }
    plain_ = plain.build();
    squeezed_ = squeezed.build();
    needles_.shrink_to_fit();
    needleBytes_.shrink_to_fit();
    sets_.shrink_to_fit();
}

// Keeps what tells more than the literal that is looked for.
void RuleFilter::claim(Claims &claims, const Regex::RequiredLiterals &required, bool keyIsFirst) {
    claims.minimumLength = static_cast<std::uint32_t>(
        std::min<std::size_t>(required.minimumLength, std::numeric_limits<std::uint32_t>::max()));
    claims.whole = keyIsFirst && required.whole;
    addNeedles(claims, keyIsFirst ? required.second : required.alternatives);
    claims.firstSet = static_cast<std::uint32_t>(sets_.size());
    claims.sets = static_cast<std::uint8_t>(required.byteSets.size());
    for (const std::bitset<256> &set : required.byteSets) {
        sets_.push_back(s_words(set));
    }
}

void RuleFilter::addNeedles(Claims &claims, const std::vector<Regex::Literal> &literals) {
    claims.firstNeedle = static_cast<std::uint32_t>(needles_.size());
    const bool fits = std::all_of(literals.begin(), literals.end(), [](const auto &literal) {
        return literal.bytes.size() <= std::numeric_limits<std::uint16_t>::max();
    });
    if (!fits || literals.size() > std::numeric_limits<std::uint8_t>::max()) {
        return;
    }
    claims.needles = static_cast<std::uint8_t>(literals.size());
    for (const Regex::Literal &literal : literals) {
        needles_.push_back({static_cast<std::uint32_t>(needleBytes_.size()),
                            static_cast<std::uint16_t>(literal.bytes.size()), literal.ignoreCase});
        needleBytes_ += literal.bytes;
    }
}

bool RuleFilter::mayMatch(std::uint32_t expression, TextFacts &text) const {
    const Claims &claims = claims_[expression];
    if (text.length() < claims.minimumLength) {
        return false;
    }
    for (std::uint32_t i = 0; i < claims.sets; ++i) {
        if (!s_meet(sets_[claims.firstSet + i], text.present())) {
            return false;
        }
    }
    for (std::uint32_t i = 0; i < claims.needles; ++i) {
        const Needle &needle = needles_[claims.firstNeedle + i];
        const unsigned char *bytes = needle.ignoreCase ? text.lowered() : text.data();
        if (memmem(bytes, text.length(), needleBytes_.data() + needle.offset, needle.length) !=
            nullptr) {
            return true;
        }
    }
    return claims.needles == 0;
}

// Copies the letters and digits of each text.
void RuleFilter::squeeze(const unsigned char *base, ScanMemory &memory) {
    std::size_t room = 0;
    for (const ScanText &text : memory.texts) {
        room += text.length;
    }
    memory.squeezed.resize(std::max(memory.squeezed.size(), room));
    memory.squeezedTexts.clear();
    unsigned char *out = memory.squeezed.data();
    for (const ScanText &text : memory.texts) {
        const unsigned char *start = out;
        for (std::uint32_t i = 0; i < text.length; ++i) {
            const unsigned char byte = base[text.start + i];
            *out = byte;
            out += s_isLetterOrDigit[byte];
        }
        ScanText range = text;
        range.start = static_cast<std::uint32_t>(start - memory.squeezed.data());
        range.length = static_cast<std::uint32_t>(out - start);
        memory.squeezedTexts.push_back(range);
    }
}

// Answers the first of as many serial numbers as there are texts, none of which is in the table.
std::uint32_t RuleFilter::takeSerials(const Keys &keys, std::size_t texts, ScanMemory &memory) {
    if (memory.lastSeen.size() < keys.matcher.size()) {
        memory.lastSeen.resize(keys.matcher.size(), 0);
    }
    if (texts >= std::numeric_limits<std::uint32_t>::max() - memory.serial) {
        std::fill(memory.lastSeen.begin(), memory.lastSeen.end(), 0U);
        memory.serial = 0;
    }
    const std::uint32_t first = memory.serial + 1;
    memory.serial += static_cast<std::uint32_t>(texts);
    return first;
}

std::size_t RuleFilter::memoryBytes() const {
    const auto bytes = [](const auto &values) {
        return values.capacity() * sizeof(*values.begin());
    };
    const auto keys = [&](const Keys &of) {
        return of.matcher.memoryBytes() + bytes(of.first) + bytes(of.expressions);
    };
    return keys(plain_) + keys(squeezed_) + bytes(unfiltered_) + bytes(claims_) + bytes(needles_) +
           bytes(needleBytes_) + bytes(sets_);
}

} // namespace Corvane::Heuristic
