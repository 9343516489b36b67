#include "heuristic/RuleFilter.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace Corvane::Heuristic {

namespace {

// Without a table, so that the compiler can lower many bytes at once.
constexpr unsigned char s_lower(unsigned char byte) {
    constexpr unsigned int kLetters = 26;
    const auto letter = static_cast<unsigned char>(byte - 'A');
    return static_cast<unsigned char>(byte + (letter < kLetters ? 'a' - 'A' : 0));
}

constexpr auto s_isLetterOrDigit = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte) {
        const unsigned int lower = s_lower(static_cast<unsigned char>(byte));
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

const unsigned char *LoweredRange::make() {
    done_ = true;
    memory_.lowered.resize(std::max(memory_.lowered.size(), length_));
    std::transform(data_, data_ + length_, memory_.lowered.begin(), s_lower);
    return memory_.lowered.data();
}

// Collects literals with what they stand for and makes a matcher of them.
class RuleFilter::KeyCollector {
public:
    // needles is empty or has one for each literal.
    void add(const std::vector<Regex::Literal> &literals, std::uint32_t expression,
             const std::vector<std::uint32_t> &needles) {
        for (std::size_t i = 0; i < literals.size(); ++i) {
            literals_.push_back(literals[i]);
            keys_.push_back({expression, needles.empty() ? kNone : needles[i]});
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
        keys.keys.resize(keys_.size());
        std::vector<std::uint32_t> next = keys.first;
        for (std::size_t i = 0; i < keys_.size(); ++i) {
            keys.keys[next[numbers[i]]++] = keys_[i];
        }
        return keys;
    }

private:
    std::vector<Regex::Literal> literals_;
    std::vector<Key> keys_;
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
            if (!sources[i].searched) {
                claimWhole(claims, required);
            } else if (plainKey) {
                plain.add(required.alternatives, i, addCompanions(required.companions));
            } else if (!required.squeezed.empty()) {
                squeezed.add(required.squeezed, i, {});
            } else {
                unfiltered_.push_back(i);
            }
            if (sources[i].searched) {
                claim(claims, required, plainKey);
            }
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

// For an expression that is not searched for: only if it is nothing but literals can a text be judged without it.
void RuleFilter::claimWhole(Claims &claims, const Regex::RequiredLiterals &required) {
    claims.whole = required.whole && addNeedles(claims, required.alternatives);
}

bool RuleFilter::addNeedles(Claims &claims, const std::vector<Regex::Literal> &literals) {
    const bool fits = std::all_of(literals.begin(), literals.end(), [](const auto &literal) {
        return literal.bytes.size() <= std::numeric_limits<std::uint16_t>::max();
    });
    if (!fits || literals.size() > std::numeric_limits<std::uint8_t>::max()) {
        return false;
    }
    claims.firstNeedle = static_cast<std::uint32_t>(needles_.size());
    claims.needles = static_cast<std::uint8_t>(literals.size());
    std::for_each(literals.begin(), literals.end(),
                  [this](const Regex::Literal &literal) { addNeedle(literal); });
    return true;
}

std::uint32_t RuleFilter::addNeedle(const Regex::Literal &literal) {
    needles_.push_back({static_cast<std::uint32_t>(needleBytes_.size()),
                        static_cast<std::uint16_t>(literal.bytes.size()), literal.ignoreCase});
    needleBytes_ += literal.bytes;
    return static_cast<std::uint32_t>(needles_.size() - 1);
}

std::vector<std::uint32_t> RuleFilter::addCompanions(const std::vector<Regex::Literal> &literals) {
    std::vector<std::uint32_t> needles;
    for (const Regex::Literal &literal : literals) {
        const bool asks = !literal.bytes.empty() &&
                          literal.bytes.size() <= std::numeric_limits<std::uint16_t>::max();
        needles.push_back(asks ? addNeedle(literal) : kNone);
    }
    return needles;
}

bool RuleFilter::holds(const unsigned char *text, const unsigned char *lowered, std::size_t length,
                       std::uint32_t needle) const {
    const Needle &sought = needles_[needle];
    // Also keeps empty texts, which may have no bytes to point to, from memmem.
    return length >= sought.length &&
           memmem(sought.ignoreCase ? lowered : text, length, needleBytes_.data() + sought.offset,
                  sought.length) != nullptr;
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
        if (holds(text.data(), text.lowered(), text.length(), claims.firstNeedle + i)) {
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
        return of.matcher.memoryBytes() + bytes(of.first) + bytes(of.keys);
    };
    return keys(plain_) + keys(squeezed_) + bytes(unfiltered_) + bytes(claims_) + bytes(needles_) +
           bytes(needleBytes_) + bytes(sets_);
}

} // namespace Corvane::Heuristic
