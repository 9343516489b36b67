#include "host/regex/GuardedTry.h"

#include <algorithm>
#include <ctime>

#include "host/regex/Utf8Text.h"

namespace Corvane::Regex {

namespace {

// The bytes that a run may read from one position between two looks at the clock, or from all
// positions without one, supposing that each step reads all of them: about 10 and 50 ms.
constexpr std::uint64_t kBytesByPosition = std::uint64_t{1} << 23U;
constexpr std::uint64_t kBytesByRun = std::uint64_t{1} << 25U;

// So much is done between two looks at the clock, where what the position that a run tells counts for some, and a
// call within a loop for as much where the text is long.
constexpr std::uint32_t kEffortByLook = 64;
constexpr std::uint32_t kPositionEffort = 16;
constexpr std::size_t kBytesByEffort = std::size_t{1} << 16U;

// A run is slow that has taken so long, and for each position.
constexpr std::chrono::milliseconds kSlowRun{3};
constexpr std::chrono::nanoseconds kSlowPosition{500};

// The steps of each position in a range, and the bytes that all steps in it may read.
constexpr std::uint32_t kRangeSteps = 4;
constexpr std::uint64_t kBytesByRange = std::uint64_t{1} << 26U;

// How many times as many steps a position gets the next time: most while that costs little.
constexpr std::uint32_t kMostTimes = 4;
constexpr double kLeastTimes = 1.5;
constexpr double kCheapNanos = 20e6;

// A run that waits for a processor is not a slow one.
std::int64_t s_processorNanos() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// From so many steps on another code of the same pattern may need more than the limit, and takes so many times as long.
constexpr std::uint32_t kDoubtfulSteps = kMatchLimitSteps / 4;
constexpr std::int64_t kDecisionTimes = 2;

std::uint32_t s_stepsWithin(std::uint64_t bytes, std::uint64_t bytesByStep) {
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(
        bytes / std::max<std::uint64_t>(bytesByStep, 1), 1, kMatchLimitSteps));
}

} // namespace

std::uint32_t GuardedTry::harmlessSteps(std::size_t length) {
    return s_stepsWithin(kBytesByRun, std::uint64_t{length} * length);
}

std::uint32_t GuardedTry::firstSteps(std::size_t length) {
    return std::min(s_stepsWithin(kBytesByPosition, length), kDoubtfulSteps);
}

GuardedTry::GuardedTry(const EngineCode &code, const unsigned char *data, std::size_t length,
                       Budget &budget, std::uint32_t firstSteps)
    : code_(code), data_(data), length_(length), budget_(budget), least_(firstSteps),
      steps_(firstSteps), loopEffort_(static_cast<std::uint32_t>(std::clamp<std::size_t>(
                              length / kBytesByEffort, 1, kPositionEffort))),
      rangeBytes_(std::max<std::size_t>(kBytesByRange / kRangeSteps / (length + 1), 1)) {}

bool GuardedTry::begins(std::size_t position) {
    position_ = position;
    passed_ = raised_ != kNowhere && position > raised_ && canStartAt(position);
    return !looksOver(kPositionEffort) && !passed_ && !isSlow_;
}

// The engine takes each part of a text that is UTF-8 for a text of its own. Where one ends it does not start anew.
bool GuardedTry::canStartAt(std::size_t position) const {
    return code_.characters() != EngineCode::Characters::BrokenUtf8 || position == 0 ||
           position == length_ || beginsCharacter(data_, length_, position);
}

bool GuardedTry::goesOn() {
    return !looksOver(loopEffort_);
}

bool GuardedTry::looksOver(std::uint32_t effort) {
    ++calls_;
    effort_ += effort;
    if (effort_ < kEffortByLook) {
        return budget_.ended();
    }
    effort_ = 0;
    if (rangeCode_ != nullptr) {
        const auto time = std::chrono::steady_clock::now() - begun_;
        isSlow_ = isSlow_ || areRangesForced_ || (time > kSlowRun && time > calls_ * kSlowPosition);
    }
    return budget_.look();
}

Outcome GuardedTry::run() {
    tryBegun_ = s_processorNanos();
    const Outcome outcome =
        code_.hasMachineCode() ? runWith(Engine::MachineCode) : Outcome::Unsuited;
    return outcome == Outcome::Unsuited ? runWith(Engine::Interpreter) : outcome;
}

