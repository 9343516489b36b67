#ifndef CORVANE_HEURISTIC_RULEFILTERSEARCH_H
#define CORVANE_HEURISTIC_RULEFILTERSEARCH_H

// The pass of a RuleFilter over texts: what becomes of each literal that is found.
//
// Threads: as RuleFilter.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "heuristic/RuleFilter.h"
#include "heuristic/ScanMemory.h"

namespace Corvane::Heuristic {

// Finds the text that holds the byte before an end offset. Offsets come almost in order.
class TextLocator {
public:
    explicit TextLocator(const std::vector<ScanText> &texts) : texts_(texts), at_(0) {}

    // The number of the text that holds all of the range, or none() for a range that crosses an
    // edge.
    std::size_t find(std::size_t end, std::size_t length);
    static constexpr std::size_t none() { return static_cast<std::size_t>(-1); }

private:
    const std::vector<ScanText> &texts_;
    std::size_t at_;
};

inline std::size_t TextLocator::find(std::size_t end, std::size_t length) {
    const auto endOf = [](const ScanText &text) { return std::size_t{text.start} + text.length; };
    while (at_ > 0 && end <= endOf(texts_[at_ - 1])) {
        --at_;
    }
    while (at_ + 1 < texts_.size() && end > endOf(texts_[at_])) {
        ++at_;
    }
    const ScanText &text = texts_[at_];
    return end <= endOf(text) && end >= text.start + length ? at_ : none();
}

// Takes what a search finds in the texts of a pass.
template <class Policy>
class RuleFilter::HitTaker {
public:
    // The texts, of which there is one, must outlive this; they are ranges of base.
    HitTaker(const RuleFilter &filter, const Keys &keys, const unsigned char *base,
             const std::vector<ScanText> &texts, ScanMemory &memory, Policy &policy)
        : filter_(filter), keys_(keys), base_(base), texts_(texts), memory_(memory),
          policy_(policy), effort_(policy.effort()), locator_(texts), from_(texts.front().start),
          to_(std::size_t{texts.back().start} + texts.back().length),
          serial_(takeSerials(keys, texts.size(), memory)),
          lowered_(base + from_, to_ - from_, memory, effort_) {}

    // The range of all texts.
    std::size_t from() const { return from_; }
    std::size_t length() const { return to_ - from_; }

    // end is the offset from there behind the literal. Answers whether to go on.
    bool operator()(std::uint32_t literal, std::size_t end) {
        effort_.spend(ScanEffort::kHit);
        const std::size_t length = keys_.matcher.literalLength(literal);
        const std::size_t number = locator_.find(from_ + end, length);
        if (number == TextLocator::none()) {
            return !effort_.isExceeded();
        }
        const ScanText &text = texts_[number];
        const std::size_t inText = from_ + end - text.start;
        const Hit hit{text.unit, base_ + text.start, text.length, inText - length, inText};
        const bool isInner = text.innerForms != 0 && hit.start >= text.innerStart;
        const Place place{text, hit, isInner, static_cast<std::uint32_t>(serial_ + 2 * number)};
        takeForPhrases(literal, place);
        // Where the literal lies in the other forms as well, it is new to these.
        const std::uint32_t seen = place.mark + (isInner ? 1U : 0U);
        if (literal >= memory_.lastSeen.size() ||
            std::exchange(memory_.lastSeen[literal], seen) != seen) {
            takeForOthers(literal, place);
        }
        return !effort_.isExceeded();
    }

private:
    struct Place {
        const ScanText &text;
        Hit whole;
        bool isInner;
        std::uint32_t mark;
    };

    bool asks(const Key &key, const Place &place) const {
        const std::uint8_t form = filter_.claims_[key.expression].form;
        return (form == place.text.form ||
                (place.isInner && (place.text.innerForms >> form & 1U) != 0)) &&
               policy_.admits(key.expression);
    }

    Hit hitOf(const Key &key, const Place &place) const {
        return filter_.claims_[key.expression].form == place.text.form
                   ? place.whole
                   : place.whole.from(place.text.innerStart);
    }

    bool wasMatched(std::uint32_t key, const Place &place) const {
        return key < memory_.lastMatched.size() && memory_.lastMatched[key] == place.mark;
    }

    void takeForPhrases(std::uint32_t literal, const Place &place) {
        const std::uint32_t last = keys_.firstPlain[literal];
        for (std::uint32_t i = keys_.first[literal]; i < last && !effort_.isExceeded(); ++i) {
            const Key &key = keys_.keys[i];
            effort_.spend(ScanEffort::kKey);
            if (!wasMatched(i, place) && asks(key, place) &&
                filter_.checkPhrase(key, hitOf(key, place), memory_, policy_) &&
                i < memory_.lastMatched.size()) {
                memory_.lastMatched[i] = place.mark;
            }
        }
    }

