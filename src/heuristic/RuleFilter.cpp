#include "heuristic/RuleFilter.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <numeric>
#include <utility>

#include "heuristic/LettersAndDigits.h"
#include "host/regex/LiteralCosts.h"

namespace Corvane::Heuristic {

namespace {

// Without a table, so that the compiler can lower many bytes at once.
constexpr unsigned char s_lower(unsigned char byte) {
    constexpr unsigned int kLetters = 26;
    const auto letter = static_cast<unsigned char>(byte - 'A');
    return static_cast<unsigned char>(byte + (letter < kLetters ? 'a' - 'A' : 0));
}

constexpr unsigned int kWordBits = 64;

// Literals that are found more often than this leave so many texts to the expression that another look at them is worth
// while.
constexpr double kFrequentPerMiB = 128;

bool s_holds(const BytesPresent &bytes, unsigned char byte) {
    return (bytes[byte / kWordBits] >> byte % kWordBits & 1U) != 0;
}

bool s_meet(const BytesPresent &a, const BytesPresent &b) {
    return ((a[0] & b[0]) | (a[1] & b[1]) | (a[2] & b[2]) | (a[3] & b[3])) != 0;
}

// The lowest bits of eight bytes, in their order in memory.
std::uint64_t s_gather(const unsigned char *bytes) {
    // Shifts each of the bits to its place in the highest byte.
    constexpr std::uint64_t kShifts =
        std::endian::native == std::endian::little ? 0x0102040810204080 : 0x8040201008040201;
    constexpr unsigned int kHighestByte = 56;
    std::uint64_t all = 0;
    std::memcpy(&all, bytes, sizeof all);
    return all * kShifts >> kHighestByte;
}

// Notes the bytes in a table first: to set a bit for each would wait for the one before.
BytesPresent s_present(const unsigned char *data, std::size_t length) {
    std::array<unsigned char, 256> seen;
    std::memset(seen.data(), 0, seen.size());
    for (std::size_t i = 0; i < length; ++i) {
        seen[data[i]] = 1;
    }
    BytesPresent present{};
    for (std::size_t word = 0; word < present.size(); ++word) {
        std::uint64_t bits = 0;
        for (std::size_t byte = 0; byte < kWordBits; byte += sizeof bits) {
            bits |= s_gather(seen.data() + word * kWordBits + byte) << byte;
        }
        present[word] = bits;
    }
    return present;
}

void s_dropLiterals(Regex::RequiredLiterals &required) {
    required.alternatives.clear();
    required.companions.clear();
    required.phrases.clear();
    required.second.clear();
    required.squeezed.clear();
    required.whole = false;
}

} // namespace

const BytesPresent &TextFacts::present() {
    if (!known_.isCounted) {
        known_.isCounted = true;
        effort_.spend(length_ * ScanEffort::kCountedByte);
        known_.present = s_present(data_, length_);
    }
    return known_.present;
}

const unsigned char *LoweredRange::make() {
    if (length_ > ScanMemory::kMaxCopiedBytes) {
        return nullptr;
    }
    done_ = true;
    effort_.spend(static_cast<ScanEffort::Work>(length_) * ScanEffort::kLowerByte);
    memory_.lowered.resize(std::max(memory_.lowered.size(), length_));
    std::transform(data_, data_ + length_, memory_.lowered.begin(), s_lower);
    return memory_.lowered.data();
}

// Collects literals with what they stand for and makes a matcher of them.
class RuleFilter::KeyCollector {
public:
    // Whether the budget suffices for a matcher with those literals too, which is then taken from it.
    bool admits(const std::vector<Regex::Literal> &literals, Regex::WorkBudget &budget) {
        return costs_.of(literals) <= budget.steps() && budget.takeSteps(costs_.add(literals));
    }

    // One key for each literal.
    void add(const std::vector<Regex::Literal> &literals, const std::vector<Key> &keys) {
        literals_.insert(literals_.end(), literals.begin(), literals.end());
        keys_.insert(keys_.end(), keys.begin(), keys.end());
    }

