#ifndef CORVANE_HOST_PARSER_BUDGET_H
#define CORVANE_HOST_PARSER_BUDGET_H

// How much processor time the scan of a message may take, and what became of it.
//
//     Budget budget(std::chrono::seconds(2));
//     {
//         const Budget::Use use(budget);
//         const Mail mail = MailReader().read(bytes, length);
//         scanner.process(matches, mail.properties(), mail.sender(), 0, false);
//     }
//     if (budget.ended()) { ... the score is what was added until then ... }
//
// All that a thread does while a budget is in use counts: reading, searching, trying. What works over
// input of any size says how much it has done, and the clock is looked at once that is much. When
// the time is used up the budget ends, and what sees that leaves the rest: no further rule is
// tried, and no stage of a scan begins. A budget that does not end changes no verdict.
//
// Threads: one budget is used by one thread at a time, one after the other if need be; ended() and
// end() may be called by any.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/parser/Export.h"

namespace Corvane {

class CORVANE_PARSER_API Budget {
public:
    // Zero or less: it never ends by itself and only counts.
    explicit Budget(std::chrono::nanoseconds processorTime);
    Budget(const Budget &) = delete;
    Budget &operator=(const Budget &) = delete;
    ~Budget();

    // Whether the time is used up. Once true it stays so.
    bool ended() const { return ended_.load(std::memory_order_relaxed); }

    // Ends the budget as though its time were used up.
    void end() { ended_.store(true, std::memory_order_relaxed); }

    // The processor time that its users have taken, up to the last look at the clock; 0 for one that
    // never ends.
    std::chrono::nanoseconds used() const { return std::chrono::nanoseconds(used_); }

    // The tries of expressions that were made, and the bytes of the texts that they were made on.
    std::uint64_t tries() const { return tries_; }
    std::uint64_t triedBytes() const { return triedBytes_; }

    // The tries of expressions that ended because they needed too many steps, and which therefore
    // did not match. It tells of the tries that were made: a scan through an index makes fewer of
    // them than a walk over all rules.
    std::uint64_t stepLimited() const { return stepLimited_; }

    // The names of the rules of such tries, each once, in the order of their first; no more than
    // kMaxNamedRules of them. Tries on behalf of no rule are counted without a name.
    const std::vector<std::string> &stepLimitedRules() const { return stepLimitedRules_; }
    static constexpr std::size_t kMaxNamedRules = 100;

    // Makes a budget, which must outlive it, that of whatever the constructing thread does while it
    // lives; the former one, if there was any, is the thread's again afterwards. To be destroyed by
    // that thread, in reverse order. The time of an inner budget counts for the outer one as well.
    class CORVANE_PARSER_API Use {
    public:
        explicit Use(Budget &budget);
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;
        ~Use();

    private:
        Budget &budget_;
        Budget *former_;
    };

    // The budget that the calling thread uses; null where it uses none.
    static Budget *ofThisThread() noexcept;

    // Whether the calling thread uses a budget that has ended.
    static bool isOver() noexcept {
        const Budget *budget = ofThisThread();
        return budget != nullptr && budget->ended();
    }

    // Notes work of the calling thread: bytes that were looked at, or steps of a few nanoseconds.
    // Answers isOver(), for which the clock is looked at after each kWorkBetweenLooks.
    static bool spend(std::uint64_t work) {
        Budget *budget = ofThisThread();
        return budget != nullptr && budget->note(work);
    }
    static constexpr std::uint64_t kWorkBetweenLooks = std::uint64_t{128} << 10U;

    // The same for a budget at hand, which must be the calling thread's.
    bool note(std::uint64_t work) {
        work_ += work;
        return work_ < kWorkBetweenLooks ? ended() : look();
    }

    // Looks at the clock at once; answers ended(). It costs some 30 ns, and a call of the system only
    // where the time might be used up.
    bool look();

    // Whether there is time for something that will take so much processor time and cannot be
    // stopped; where it would take kMaxOverrun more than is left, the budget ends. Answers !ended().
    bool affords(std::chrono::nanoseconds time);
    static constexpr std::chrono::milliseconds kMaxOverrun{50};

    // Whether it ends by itself.
    bool hasEnd() const { return limit_ > 0; }

    // Notes a try on a text of so many bytes.
    void countTry(std::uint64_t bytes) {
        ++tries_;
        triedBytes_ += bytes;
    }

    // Notes a try that ended at the step limit. Whoever knows the rule on whose behalf it was made asks
    // afterwards whether there is one that has no name yet, which is then taken to have got one, and
    // adds the name.
    void countStepLimit() { ++stepLimited_; }
    bool takeUnnamed() { return std::exchange(named_, stepLimited_) != stepLimited_; }
    void addStepLimitedRule(const std::string &name);

private:
    void start();
    void stop();
    void endIfUsedBy(std::int64_t now, std::int64_t nanos);

    // All in nanoseconds. started_ is by the thread's clock of processor time, cannotEndBefore_ by
    // the clock of the wall: no thread takes more processor time than passes.
    std::int64_t limit_;
    std::int64_t used_ = 0;
    std::int64_t usedBefore_ = 0;
    std::int64_t started_ = 0;
    std::int64_t cannotEndBefore_ = 0;
    std::uint64_t work_ = 0;
    unsigned int uses_ = 0;
    std::atomic<bool> ended_{false};
    std::uint64_t tries_ = 0;
    std::uint64_t triedBytes_ = 0;
    std::uint64_t stepLimited_ = 0;
    std::uint64_t named_ = 0;
    std::vector<std::string> stepLimitedRules_;
};

} // namespace Corvane

#endif
