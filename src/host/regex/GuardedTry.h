#ifndef CORVANE_SRC_HOST_REGEX_GUARDEDTRY_H
#define CORVANE_SRC_HOST_REGEX_GUARDEDTRY_H

// A try of an expression that a budget can end while it is under way.
//
// The engine counts the steps that it takes from each position anew, and some steps read the whole
// rest of the text: on a long text even one position may cost seconds within the limit on steps, and
// there are as many positions as bytes. So the first run may take few steps from a position only. It
// tells each position where it begins, which is when the clock is looked at. A position that needs
// more is tried once more with more steps, a few times as many each time; behind it the run goes on as
// before. What is found that way is what one run with all steps finds, since the limit on steps
// does nothing else than to end a run.
//
// Being told of positions keeps machine code from noting how far the first repetition of a pattern
// reached, by which it passes over positions that must fail as well. Where the run is slow the
// positions are therefore taken in ranges, each with a run that tells of none, but of what is repeated
// within, of which machine code counts no steps.
//
// Machine code that calls back also counts other steps than machine code that does not: up to half as
// many again were seen. Where a position came near the limit on steps, it is therefore the
// pattern as it is that decides, in a run over what the try went over.
//
// Threads: one try belongs to one thread.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <utility>

#include "host/parser/Budget.h"
#include "host/regex/EngineCode.h"

namespace Corvane::Regex {

class GuardedTry final : private RunWatcher {
public:
    // The code must take a watcher; it, the text and the budget, which must be the thread's, must
    // outlive the try. firstSteps are those that each position gets at first.
    GuardedTry(const EngineCode &code, const unsigned char *data, std::size_t length,
               Budget &budget, std::uint32_t firstSteps);

    // Where runs may go by ranges, which is not so where the pattern says itself from where to go on, nor for texts that are
    // no UTF-8: what gives the code for that, with machine code, when it is first needed.
    using MakeCode = std::function<const EngineCode &()>;
    void rangesBy(MakeCode code) { rangeCode_ = std::move(code); }

    // What gives the code of the pattern as it is, with machine code and a last start alone.
    void decidedBy(MakeCode code) { exactCode_ = std::move(code); }

    // Takes every run for slow from the start, and ranges of so many bytes.
    void rangesForTest(MakeCode code, std::size_t bytes) {
        rangesBy(std::move(code));
        rangeBytes_ = bytes;
        areRangesForced_ = true;
    }

    // Tries from the beginning of the text; answers what became of it, which means nothing once the budget
    // has ended.
    Outcome run();

    // Steps from one position that a run over a text of that length may take unguarded, because even
    // the worst of patterns ends within milliseconds; kMatchLimitSteps for a short text.
    static std::uint32_t harmlessSteps(std::size_t length);

    // The same for one position.
    static std::uint32_t firstSteps(std::size_t length);

private:
    static constexpr std::size_t kNowhere = std::numeric_limits<std::size_t>::max();
    enum class Engine { MachineCode, Interpreter };

    bool begins(std::size_t position) override;
    bool goesOn() override;
    bool looksOver(std::uint32_t effort);
    bool canStartAt(std::size_t position) const;
    Outcome runByRanges();
    std::size_t startBehind(std::size_t begin, std::size_t bytes) const;
    Outcome runWith(Engine engine);
    Outcome attempt(Engine engine);
    bool raise();
    std::optional<Outcome> decided(Outcome outcome);

    const EngineCode &code_;
    const unsigned char *data_;
    std::size_t length_;
    Budget &budget_;
    std::uint32_t least_;
    std::uint32_t steps_;
    std::uint32_t loopEffort_;
    std::uint32_t effort_ = 0;
    // Where the run starts; the position under way; the one that is tried with more steps; and how long
    // the run took.
    std::size_t from_ = 0;
    std::size_t position_ = kNowhere;
    std::size_t raised_ = kNowhere;
    std::int64_t nanos_ = 0;
    // When the try began, by the thread's time, and whether any position came near the limit on steps.
    std::int64_t tryBegun_ = 0;
    bool isDoubtful_ = false;
    bool passed_ = false;
    // Since the run began: positions and other calls. And whether they took so long that ranges are worth trying.
    std::uint32_t calls_ = 0;
    std::chrono::steady_clock::time_point begun_;
    bool isSlow_ = false;
    MakeCode rangeCode_;
    MakeCode exactCode_;
    std::size_t rangeBytes_;
    bool areRangesForced_ = false;
};

} // namespace Corvane::Regex

#endif