    void takeForOthers(std::uint32_t literal, const Place &place) {
        const std::uint32_t last = keys_.first[literal + 1];
        for (std::uint32_t i = keys_.firstPlain[literal]; i < last && !effort_.isExceeded(); ++i) {
            const Key &key = keys_.keys[i];
            effort_.spend(ScanEffort::kKey);
            if (!asks(key, place)) {
                continue;
            }
            const Hit hit = hitOf(key, place);
            if (key.asks == Key::Asks::Nothing || holdsNeedle(key, hit)) {
                addCandidate(key.expression, hit.unit, filter_.claims_[key.expression].whole,
                             memory_, policy_);
            }
        }
    }

    bool holdsNeedle(const Key &key, const Hit &hit) {
        effort_.spend(ScanEffort::kNeedle +
                      static_cast<ScanEffort::Work>(hit.length) * ScanEffort::kNeedleByte);
        const auto offset = static_cast<std::size_t>(hit.data - (base_ + from_));
        return filter_.holds(hit.data, lowered_.from(offset), hit.length, key.number);
    }

    const RuleFilter &filter_;
    const Keys &keys_;
    const unsigned char *base_;
    const std::vector<ScanText> &texts_;
    ScanMemory &memory_;
    Policy &policy_;
    ScanEffort &effort_;
    TextLocator locator_;
    std::size_t from_;
    std::size_t to_;
    std::uint32_t serial_;
    LoweredRange lowered_;
};

// Answers whether no other place of the text needs to be looked at.
template <class Policy>
bool RuleFilter::checkPhrase(const Key &key, const Hit &hit, ScanMemory &memory,
                             Policy &policy) const {
    std::size_t read = 0;
    const Regex::PhraseTable::Verdict verdict =
        phrases_.check(key.number, hit.data, hit.length, hit.start, hit.end, read);
    policy.effort().spend(static_cast<ScanEffort::Work>(read) * ScanEffort::kPhraseByte);
    if (verdict == Regex::PhraseTable::Verdict::No) {
        return false;
    }
    const Claims &claims = claims_[key.expression];
    const bool decided = verdict == Regex::PhraseTable::Verdict::Yes && claims.whole &&
                         hit.length <= claims.wholeUpTo;
    addCandidate(key.expression, hit.unit, decided, memory, policy);
    return true;
}

template <class Policy>
void RuleFilter::addCandidate(std::uint32_t expression, std::uint32_t unit, bool decided,
                              ScanMemory &memory, Policy &policy) {
    policy.effort().spend(ScanEffort::kCandidate);
    memory.candidates.emplace_back(expression, unit, decided);
    policy.found(expression, unit);
}

// For texts whose letters and digits are not copied.
template <class Policy>
void RuleFilter::addUnsqueezed(ScanMemory &memory, Policy &policy) const {
    for (const ScanText &text : memory.texts) {
        for (std::size_t i = 0; isTooLong(text) && i < squeezed_.keys.size(); ++i) {
            const std::uint32_t expression = squeezed_.keys[i].expression;
            const unsigned int forms = 1U << text.form | text.innerForms;
            if ((forms >> claims_[expression].form & 1U) != 0 && policy.admits(expression)) {
                addCandidate(expression, text.unit, false, memory, policy);
            }
        }
    }
}

template <class Policy>
void RuleFilter::scan(const Keys &keys, const unsigned char *base, std::size_t readable,
                      const std::vector<ScanText> &texts, ScanMemory &memory,
                      Policy &policy) const {
    if (keys.matcher.size() == 0 || texts.empty() || policy.effort().isExceeded()) {
        return;
    }
    HitTaker<Policy> taker(*this, keys, base, texts, memory, policy);
    keys.matcher.scan(base + taker.from(), taker.length(), readable - taker.from(), memory.scratch,
                      taker);
}

template <class Policy>
bool RuleFilter::select(const unsigned char *base, std::size_t readable, ScanMemory &memory,
                        Policy &policy) const {
    scan(plain_, base, readable, memory.texts, memory, policy);
    if (squeezed_.matcher.size() != 0 && !policy.effort().isExceeded()) {
        squeeze(base, memory);
        scan(squeezed_, memory.squeezed.data(), memory.squeezed.size(), memory.squeezedTexts,
             memory, policy);
        if (memory.squeezedTexts.size() < memory.texts.size()) {
            addUnsqueezed(memory, policy);
        }
    }
    return !policy.effort().isExceeded();
}

} // namespace Corvane::Heuristic

#endif
