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
template <class Admit>
class RuleFilter::HitTaker {
public:
    // The texts, of which there is one, must outlive this; they are ranges of base.
    HitTaker(const RuleFilter &filter, const Keys &keys, const unsigned char *base,
             const std::vector<ScanText> &texts, ScanMemory &memory, Admit admit)
        : filter_(filter), keys_(keys), base_(base), texts_(texts), memory_(memory), admit_(admit),
          locator_(texts), from_(texts.front().start),
          to_(std::size_t{texts.back().start} + texts.back().length),
          serial_(takeSerials(keys, texts.size(), memory)),
          lowered_(base + from_, to_ - from_, memory) {}

    // The range of all texts.
    std::size_t from() const { return from_; }
    std::size_t length() const { return to_ - from_; }

    // end is the offset from there behind the literal.
    void operator()(std::uint32_t literal, std::size_t end) {
        const std::size_t length = keys_.matcher.literalLength(literal);
        const std::size_t number = locator_.find(from_ + end, length);
        if (number == TextLocator::none()) {
            return;
        }
        const ScanText &text = texts_[number];
        const std::size_t inText = from_ + end - text.start;
        const Hit hit{text.unit, base_ + text.start, text.length, inText - length, inText};
        const bool isInner = text.innerForms != 0 && hit.start >= text.innerStart;
        const Place place{text, hit, isInner, static_cast<std::uint32_t>(serial_ + 2 * number)};
        takeForPhrases(literal, place);
        // Where the literal lies in the other forms as well, it is new to these.
        const std::uint32_t seen = place.mark + (isInner ? 1U : 0U);
        if (std::exchange(memory_.lastSeen[literal], seen) != seen) {
            takeForOthers(literal, place);
        }
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
               admit_(key.expression);
    }

    Hit hitOf(const Key &key, const Place &place) const {
        return filter_.claims_[key.expression].form == place.text.form
                   ? place.whole
                   : place.whole.from(place.text.innerStart);
    }

    void takeForPhrases(std::uint32_t literal, const Place &place) {
        for (std::uint32_t i = keys_.first[literal]; i < keys_.firstPlain[literal]; ++i) {
            const Key &key = keys_.keys[i];
            if (memory_.lastMatched[i] != place.mark && asks(key, place) &&
                filter_.checkPhrase(key, hitOf(key, place), memory_)) {
                memory_.lastMatched[i] = place.mark;
            }
        }
    }

    void takeForOthers(std::uint32_t literal, const Place &place) {
        for (std::uint32_t i = keys_.firstPlain[literal]; i < keys_.first[literal + 1]; ++i) {
            const Key &key = keys_.keys[i];
            if (!asks(key, place)) {
                continue;
            }
            const Hit hit = hitOf(key, place);
            if (key.asks == Key::Asks::Nothing ||
                filter_.holds(hit.data, lowered_.get() + (hit.data - (base_ + from_)), hit.length,
                              key.number)) {
                addCandidate(key, hit, filter_.claims_[key.expression].whole, memory_);
            }
        }
    }

    const RuleFilter &filter_;
    const Keys &keys_;
    const unsigned char *base_;
    const std::vector<ScanText> &texts_;
    ScanMemory &memory_;
    Admit admit_;
    TextLocator locator_;
    std::size_t from_;
    std::size_t to_;
    std::uint32_t serial_;
    LoweredRange lowered_;
};

template <class Admit>
void RuleFilter::scan(const Keys &keys, const unsigned char *base, std::size_t readable,
                      const std::vector<ScanText> &texts, ScanMemory &memory, Admit admit) const {
    if (keys.matcher.size() == 0 || texts.empty()) {
        return;
    }
    HitTaker<Admit> taker(*this, keys, base, texts, memory, admit);
    keys.matcher.scan(base + taker.from(), taker.length(), readable - taker.from(), memory.scratch,
                      taker);
}

template <class Admit>
void RuleFilter::select(const unsigned char *base, std::size_t readable, ScanMemory &memory,
                        Admit admit) const {
    scan(plain_, base, readable, memory.texts, memory, admit);
    if (squeezed_.matcher.size() != 0) {
        squeeze(base, memory);
        scan(squeezed_, memory.squeezed.data(), memory.squeezed.size(), memory.squeezedTexts,
             memory, admit);
    }
}

} // namespace Corvane::Heuristic

#endif
