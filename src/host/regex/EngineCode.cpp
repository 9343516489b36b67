#include "host/regex/EngineCode.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <optional>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include "host/parser/Lasting.h"
#include "host/regex/HeldPattern.h"
#include "host/regex/PatternStart.h"

namespace Corvane::Regex {

namespace {

// Machine code keeps its backtracking in a stack of this size, one per thread. What needs more is
// matched once again by the interpreter, whose memory kInterpreterHeapKiB bounds.
constexpr std::size_t kJitStackStartBytes = 32U << 10U;
constexpr std::size_t kJitStackMaxBytes = 1024U << 10U;
constexpr unsigned int kInterpreterHeapKiB = 64 * 1024;

// What a watched pattern begins with.
constexpr const char *kCallback = "(?C)";
static_assert(EngineCode::kNoLastStart == PCRE2_UNSET);

struct CompileContextDeleter {
    void operator()(pcre2_compile_context *context) const { pcre2_compile_context_free(context); }
};
struct MatchContextDeleter {
    void operator()(pcre2_match_context *context) const { pcre2_match_context_free(context); }
};
struct MatchDataDeleter {
    void operator()(pcre2_match_data *data) const { pcre2_match_data_free(data); }
};
struct JitStackDeleter {
    void operator()(pcre2_jit_stack *stack) const { pcre2_jit_stack_free(stack); }
};

// Whom to tell of what callbacks.
struct Called {
    Called(RunWatcher &told, std::size_t watchedPlace) : watcher(told), place(watchedPlace) {}

    RunWatcher &watcher;
    std::size_t place;
    std::size_t position = std::numeric_limits<std::size_t>::max();
};

struct Followed {
    FurthestTry furthest;
    std::uint64_t &stepsLeft;
};

// Told before each item of the pattern is tried. Callbacks of the pattern's own have other numbers.
int s_followed(pcre2_callout_block *block, void *context) {
    constexpr std::uint32_t kOfTheEngine = 255;
    auto &followed = *static_cast<Followed *>(context);
    if (block->callout_number != kOfTheEngine) {
        return 0;
    }
    const std::size_t taken =
        block->current_position - std::min(block->start_match, block->current_position);
    FurthestTry &furthest = followed.furthest;
    const std::size_t most = furthest.end - furthest.start;
    if (!furthest.isKnown || taken > most ||
        (taken == most && block->pattern_position > furthest.item)) {
        furthest = {true,
                    true,
                    block->current_position - taken,
                    block->current_position,
                    block->pattern_position,
                    block->next_item_length};
    }
    if (followed.stepsLeft == 0) {
        return PCRE2_ERROR_CALLOUT;
    }
    --followed.stepsLeft;
    return 0;
}

// Callbacks that the pattern itself asks for have no other effect than those that were put into it, and where the pattern
// calls itself the position is known already.
int s_called(pcre2_callout_block *block, void *context) {
    auto &called = *static_cast<Called *>(context);
    const bool isKnown =
        block->pattern_position != called.place || block->start_match == called.position;
    called.position = isKnown ? called.position : block->start_match;
    const bool goesOn = isKnown ? called.watcher.goesOn() : called.watcher.begins(called.position);
    return goesOn ? 0 : PCRE2_ERROR_CALLOUT;
}

Outcome s_outcome(int result) {
    if (result >= 0) {
        return Outcome::Match;
    }
    switch (result) {
    case PCRE2_ERROR_NOMATCH:
        return Outcome::NoMatch;
    case PCRE2_ERROR_MATCHLIMIT:
        return Outcome::StepLimit;
    case PCRE2_ERROR_DEPTHLIMIT:
    case PCRE2_ERROR_HEAPLIMIT:
        return Outcome::OtherLimit;
    case PCRE2_ERROR_JIT_STACKLIMIT:
        return Outcome::Unsuited;
    case PCRE2_ERROR_CALLOUT:
        return Outcome::Stopped;
    case PCRE2_ERROR_NOMEMORY:
        throw std::bad_alloc();
    default:
        return Outcome::Failed;
    }
}

// What one thread needs to run expressions, made on its first match.
class MatchState {
public:
    MatchState()
        : data_(pcre2_match_data_create(1, nullptr)),
          stack_(pcre2_jit_stack_create(kJitStackStartBytes, kJitStackMaxBytes, nullptr)),
          context_(pcre2_match_context_create(nullptr)) {
        if (data_ == nullptr || stack_ == nullptr || context_ == nullptr) {
            throw std::bad_alloc();
        }
        pcre2_set_match_limit(context_.get(), steps_);
        pcre2_set_heap_limit(context_.get(), kInterpreterHeapKiB);
        pcre2_jit_stack_assign(context_.get(), nullptr, stack_.get());
    }

