#include "host/regex/Expression.h"

#include <array>
#include <utility>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include "host/parser/Exception.h"
#include "host/regex/Definition.h"

namespace Corvane::Regex {

namespace {

// Steps that one try may take from one start position, on every path. Real patterns on real mail
// stay far below; it ends a try of a bad pattern after milliseconds.
constexpr unsigned int kMatchLimitSteps = 10000;

// Machine code keeps its backtracking in a stack of this size, one per thread. What needs more is
// matched once again by the interpreter, whose memory kInterpreterHeapKiB bounds.
constexpr std::size_t kJitStackStartBytes = 32 * 1024;
constexpr std::size_t kJitStackMaxBytes = 1024 * 1024;
constexpr unsigned int kInterpreterHeapKiB = 64 * 1024;

struct CodeDeleter {
    void operator()(pcre2_code *code) const { pcre2_code_free(code); }
};
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

[[noreturn]] void s_outOfMemory(unsigned int line) {
    Exception failure("Regex::Expression", Exception::kGeneral, "Expression", line);
    failure.stringParameter("out of memory");
    throw failure;
}

// What one thread needs to run expressions, made on its first match.
class MatchState {
public:
    MatchState()
        : data_(pcre2_match_data_create(1, nullptr)),
          stack_(pcre2_jit_stack_create(kJitStackStartBytes, kJitStackMaxBytes, nullptr)),
          context_(pcre2_match_context_create(nullptr)) {
        if (data_ == nullptr || stack_ == nullptr || context_ == nullptr) {
            s_outOfMemory(__LINE__);
        }
        pcre2_set_match_limit(context_.get(), kMatchLimitSteps);
        pcre2_set_heap_limit(context_.get(), kInterpreterHeapKiB);
        pcre2_jit_stack_assign(context_.get(), nullptr, stack_.get());
    }

    // Runs machine code; start must not be beyond length.
    int matchCompiled(const pcre2_code *code, PCRE2_SPTR subject, std::size_t length,
                      std::size_t start) const {
        return pcre2_jit_match(code, subject, length, start, 0, data_.get(), context_.get());
    }

    int interpret(const pcre2_code *code, PCRE2_SPTR subject, std::size_t length,
                  std::size_t start) const {
        return pcre2_match(code, subject, length, start, PCRE2_NO_JIT, data_.get(), context_.get());
    }

private:
    std::unique_ptr<pcre2_match_data, MatchDataDeleter> data_;
    std::unique_ptr<pcre2_jit_stack, JitStackDeleter> stack_;
    std::unique_ptr<pcre2_match_context, MatchContextDeleter> context_;
};

const MatchState &s_matchState() {
    static thread_local const MatchState s_state;
    return s_state;
}

std::uint32_t s_compileOptions(const Definition &definition) {
    std::uint32_t options = 0;
    options |= definition.ignoreCase ? PCRE2_CASELESS : 0U;
    options |= definition.multiline ? PCRE2_MULTILINE : 0U;
    options |= definition.dotMatchesAll ? PCRE2_DOTALL : 0U;
    options |= definition.extended ? PCRE2_EXTENDED : 0U;
    // In UTF-8, one bad byte must not hide the rest of the subject from the expression. Otherwise a
    // pattern must not switch itself to UTF-8, in which 8-bit mail never matches.
    options |=
        definition.utf ? PCRE2_UTF | PCRE2_MATCH_INVALID_UTF : PCRE2_NEVER_UTF | PCRE2_NEVER_UCP;
    return options;
}

std::string s_compileError(int error, std::size_t offset) {
    constexpr std::size_t kMessageBytes = 256;
    std::array<PCRE2_UCHAR, kMessageBytes> message{};
    pcre2_get_error_message(error, message.data(), message.size());
    return std::string(reinterpret_cast<const char *>(message.data())) + " at offset " +
           std::to_string(offset);
}

std::unique_ptr<pcre2_code, CodeDeleter> s_compile(const std::string &text, unsigned int word) {
    const Definition definition = parseDefinition(text, word);
    const std::unique_ptr<pcre2_compile_context, CompileContextDeleter> context(
        pcre2_compile_context_create(nullptr));
    if (context == nullptr) {
        s_outOfMemory(__LINE__);
    }
    pcre2_set_newline(context.get(),
                      definition.anyLineEnd ? PCRE2_NEWLINE_ANYCRLF : PCRE2_NEWLINE_LF);
    int error = 0;
    PCRE2_SIZE offset = 0;
    std::unique_ptr<pcre2_code, CodeDeleter> code(pcre2_compile(
        reinterpret_cast<PCRE2_SPTR>(definition.pattern.data()), definition.pattern.size(),
        s_compileOptions(definition), &error, &offset, context.get()));
    if (code == nullptr) {
        refuseExpression(s_compileError(error, offset), text, __LINE__);
    }
    return code;
}

} // namespace

struct ExpressionImpl::Code {
    std::unique_ptr<pcre2_code, CodeDeleter> compiled;
    bool hasMachineCode = false;

    // Makes machine code where that can express the pattern; the rest is left to the interpreter.
    // UTF-8 patterns are compiled for invalid subjects, so that neither way checks these first.
    void translate() {
        std::size_t bytes = 0;
        pcre2_jit_compile(compiled.get(), PCRE2_JIT_COMPLETE);
        pcre2_pattern_info(compiled.get(), PCRE2_INFO_JITSIZE, &bytes);
        hasMachineCode = bytes > 0;
    }
};

ExpressionImpl::ExpressionImpl(const std::string &text, unsigned int options, bool jit) {
    Code code{s_compile(text, options), false};
    if (jit) {
        code.translate();
    }
    code_ = std::make_unique<const Code>(std::move(code));
}

ExpressionImpl::~ExpressionImpl() = default;

bool ExpressionImpl::matches(const Buffer &subject, unsigned int start, bool *failed) const {
    return matches(subject.data(), subject.length(), start, failed);
}

bool ExpressionImpl::matches(const unsigned char *data, std::size_t length, std::size_t start,
                             bool *failed) const {
    constexpr PCRE2_UCHAR kNothing = 0;
    const PCRE2_SPTR bytes = data != nullptr ? data : &kNothing;
    const MatchState &state = s_matchState();
    const pcre2_code *code = code_->compiled.get();
    int result = PCRE2_ERROR_JIT_STACKLIMIT;
    if (code_->hasMachineCode && start <= length) {
        result = state.matchCompiled(code, bytes, length, start);
    }
    if (result == PCRE2_ERROR_JIT_STACKLIMIT) {
        result = state.interpret(code, bytes, length, start);
    }
    if (failed != nullptr) {
        *failed = result < PCRE2_ERROR_NOMATCH;
    }
    return result >= 0;
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
