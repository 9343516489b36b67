#ifndef CORVANE_HEURISTIC_SCANEFFORT_H
#define CORVANE_HEURISTIC_SCANEFFORT_H

// Counts the work of a scan against that of the walk over the lists, so that it never takes much
// longer than the walk, whatever it is given.
//
// The walk tries every rule on every text up to the first that matches. Of what that takes at least
// a share may be spent on finding out what need not be tried, and of what is spared thereby all.
// Where no more may be spent, rules are tried as the walk tries them. How far the walk goes is not
// known beforehand: that nothing will match is expected at first, and taken back where it turns out
// otherwise. What costs more than a few tries has to be earned before.
//
// Counted is what was read and looked at, never time, so that a scan goes the same way on every
// machine. The unit is what the fastest expressions need for a byte, about a thirtieth of a
// nanosecond; the other figures were measured against it.
//
// Threads: one at a time.

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Corvane::Heuristic {

class ScanEffort {
public:
    using Work = std::int64_t;
    using SmallWork = std::int32_t;

    // The walk, at least: a try of an expression; for a header rule, which may not even name the
    // header.
    static constexpr Work kTry = 1200;
    static constexpr Work kHeaderTry = 1000;
    static constexpr SmallWork kTryByte = 1;
    // The same for a byte where the engine has no short cut, which is why there is an automaton.
    static constexpr SmallWork kSlowTryByte = 12;

    // The search: for each matcher, byte, literal found, expression that it stands for, and one to
    // be tried.
    static constexpr Work kSearch = 4500;
    static constexpr Work kSearchByte = 14;
    static constexpr Work kHit = 300;
    static constexpr Work kKey = 120;
    static constexpr Work kCandidate = 1500;
    static constexpr Work kPhraseByte = 30;

    // The cheap tests of a text, and its automaton on one text alone and on one of many.
    static constexpr SmallWork kTest = 300;
    static constexpr SmallWork kNeedle = 500;
    static constexpr SmallWork kNeedleByte = 16;
    static constexpr Work kLowerByte = 2;
    static constexpr SmallWork kCountedByte = 16;
    static constexpr Work kAutomaton = 300;
    static constexpr Work kAutomatonByte = 24;
    static constexpr Work kLoneAutomatonByte = 60;

    // What the walk is expected to do, or negative, is not expected to do any more.
    void expect(Work ofWalk) { expected_ += ofWalk / kShare; }
    // What of that was done here as well.
    void did(Work ofWalk) { done_ += ofWalk / kShare; }
    // What of that need not be done.
    void spare(Work ofWalk) { balance_ += ofWalk; }
    void spend(Work work) { balance_ -= work; }
    Work balance() const { return balance_; }

    // Whether so much may be spent, by what is expected; by what is known; and in one go, where
    // what is expected only counts for little at a time.
    bool hasRoomFor(Work work) const { return work <= expected_ + balance_; }
    bool hasEarned(Work work) const { return work <= done_ + balance_; }
    bool allows(Work work) const {
        return hasEarned(work) || (work <= kLittle && hasRoomFor(work));
    }
    bool isExceeded() const { return !hasRoomFor(0); }
    // Nothing more may be spent.
    void exhaust() { expected_ = std::min(expected_, -balance_ - 1); }

private:
    // The walk's work to one part of our own.
    static constexpr Work kShare = 3;
    static constexpr Work kLittle = 64 * kTry;

    Work expected_ = 0;
    Work done_ = 0;
    Work balance_ = 0;
};

} // namespace Corvane::Heuristic

#endif