    pcre2_match_data *data() const { return data_.get(); }

    // For a run with all steps that is not held up.
    pcre2_match_context *plainContext() {
        if (!isPlain_) {
            isPlain_ = true;
            set({nullptr, 0, 0, kMatchLimitSteps}, nullptr);
        }
        return context_.get();
    }

    // called must outlive the run, and may be null.
    pcre2_match_context *context(const EngineCode::Run &run, void *called) {
        isPlain_ = false;
        set(run, called);
        return context_.get();
    }

private:
    void set(const EngineCode::Run &run, void *called) {
        if (run.steps != steps_) {
            steps_ = run.steps;
            pcre2_set_match_limit(context_.get(), steps_);
        }
        if (run.lastStart != lastStart_) {
            lastStart_ = run.lastStart;
            pcre2_set_offset_limit(context_.get(), lastStart_);
        }
        if (called != nullptr || isCalled_) {
            isCalled_ = called != nullptr;
            pcre2_set_callout(context_.get(), isCalled_ ? &s_called : nullptr, called);
        }
    }

    std::unique_ptr<pcre2_match_data, MatchDataDeleter> data_;
    std::unique_ptr<pcre2_jit_stack, JitStackDeleter> stack_;
    std::unique_ptr<pcre2_match_context, MatchContextDeleter> context_;
    // What the context was last told.
    std::uint32_t steps_ = kMatchLimitSteps;
    std::size_t lastStart_ = EngineCode::kNoLastStart;
    bool isCalled_ = false;
    bool isPlain_ = true;
};

MatchState &s_matchState() {
    return PerThread<MatchState>::value();
}

std::uint32_t s_compileOptions(const Definition &definition, EngineCode::Characters characters) {
    std::uint32_t options = 0;
    options |= definition.ignoreCase ? PCRE2_CASELESS : 0U;
    options |= definition.multiline ? PCRE2_MULTILINE : 0U;
    options |= definition.dotMatchesAll ? PCRE2_DOTALL : 0U;
    options |= definition.extended ? PCRE2_EXTENDED : 0U;
    switch (characters) {
    case EngineCode::Characters::Bytes:
        // A pattern must not switch itself to UTF-8, in which 8-bit mail never matches.
        return options | PCRE2_NEVER_UTF | PCRE2_NEVER_UCP;
    case EngineCode::Characters::ValidUtf8:
        return options | PCRE2_UTF;
    default:
        // One bad byte must not hide the rest of the subject from the expression.
        return options | PCRE2_UTF | PCRE2_MATCH_INVALID_UTF;
    }
}

std::string s_compileError(int error, std::size_t offset) {
    constexpr std::size_t kMessageBytes = 256;
    std::array<PCRE2_UCHAR, kMessageBytes> message{};
    pcre2_get_error_message(error, message.data(), message.size());
    return std::string(reinterpret_cast<const char *>(message.data())) + " at offset " +
           std::to_string(offset);
}

pcre2_code *s_compile(const std::string &pattern, std::uint32_t options,
                      const Definition &definition, const std::string &text) {
    const std::unique_ptr<pcre2_compile_context, CompileContextDeleter> context(
        pcre2_compile_context_create(nullptr));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    pcre2_set_newline(context.get(),
                      definition.anyLineEnd ? PCRE2_NEWLINE_ANYCRLF : PCRE2_NEWLINE_LF);
    int error = 0;
    PCRE2_SIZE offset = 0;
    pcre2_code *code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                     options, &error, &offset, context.get());
    if (error == PCRE2_ERROR_HEAP_FAILED) {
        // The pattern is not to blame.
        throw std::bad_alloc();
    }
    if (code == nullptr) {
        refuseExpression(s_compileError(error, offset), text, __LINE__);
    }
    return code;
}

bool s_setsLimit(const pcre2_code *code) {
    std::uint32_t limit = 0;
    return pcre2_pattern_info(code, PCRE2_INFO_MATCHLIMIT, &limit) == 0 ||
           pcre2_pattern_info(code, PCRE2_INFO_DEPTHLIMIT, &limit) == 0 ||
           pcre2_pattern_info(code, PCRE2_INFO_HEAPLIMIT, &limit) == 0;
}

// Whether the engine, having tried at a CR, passes over an LF behind it: where both may end a line and
// the pattern names neither.
bool s_skipsLfBehindCr(const pcre2_code *code) {
    std::uint32_t newline = 0;
    std::uint32_t isNamed = 0;
    pcre2_pattern_info(code, PCRE2_INFO_NEWLINE, &newline);
    pcre2_pattern_info(code, PCRE2_INFO_HASCRORLF, &isNamed);
    return isNamed == 0 && (newline == PCRE2_NEWLINE_ANYCRLF || newline == PCRE2_NEWLINE_CRLF ||
                            newline == PCRE2_NEWLINE_ANY);
}

bool s_startsAtLines(const pcre2_code *code) {
    constexpr std::uint32_t kLineStarts = 2;
    std::uint32_t type = 0;
    pcre2_pattern_info(code, PCRE2_INFO_FIRSTCODETYPE, &type);
    return type == kLineStarts;
}

} // namespace

