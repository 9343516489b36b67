#include "host/regex/Expression.h"

#include <algorithm>
#include <mutex>
#include <tuple>
#include <utility>

#include "host/parser/Budget.h"
#include "host/parser/Exception.h"
#include "host/regex/Definition.h"
#include "host/regex/EngineCode.h"
#include "host/regex/GuardedTry.h"
#include "host/regex/HeldPattern.h"
#include "host/regex/PatternStart.h"
#include "host/regex/Utf8Text.h"

namespace Corvane::Regex {

namespace {

using Characters = EngineCode::Characters;
using Hold = EngineCode::Hold;

// A code that few patterns ever need, made by the first thread that does.
class CodeOnDemand {
public:
    template <class... Arguments>
    const EngineCode &get(const Arguments &...arguments) const {
        std::call_once(made_, [&] { code_ = std::make_unique<const EngineCode>(arguments...); });
        return *code_;
    }

    // Null where the pattern does not compile with what is put into it to hold it up: one that was
    // nearly too large before.
    template <class... Arguments>
    const EngineCode *find(const Arguments &...arguments) const {
        std::call_once(made_, [&] {
            try {
                code_ = std::make_unique<const EngineCode>(arguments...);
            } catch (const Exception &) {
                code_ = nullptr;
            }
        });
        return code_.get();
    }

private:
    mutable std::once_flag made_;
    mutable std::unique_ptr<const EngineCode> code_;
};

// What a try costs besides the bytes that it reads, and each byte, in units of work; and the most that
// a try is taken for, so that the clock is looked at between a few of them.
constexpr std::uint64_t kTryWork = 256;
constexpr std::uint64_t kByteWork = 16;
constexpr std::uint64_t kMostTryWork = Budget::kWorkBetweenLooks / 4;

// Longer texts are tried with a guard at once. Machine code does not count how often a group is repeated, so what is in
// it may read the whole text that often.
constexpr std::size_t kMaxUnguardedBytes = 4096;
constexpr std::size_t kMaxUnguardedRereadBytes = 512;

std::size_t s_mostUnguardedBytes(const Definition &definition) {
    return heldPattern(definition).rereads ? kMaxUnguardedRereadBytes : kMaxUnguardedBytes;
}

} // namespace

// The forms of one pattern. Machine code for UTF-8 is wrong about some characters where it has to
// expect broken ones as well, and reads behind a text that ends in one; so texts that are no UTF-8
// are the interpreter's.
struct ExpressionImpl::Code {
    Code(const std::string &text, unsigned int options, bool jit)
        : Code(parseDefinition(text, options), text, jit) {}

    Code(Definition &&parsed, const std::string &text, bool jit)
        : plain(parsed, text, parsed.utf ? Characters::ValidUtf8 : Characters::Bytes, Hold::No,
                jit),
          machineCode(jit), mostUnguardedBytes(s_mostUnguardedBytes(parsed)),
          definition(std::move(parsed)) {}

    // Whether the text, or its cut at the start, is no UTF-8 where the pattern expects that.
    bool breaks(const unsigned char *data, std::size_t length, std::size_t start) const {
        return plain.characters() == Characters::ValidUtf8 &&
               (!isUtf8(data, length) || isWithinCharacter(data, length, start));
    }

    const EngineCode &brokenCode() const { return get(broken, Characters::BrokenUtf8, Hold::No); }
    const EngineCode *watchedCode(bool isBroken) const {
        return (isBroken ? watchedBroken : watched)
            .find(definition, definition.pattern,
                  isBroken ? Characters::BrokenUtf8 : plain.characters(), Hold::Watcher,
                  machineCode);
    }
    const EngineCode &rangedCode() const {
        return get(ranged, plain.characters(), Hold::LastStart);
    }
    const EngineCode &exactCode() const {
        return get(exact, plain.characters(), Hold::LastStartAlone);
    }
    const EngineCode &get(const CodeOnDemand &code, Characters characters, Hold hold) const {
        return code.get(definition, definition.pattern, characters, hold, machineCode);
    }

    Outcome match(const unsigned char *data, std::size_t length, std::size_t start,
                  std::uint32_t steps) const {
        if (!breaks(data, length, start)) {
            return plain.run({data, length, start, steps});
        }
        const ReadableText text(data, length);
        return brokenCode().run({text.data(), length, start, steps});
    }

    Outcome matchWithin(Budget &budget, const unsigned char *data, std::size_t length) const;
    Outcome matchCounted(Budget &budget, const unsigned char *data, std::size_t length,
                         std::size_t start) const;

    // For tries with a budget, which may be null, and all that is not simple: apart from the ones that
    // are, which are made so often that what a call saves counts.
    [[gnu::noinline]] Outcome matchWith(Budget *budget, const unsigned char *data,
                                        std::size_t length, std::size_t start) const;

