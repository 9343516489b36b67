#ifndef CORVANE_SRC_HOST_REGEX_ENGINECODE_H
#define CORVANE_SRC_HOST_REGEX_ENGINECODE_H

// One pattern as the engine has compiled it, and the runs of it.
//
// Threads: immutable once constructed; any number of threads may run one at once.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/regex/Definition.h"
#include "host/regex/Expression.h"

struct pcre2_real_code_8;

namespace Corvane::Regex {

// Steps that one try may take from one start position, on every path. Real patterns on real mail
// stay far below; it ends a try of a bad pattern after milliseconds.
constexpr std::uint32_t kMatchLimitSteps = 10000;

// What became of a run.
enum class Outcome : std::uint8_t {
    Match,
    NoMatch,
    StepLimit,  // it needed more steps than it was given
    OtherLimit, // more depth or memory than it may have
    Unsuited,   // machine code alone: it needed too large a stack, or might not be right
    Stopped,    // by the watcher
    Failed
};

// Told of each position from which a run tries to match, and within that now and then.
class RunWatcher {
public:
    // Answer whether the run is to go on.
    virtual bool begins(std::size_t position) = 0;
    virtual bool goesOn() = 0;

protected:
    ~RunWatcher() = default;
};

class EngineCode {
public:
    // How the subject is read.
    enum class Characters : std::uint8_t {
        Bytes,
        ValidUtf8, // the subject must be UTF-8
        BrokenUtf8, // bytes that are no UTF-8 match nothing; without machine code, and only for what ReadableText gives
    };

    // How its runs can be held up: not at all; by a watcher; behind a last position to start from, and by a
    // watcher that is told of no positions; or behind a last position alone, in which case it counts the
    // steps that a code counts that is not held up. What can be followed is for furthest() alone.
    enum class Hold : std::uint8_t { No, Watcher, LastStart, LastStartAlone, Followed };
    static constexpr std::size_t kNoLastStart = ~std::size_t{0};

    // Where in a text to start, which must not be beyond its length, and with how many steps from each
    // position. watcher may be null; it and another lastStart are for codes that are held up so.
    struct Run {
        const unsigned char *data;
        std::size_t length;
        std::size_t start;
        std::uint32_t steps;
        RunWatcher *watcher = nullptr;
        std::size_t lastStart = kNoLastStart;
    };

    // Compiles the pattern of a definition, whose text is named where it is refused. What can be held up
    // reads a \G as the beginning of the text. Throws code 4 for a pattern that does not compile.
    EngineCode(const Definition &definition, const std::string &text, Characters characters,
               Hold hold, bool jit);

    // Runs machine code where there is any, and where there is none, or that needs more stack than a
    // thread keeps or does not give the interpreter's answer, the interpreter.
    Outcome run(const Run &run) const;

    // The same from a start with all steps, for a code that is not held up: what nearly every try is.
    Outcome run(const unsigned char *data, std::size_t length, std::size_t start) const;

    // Either alone; there must be machine code to be run.
    Outcome interpret(const Run &run) const;
    Outcome runMachineCode(const Run &run) const;
    bool hasMachineCode() const { return way_ != Way::Interpret; }

    // Where the match is that the thread's last run, of any code, has found: the run must be known to have done so.
    static std::pair<std::size_t, std::size_t> lastRange();

    // The furthest that a search comes in so many steps, which are taken off; of a code that can be followed.
    FurthestTry furthest(const unsigned char *data, std::size_t length, std::uint64_t &steps) const;

    Characters characters() const { return characters_; }

    // Whether it can match at the start of a run alone.
    bool isAnchored() const;

private:
    // Machine code called directly is the fastest, but takes no notice of some options that a
    // pattern begins with.
    enum class Way : std::uint8_t { Interpret, Direct, Checked };

    struct Deleter {
        void operator()(pcre2_real_code_8 *code) const;
    };

    Outcome callMachineCode(const Run &run, void *called) const;
    void translate(const Definition &definition, bool hasStartOptions);
    [[gnu::noinline]] Outcome settled(Outcome outcome, const Run &run) const;
    Outcome checked(Outcome outcome, const Run &run, std::size_t position) const;
    std::uint32_t options(const Run &run) const;

    std::unique_ptr<pcre2_real_code_8, Deleter> code_;
    // Where in the pattern the engine says to be when it starts.
    std::size_t watchedPlace_ = 0;
    Way way_ = Way::Interpret;
    Characters characters_;
    // Whether an LF behind a CR is no place to start at unless the run does.
    bool skipsLfBehindCr_ = false;
    // Left out of the pattern, to be given with the run that starts where the text does.
    bool notEmptyAtStart_ = false;
};

} // namespace Corvane::Regex

#endif