void EngineCode::Deleter::operator()(pcre2_real_code_8 *code) const {
    pcre2_code_free(code);
}

EngineCode::EngineCode(const Definition &definition, const std::string &text, Characters characters,
                       Hold hold, bool jit)
    : characters_(characters) {
    const StartOptions start = readStartOptions(definition.pattern);
    std::string pattern = definition.pattern;
    std::uint32_t options = s_compileOptions(definition, characters);
    if (hold == Hold::Watcher || hold == Hold::LastStart) {
        pattern = start.others;
        pattern += hold == Hold::Watcher ? kCallback : "";
        watchedPlace_ = pattern.size();
        pattern += heldPattern(definition).proper;
        notEmptyAtStart_ = start.notEmptyAtStart;
    }
    const bool hasLastStart = hold == Hold::LastStart || hold == Hold::LastStartAlone;
    options |= hasLastStart ? PCRE2_USE_OFFSET_LIMIT : 0U;
    options |= hold == Hold::Followed ? PCRE2_AUTO_CALLOUT | PCRE2_NO_START_OPTIMIZE : 0U;
    code_.reset(s_compile(pattern, options, definition, text));
    if (characters == Characters::BrokenUtf8 && s_startsAtLines(code_.get())) {
        // Where it looks for the next line start, the engine misses some behind bad bytes.
        code_.reset(s_compile(pattern, options | PCRE2_NO_START_OPTIMIZE, definition, text));
    }
    if (jit && characters != Characters::BrokenUtf8) {
        translate(definition, start.end > 0);
    }
}

// Makes machine code where that can express the pattern and gives the same answers: it counts steps
// in its own way, knows no other limits, does not count within look-arounds that are not atomic, and what
// it makes of verbs depends on which positions it passes over.
void EngineCode::translate(const Definition &definition, bool hasStartOptions) {
    if (mayHoldNonAtomicLookaround(definition.pattern) || mayHoldVerb(definition.pattern) ||
        s_setsLimit(code_.get())) {
        return;
    }
    std::size_t bytes = 0;
    pcre2_jit_compile(code_.get(), PCRE2_JIT_COMPLETE);
    pcre2_pattern_info(code_.get(), PCRE2_INFO_JITSIZE, &bytes);
    if (bytes > 0) {
        skipsLfBehindCr_ = s_skipsLfBehindCr(code_.get());
        way_ = hasStartOptions ? Way::Checked : Way::Direct;
    }
}

bool EngineCode::isAnchored() const {
    std::uint32_t options = 0;
    pcre2_pattern_info(code_.get(), PCRE2_INFO_ALLOPTIONS, &options);
    return (options & PCRE2_ANCHORED) != 0;
}

std::uint32_t EngineCode::options(const Run &run) const {
    return (characters_ == Characters::ValidUtf8 ? PCRE2_NO_UTF_CHECK : 0U) |
           (notEmptyAtStart_ && run.start == 0 ? PCRE2_NOTEMPTY_ATSTART : 0U);
}