Outcome GuardedTry::runWith(Engine engine) {
    steps_ = least_;
    raised_ = kNowhere;
    if (engine == Engine::Interpreter) {
        rangeCode_ = nullptr;
        exactCode_ = nullptr;
    }
    for (from_ = 0; !budget_.look(); from_ = position_) {
        Outcome outcome = attempt(engine);
        if (outcome == Outcome::Stopped && isSlow_ && !passed_) {
            outcome = runByRanges();
            if (outcome == Outcome::StepLimit) {
                continue;
            }
        }
        if (passed_) {
            steps_ = std::max(least_, steps_ / kMostTimes);
            raised_ = steps_ == least_ ? kNowhere : position_;
        } else if (outcome != Outcome::StepLimit || steps_ == kMatchLimitSteps || !raise()) {
            const std::optional<Outcome> last = decided(outcome);
            if (last.has_value()) {
                return *last;
            }
        }
    }
    return Outcome::Stopped;
}

// What the pattern as it is makes of the positions up to the one under way, where that may have counted other steps.
// Nothing where it passes over that one, at which the limit was met here: the next one is under way then.
std::optional<Outcome> GuardedTry::decided(Outcome outcome) {
    const bool isOnSteps =
        outcome == Outcome::Match || outcome == Outcome::NoMatch || outcome == Outcome::StepLimit;
    if (!isDoubtful_ || !isOnSteps || exactCode_ == nullptr) {
        return outcome;
    }
    const std::chrono::nanoseconds taken(s_processorNanos() - tryBegun_);
    if (!budget_.affords(taken * kDecisionTimes)) {
        return Outcome::Stopped;
    }
    std::size_t last = length_;
    if (outcome != Outcome::NoMatch) {
        last = outcome == Outcome::Match ? startBehind(position_, rangeBytes_) - 1 : position_;
    }
    const Outcome exact =
        exactCode_().runMachineCode({data_, length_, 0, kMatchLimitSteps, nullptr, last});
    if (outcome != Outcome::StepLimit || exact != Outcome::NoMatch || last == length_) {
        return exact;
    }
    position_ = startBehind(position_, 1);
    steps_ = least_;
    raised_ = kNowhere;
    return std::nullopt;
}

Outcome GuardedTry::attempt(Engine engine) {
    position_ = kNowhere;
    passed_ = false;
    isSlow_ = false;
    calls_ = 0;
    effort_ = 0;
    begun_ = std::chrono::steady_clock::now();
    const std::int64_t begun = s_processorNanos();
    std::size_t start = from_;
    if (!canStartAt(start)) {
        // From the character before it, the run comes there again.
        for (--start; isWithinCharacter(data_, length_, start);) {
            --start;
        }
    }
    const EngineCode::Run run{data_, length_, start, steps_, this};
    const Outcome outcome =
        engine == Engine::MachineCode ? code_.runMachineCode(run) : code_.interpret(run);
    nanos_ = s_processorNanos() - begun;
    return outcome;
}

// From the position under way on. Where a position needs more steps, its range is the one under way then.
Outcome GuardedTry::runByRanges() {
    const EngineCode &code = rangeCode_();
    while (position_ <= length_ && !budget_.look()) {
        const std::size_t end = startBehind(position_, rangeBytes_);
        const Outcome outcome =
            code.runMachineCode({data_, length_, position_, kRangeSteps, this, end - 1});
        if (outcome != Outcome::NoMatch) {
            return outcome;
        }
        position_ = end;
    }
    return budget_.ended() ? Outcome::Stopped : Outcome::NoMatch;
}

// The first position at least so many bytes on. A run starts neither within a character nor between the bytes of a line
// end.
std::size_t GuardedTry::startBehind(std::size_t begin, std::size_t bytes) const {
    const bool isUtf = code_.characters() == EngineCode::Characters::ValidUtf8;
    std::size_t end = begin + bytes;
    while (end < length_ && ((isUtf && isWithinCharacter(data_, length_, end)) ||
                             (data_[end] == '\n' && data_[end - 1] == '\r'))) {
        ++end;
    }
    return std::min(end, length_ + 1);
}

// More steps for the position under way; answers whether there is time for them.
bool GuardedTry::raise() {
    // The steps may not even do for the call that tells the position.
    position_ = position_ == kNowhere ? from_ : position_;
    // The run that met the position first went over others as well.
    const double nanos = raised_ == position_ ? static_cast<double>(nanos_) : 0;
    const double times =
        nanos > 0 ? std::clamp(kCheapNanos / nanos, kLeastTimes, double{kMostTimes}) : kMostTimes;
    raised_ = position_;
    steps_ = static_cast<std::uint32_t>(std::min<double>(steps_ * times + 1, kMatchLimitSteps));
    isDoubtful_ |= steps_ > kDoubtfulSteps;
    return budget_.affords(std::chrono::nanoseconds(static_cast<std::int64_t>(nanos * times)));
}

} // namespace Corvane::Regex