    // All that nearly every try needs, together.
    EngineCode plain;
    bool machineCode;
    std::size_t mostUnguardedBytes;
    Definition definition;
    CodeOnDemand broken;
    CodeOnDemand watched;
    CodeOnDemand watchedBroken;
    CodeOnDemand ranged;
    CodeOnDemand exact;
};

// Runs unguarded as far as that takes no time worth mentioning, which is enough for nearly every try.
Outcome ExpressionImpl::Code::matchWithin(Budget &budget, const unsigned char *data,
                                          std::size_t length) const {
    const std::uint32_t steps = GuardedTry::harmlessSteps(length);
    if (length <= mostUnguardedBytes) {
        const Outcome outcome = match(data, length, 0, steps);
        if (outcome != Outcome::StepLimit || steps == kMatchLimitSteps) {
            return outcome;
        }
    }
    const bool isBroken = breaks(data, length, 0);
    const EngineCode *watchedForm = watchedCode(isBroken);
    if (watchedForm == nullptr) {
        return match(data, length, 0, kMatchLimitSteps);
    }
    if (isBroken) {
        const ReadableText text(data, length);
        return GuardedTry(*watchedForm, text.data(), length, budget, GuardedTry::firstSteps(length))
            .run();
    }
    GuardedTry guarded(*watchedForm, data, length, budget, GuardedTry::firstSteps(length));
    if (!mayHoldVerb(definition.pattern)) {
        guarded.rangesBy([this]() -> const EngineCode & { return rangedCode(); });
    }
    guarded.decidedBy([this]() -> const EngineCode & { return exactCode(); });
    return guarded.run();
}

// What the end of the budget leaves undecided is a failure.
Outcome ExpressionImpl::Code::matchCounted(Budget &budget, const unsigned char *data,
                                           std::size_t length, std::size_t start) const {
    if (budget.ended()) {
        return Outcome::Stopped;
    }
    budget.countTry(length - start);
    const Outcome outcome = budget.hasEnd() && start == 0
                                ? matchWithin(budget, data, length)
                                : match(data, length, start, kMatchLimitSteps);
    if (budget.ended()) {
        return Outcome::Stopped;
    }
    if (outcome == Outcome::StepLimit || outcome == Outcome::OtherLimit) {
        budget.countStepLimit();
    }
    budget.note(std::min(kTryWork + kByteWork * length, kMostTryWork));
    return outcome;
}

Outcome ExpressionImpl::Code::matchWith(Budget *budget, const unsigned char *data,
                                        std::size_t length, std::size_t start) const {
    if (start > length) {
        return Outcome::Failed;
    }
    return budget == nullptr ? match(data, length, start, kMatchLimitSteps)
                             : matchCounted(*budget, data, length, start);
}

ExpressionImpl::ExpressionImpl(const std::string &text, unsigned int options, bool jit)
    : code_(std::make_unique<const Code>(text, options, jit)) {}

ExpressionImpl::~ExpressionImpl() = default;

bool ExpressionImpl::matches(const Buffer &subject, unsigned int start, bool *failed) const {
    return matches(subject.data(), subject.length(), start, failed);
}

bool ExpressionImpl::matches(const unsigned char *data, std::size_t length, std::size_t start,
                             bool *failed) const {
    constexpr unsigned char kNothing = 0;
    const unsigned char *bytes = data != nullptr ? data : &kNothing;
    Budget *budget = Budget::ofThisThread();
    const bool isSimple =
        budget == nullptr && start <= length && code_->plain.characters() == Characters::Bytes;
    const Outcome outcome = isSimple ? code_->plain.run(bytes, length, start)
                                     : code_->matchWith(budget, bytes, length, start);
    if (failed != nullptr) {
        *failed = outcome != Outcome::Match && outcome != Outcome::NoMatch;
    }
    return outcome == Outcome::Match;
}

FoundRange ExpressionImpl::find(const unsigned char *data, std::size_t length) const {
    constexpr unsigned char kNothing = 0;
    const unsigned char *bytes = data != nullptr ? data : &kNothing;
    FoundRange found;
    found.matched = matches(bytes, length, 0, &found.failed);
    // With a budget the match may have been found in steps that say nothing of its end.
    if (found.matched && code_->match(bytes, length, 0, kMatchLimitSteps) == Outcome::Match) {
        std::tie(found.start, found.end) = EngineCode::lastRange();
    }
    return found;
}

FurthestTry ExpressionImpl::furthest(const unsigned char *data, std::size_t length,
                                     std::uint64_t &steps) const {
    constexpr unsigned char kNothing = 0;
    const unsigned char *bytes = data != nullptr ? data : &kNothing;
    const bool isUtf = code_->definition.utf;
    try {
        const EngineCode followed(code_->definition, code_->definition.pattern,
                                  isUtf ? Characters::BrokenUtf8 : Characters::Bytes,
                                  Hold::Followed, false);
        return isUtf ? followed.furthest(ReadableText(bytes, length).data(), length, steps)
                     : followed.furthest(bytes, length, steps);
    } catch (const Exception &) {
        // Nearly too large before, and too large with what is told of each item.
        return {};
    }
}

const std::string &ExpressionImpl::pattern() const {
    return code_->definition.pattern;
}

bool ExpressionImpl::isAnchored() const {
    return code_->plain.isAnchored();
}

Expression::Expression() = default;

Expression::Expression(const std::string &text, unsigned int options, bool jit)
    : Ref<ExpressionImpl>(text.empty()
                              ? Ref<ExpressionImpl>()
                              : Ref<ExpressionImpl>(new ExpressionImpl(text, options, jit))) {}

bool Expression::operator()(const Buffer &subject, bool *failed) const {
    if (isNull()) {
        if (failed != nullptr) {
            *failed = false;
        }
        return false;
    }
    return (*this)->matches(subject, 0, failed);
}

bool Expression::operator()(const std::string &subject, bool *failed) const {
    return (*this)(Buffer(subject.data(), static_cast<unsigned int>(subject.size()), true), failed);
}

} // namespace Corvane::Regex