Outcome EngineCode::runMachineCode(const Run &run) const {
    if (run.watcher == nullptr) {
        return callMachineCode(run, nullptr);
    }
    Called called(*run.watcher, watchedPlace_);
    return callMachineCode(run, &called);
}

Outcome EngineCode::callMachineCode(const Run &run, void *called) const {
    MatchState &state = s_matchState();
    pcre2_match_context *context = state.context(run, called);
    const Outcome outcome = s_outcome(
        way_ == Way::Direct ? pcre2_jit_match(code_.get(), run.data, run.length, run.start,
                                              options(run), state.data(), context)
                            : pcre2_match(code_.get(), run.data, run.length, run.start,
                                          options(run), state.data(), context));
    return checked(outcome, run, pcre2_get_startchar(state.data()));
}

Outcome EngineCode::run(const unsigned char *data, std::size_t length, std::size_t start) const {
    if (way_ != Way::Direct) {
        return run({data, length, start, kMatchLimitSteps});
    }
    MatchState &state = s_matchState();
    const int result =
        pcre2_jit_match(code_.get(), data, length, start,
                        characters_ == Characters::ValidUtf8 ? PCRE2_NO_UTF_CHECK : 0U,
                        state.data(), state.plainContext());
    if (result == PCRE2_ERROR_NOMATCH) {
        return Outcome::NoMatch;
    }
    return settled(s_outcome(result), {data, length, start, kMatchLimitSteps});
}

// What became of a run of machine code that may have begun where the engine would not.
Outcome EngineCode::settled(Outcome outcome, const Run &run) const {
    const std::size_t begun = pcre2_get_startchar(s_matchState().data());
    const bool isUnsuited = checked(outcome, run, begun) == Outcome::Unsuited;
    return isUnsuited ? interpret(run) : outcome;
}

// Machine code that looks ahead for where a match may begin takes no notice of a CR on its way.
Outcome EngineCode::checked(Outcome outcome, const Run &run, std::size_t position) const {
    const bool isBehindCr = outcome == Outcome::Match && skipsLfBehindCr_ && position > run.start &&
                            position < run.length && run.data[position] == '\n' &&
                            run.data[position - 1] == '\r';
    return isBehindCr ? Outcome::Unsuited : outcome;
}

Outcome EngineCode::interpret(const Run &run) const {
    std::optional<Called> called;
    if (run.watcher != nullptr) {
        called.emplace(*run.watcher, watchedPlace_);
    }
    MatchState &state = s_matchState();
    return s_outcome(pcre2_match(code_.get(), run.data, run.length, run.start,
                                 options(run) | PCRE2_NO_JIT, state.data(),
                                 state.context(run, called ? &*called : nullptr)));
}

// A \K in a look-ahead can put the start behind the end.
std::pair<std::size_t, std::size_t> EngineCode::lastRange() {
    const PCRE2_SIZE *range = pcre2_get_ovector_pointer(s_matchState().data());
    return std::minmax({range[0], range[1]});
}

FurthestTry EngineCode::furthest(const unsigned char *data, std::size_t length,
                                 std::uint64_t &steps) const {
    const std::unique_ptr<pcre2_match_data, MatchDataDeleter> found(
        pcre2_match_data_create(1, nullptr));
    const std::unique_ptr<pcre2_match_context, MatchContextDeleter> context(
        pcre2_match_context_create(nullptr));
    if (found == nullptr || context == nullptr) {
        throw std::bad_alloc();
    }
    Followed followed{{}, steps};
    pcre2_set_match_limit(context.get(), kMatchLimitSteps);
    pcre2_set_heap_limit(context.get(), kInterpreterHeapKiB);
    pcre2_set_callout(context.get(), &s_followed, &followed);
    const Outcome outcome = s_outcome(pcre2_match(
        code_.get(), data, length, 0, options({data, length, 0, kMatchLimitSteps}) | PCRE2_NO_JIT,
        found.get(), context.get()));
    followed.furthest.isComplete = outcome == Outcome::Match || outcome == Outcome::NoMatch;
    return followed.furthest;
}

Outcome EngineCode::run(const Run &run) const {
    const Outcome outcome = hasMachineCode() ? runMachineCode(run) : Outcome::Unsuited;
    return outcome == Outcome::Unsuited ? interpret(run) : outcome;
}

} // namespace Corvane::Regex