    Keys build() const {
        Keys keys;
        keys.matcher = Regex::LiteralMatcher(literals_);
        keys.first.assign(keys.matcher.size() + 1, 0);
        for (const std::uint32_t number : keys.matcher.numbers()) {
            ++keys.first[number + 1];
        }
        std::partial_sum(keys.first.begin(), keys.first.end(), keys.first.begin());
        keys.keys.resize(keys_.size());
        keys.firstPlain.assign(keys.first.begin(), keys.first.end() - 1);
        place(keys, keys.firstPlain, true);
        std::vector<std::uint32_t> next = keys.firstPlain;
        place(keys, next, false);
        return keys;
    }

private:
    // Puts the keys with a phrase, or the others, where next says for their literal.
    void place(Keys &keys, std::vector<std::uint32_t> &next, bool phrases) const {
        for (std::size_t i = 0; i < keys_.size(); ++i) {
            if ((keys_[i].asks == Key::Asks::Phrase) == phrases) {
                keys.keys[next[keys.matcher.numbers()[i]]++] = keys_[i];
            }
        }
    }

    Regex::LiteralCosts costs_;
    std::vector<Regex::Literal> literals_;
    std::vector<Key> keys_;
};

RuleFilter::RuleFilter(const std::vector<Source> &sources, Regex::TextKind kind,
                       Regex::WorkBudget &budget) {
    KeyCollector plain;
    KeyCollector squeezed;
    claims_.reserve(sources.size());
    for (std::uint32_t i = 0; i < sources.size(); ++i) {
        Claims claims;
        claims.form = sources[i].form;
        claims.searched = sources[i].searched;
        claims.anchored = sources[i].anchored;
        Regex::RequiredLiterals required =
            Regex::requiredLiterals(sources[i].text, sources[i].options, kind, budget);
        if (claims.searched) {
            const bool keyIsFirst = addKeys(required, i, plain, squeezed, budget);
            claims.hasKey = unfiltered_.empty() || unfiltered_.back() != i;
            claim(claims, required, keyIsFirst);
            addAutomaton(claims, required, sources[i], kind, budget);
        } else {
            claimWhole(claims, required);
        }
        claims_.push_back(claims);
    }
    plain_ = plain.build();
    squeezed_ = squeezed.build();
    needles_.shrink_to_fit();
    needleBytes_.shrink_to_fit();
    sets_.shrink_to_fit();
    automata_.shrinkToFit();
}

// Adds what the expression is looked for by; answers whether that is one of its alternatives. Without it, nothing is left
// of the literals.
bool RuleFilter::addKeys(Regex::RequiredLiterals &required, std::uint32_t expression,
                         KeyCollector &plain, KeyCollector &squeezed, Regex::WorkBudget &budget) {
    const bool plainKey = required.squeezed.empty();
    KeyCollector &collector = plainKey ? plain : squeezed;
    const std::vector<Regex::Literal> &literals =
        plainKey ? required.alternatives : required.squeezed;
    if (literals.empty() || !collector.admits(literals, budget)) {
        s_dropLiterals(required);
        unfiltered_.push_back(expression);
        return false;
    }
    if (!plainKey) {
        squeezed.add(literals, {literals.size(), {expression, 0, Key::Asks::Nothing}});
        return false;
    }
    const std::size_t bytes = Regex::PhraseTable::bytesOf(required.phrases);
    if (bytes > budget.bytes() || !budget.takeBytes(bytes)) {
        required.phrases.clear();
        required.whole = false;
    }
    plain.add(literals, makeKeys(required, expression));
    return true;
}

// Keeps what tells more than the literal that is looked for.
void RuleFilter::claim(Claims &claims, const Regex::RequiredLiterals &required, bool keyIsFirst) {
    constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max();
    claims.minimumLength = static_cast<std::uint32_t>(std::min(required.minimumLength, kMost));
    claims.maximumLength = static_cast<std::uint32_t>(std::min(required.maximumLength, kMost));
    if (!required.firstBytes.all()) {
        claims.boundStart = true;
        sets_.push_back(requiredSet(required.firstBytes));
    }
    claims.whole = keyIsFirst && required.whole;
    claims.wholeUpTo = static_cast<std::uint32_t>(std::min(required.wholeUpTo, kMost));
    addNeedles(claims, keyIsFirst ? required.second : required.alternatives);
    claims.passByteWork += required.byteSets.empty() ? 0 : ScanEffort::kCountedByte;
    claims.firstSet = static_cast<std::uint32_t>(sets_.size());
    claims.sets = static_cast<std::uint8_t>(required.byteSets.size());
    for (const std::bitset<256> &set : required.byteSets) {
        sets_.push_back(requiredSet(set));
    }
}

// Where the expression would be tried often, adds its automaton if that is worth asking.
void RuleFilter::addAutomaton(Claims &claims, const Regex::RequiredLiterals &required,
                              const Source &source, Regex::TextKind kind,
                              Regex::WorkBudget &budget) {
    double tries = std::numeric_limits<double>::infinity();
    if (!required.squeezed.empty()) {
        tries = required.squeezedPerMiB;
    } else if (!required.alternatives.empty()) {
        tries = required.alternativesPerMiB;
    }
    if (!claims.whole && tries > kFrequentPerMiB) {
        claims.automaton =
            automata_
                .add(source.text, source.options, kind, Regex::AutomatonTable::When::Faster, budget)
                .value_or(kNoAutomaton);
    }
    if (claims.automaton != kNoAutomaton) {
        claims.tryByteWork = ScanEffort::kSlowTryByte;
    }
    claims.tryByteWork = claims.anchored ? 0 : claims.tryByteWork;
}

// For an expression that is not searched for: only if it is nothing but literals can a text be judged without it.
void RuleFilter::claimWhole(Claims &claims, const Regex::RequiredLiterals &required) {
    claims.whole =
        required.whole && required.phrases.empty() && addNeedles(claims, required.alternatives);
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
    claims.passWork += claims.needles * ScanEffort::kNeedle;
    claims.passByteWork += claims.needles * ScanEffort::kNeedleByte;
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

// What is asked besides each of the alternatives.
std::vector<RuleFilter::Key> RuleFilter::makeKeys(const Regex::RequiredLiterals &required,
                                                  std::uint32_t expression) {
    std::vector<Key> keys(required.alternatives.size(), {expression, 0, Key::Asks::Nothing});
    for (std::size_t i = 0; i < required.phrases.size(); ++i) {
        keys[i].asks = Key::Asks::Phrase;
        keys[i].number = phrases_.add(required.phrases[i]);
    }
    for (std::size_t i = 0; i < required.companions.size(); ++i) {
        const Regex::Literal &companion = required.companions[i];
        if (!companion.bytes.empty() &&
            companion.bytes.size() <= std::numeric_limits<std::uint16_t>::max()) {
            keys[i].asks = Key::Asks::Needle;
            keys[i].number = addNeedle(companion);
        }
    }
    return keys;
}

// Without a lowered text, which there is none of where that would be too long, whatever may be in
// it counts as there.
bool RuleFilter::holds(const unsigned char *text, const unsigned char *lowered, std::size_t length,
                       std::uint32_t needle) const {
    const Needle &sought = needles_[needle];
    if (sought.ignoreCase && lowered == nullptr) {
        return length >= sought.length;
    }
    // Also keeps empty texts, which may have no bytes to point to, from memmem.
    return length >= sought.length &&
           memmem(sought.ignoreCase ? lowered : text, length, needleBytes_.data() + sought.offset,
                  sought.length) != nullptr;
}

RuleFilter::RequiredSet RuleFilter::requiredSet(const std::bitset<256> &set) {
    RequiredSet required{};
    const std::size_t count = set.count();
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        required.bytes[byte / kWordBits] |= std::uint64_t{set[byte]} << byte % kWordBits;
        if (set[byte] && count <= RequiredSet::kMaxFew) {
            required.few[required.count++] = static_cast<unsigned char>(byte);
        }
    }
    return required;
}

bool RuleFilter::holdsOne(const RequiredSet &set, TextFacts &text) {
    if (set.count == 0 || text.isCounted()) {
        return s_meet(set.bytes, text.present());
    }
    text.spend(text.length() * ScanEffort::kNeedleByte * set.count);
    // memchr takes no null pointer, which an empty text may have.
    return text.length() > 0 &&
           std::any_of(set.few.begin(), set.few.begin() + set.count, [&](unsigned char byte) {
               return std::memchr(text.data(), byte, text.length()) != nullptr;
           });
}

bool RuleFilter::passes(std::uint32_t expression, TextFacts &text) const {
    const Claims &claims = claims_[expression];
    if (text.length() < claims.minimumLength || text.length() > claims.maximumLength) {
        return false;
    }
    if (claims.boundStart &&
        (text.length() == 0 || !s_holds(sets_[claims.firstSet - 1].bytes, text.data()[0]))) {
        return false;
    }
    for (std::uint32_t i = 0; i < claims.sets; ++i) {
        if (!holdsOne(sets_[claims.firstSet + i], text)) {
            return false;
        }
    }
    for (std::uint32_t i = 0; i < claims.needles; ++i) {
        text.spend(ScanEffort::kNeedle + text.length() * ScanEffort::kNeedleByte);
        if (holds(text.data(), text.lowered(), text.length(), claims.firstNeedle + i)) {
            return true;
        }
    }
    return claims.needles == 0;
}

bool RuleFilter::isAccepted(std::uint32_t expression, TextFacts &text) const {
    const std::uint32_t automaton = claims_[expression].automaton;
    if (automaton == kNoAutomaton) {
        return true;
    }
    text.spend(ScanEffort::kAutomaton + text.length() * ScanEffort::kLoneAutomatonByte);
    return automata_.mayMatch(automaton, {text.data(), text.length(), 0});
}

ScanEffort::Work RuleFilter::searchWork(std::size_t bytes) const {
    const auto work = [&](const Keys &keys) {
        return keys.matcher.size() == 0
                   ? 0
                   : ScanEffort::kSearch +
                         static_cast<ScanEffort::Work>(bytes) * ScanEffort::kSearchByte;
    };
    return work(plain_) + work(squeezed_);
}

// Copies the letters and digits of each text that is not too long for that.
void RuleFilter::squeeze(const unsigned char *base, ScanMemory &memory) {
    std::size_t room = Regex::LiteralMatcher::kPaddingBytes;
    for (const ScanText &text : memory.texts) {
        room += isTooLong(text) ? 0 : text.length;
    }
    memory.squeezed.resize(std::max(memory.squeezed.size(), room));
    memory.squeezedTexts.clear();
    unsigned char *out = memory.squeezed.data();
    for (const ScanText &text : memory.texts) {
        if (isTooLong(text)) {
            continue;
        }
        const unsigned char *start = base + text.start;
        unsigned char *inner = copyLettersAndDigits(start, text.innerStart, out);
        unsigned char *end =
            copyLettersAndDigits(start + text.innerStart, text.length - text.innerStart, inner);
        ScanText range = text;
        range.start = static_cast<std::uint32_t>(out - memory.squeezed.data());
        range.length = static_cast<std::uint32_t>(end - out);
        range.innerStart = static_cast<std::uint32_t>(inner - out);
        memory.squeezedTexts.push_back(range);
        out = end;
    }
}

// Answers the first of twice as many serial numbers as there are texts, none of which is in the tables.
std::uint32_t RuleFilter::takeSerials(const Keys &keys, std::size_t texts, ScanMemory &memory) {
    const auto makeRoom = [](std::vector<std::uint32_t> &marks, std::size_t size) {
        marks.resize(std::max(marks.size(), std::min(size, ScanMemory::kMaxMarks)), 0);
    };
    makeRoom(memory.lastSeen, keys.matcher.size());
    makeRoom(memory.lastMatched, keys.keys.size());
    const std::size_t numbers = 2 * texts;
    if (numbers >= std::numeric_limits<std::uint32_t>::max() - memory.serial) {
        std::fill(memory.lastSeen.begin(), memory.lastSeen.end(), 0U);
        std::fill(memory.lastMatched.begin(), memory.lastMatched.end(), 0U);
        memory.serial = 0;
    }
    const std::uint32_t first = memory.serial + 1;
    memory.serial += static_cast<std::uint32_t>(numbers);
    return first;
}

std::size_t RuleFilter::memoryBytes() const {
    const auto bytes = [](const auto &values) {
        return values.capacity() * sizeof(*values.begin());
    };
    const auto keys = [&](const Keys &of) {
        return of.matcher.memoryBytes() + bytes(of.first) + bytes(of.firstPlain) + bytes(of.keys);
    };
    return keys(plain_) + keys(squeezed_) + bytes(unfiltered_) + bytes(claims_) + bytes(needles_) +
           bytes(needleBytes_) + bytes(sets_) + phrases_.memoryBytes() + automata_.memoryBytes();
}

} // namespace Corvane::Heuristic
