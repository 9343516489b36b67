#ifndef CORVANE_HOST_REGEX_EXPRESSION_H
#define CORVANE_HOST_REGEX_EXPRESSION_H

// Perl-compatible regular expressions over bytes.
//
//     Regex::Expression expression("/free\\s+offer/i", Regex::kAnyLineEnd, true);
//     bool failed = false;
//     if (expression(Buffer(line.data(), length, true), &failed)) { ... }
//
// A text whose first byte is a slash is in the slash form: /pattern/modifiers. The pattern ends at
// the last slash that no backslash escapes; the modifiers are i (ignore case), m (^ and $ at every
// line end), s (. matches line ends), x (extended), u (UTF-8 instead of bytes), and g and o, which
// have no effect. White space around the modifiers is ignored. Any other text is a pattern as a
// whole, without modifiers.
//
// What a pattern says to the engine itself - (*NOTEMPTY), (*LIMIT_MATCH=100) and so on, at its
// beginning - holds on every machine, with machine code and without. A pattern may not switch itself
// to UTF-8. Under the modifier u, bytes that are no UTF-8 match nothing, and hide nothing else.
//
// Where the thread uses a budget (Budget.h) that has an end, a try ends with it, within 0.1 s. A try
// from another start than 0 is not ended.
//
// Threads: immutable once compiled; any number of threads may match at once, also through copies of
// one handle.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/include2/TesselRefcounted.h"
#include "host/parser/Buffer.h"
#include "host/regex/Export.h"

namespace Corvane::Regex {

// Option words, which may be combined. Without kAnyLineEnd only LF ends a line.
constexpr unsigned int kNoOptions = 0;
constexpr unsigned int kIgnoreCase = 1;
constexpr unsigned int kDotMatchesAll = 4;
constexpr unsigned int kAnyLineEnd = 0x500000; // CR, LF and CRLF each end a line

// Where in a subject the first match is; end is behind its last byte.
struct FoundRange {
    bool matched = false;
    bool failed = false;
    std::size_t start = 0;
    std::size_t end = 0;
};

// The furthest that an expression came in a subject, from whatever start, before it gave up: the try that took in the
// most bytes. The item of the pattern is what it did not get past; offsets and lengths are bytes of pattern(). Nothing
// is told where the pattern ends before (a length of 0).
struct FurthestTry {
    // Whether there is one to tell of: not of a pattern that is too large to be followed.
    bool isKnown = false;
    // Whether every try was followed to its end; of very many the first.
    bool isComplete = true;
    std::size_t start = 0;
    std::size_t end = 0;
    std::size_t item = 0;
    std::size_t itemLength = 0;
};

// The compiled form; reached through Expression.
class CORVANE_REGEX_API ExpressionImpl : public RefImpl {
public:
    // Compiles as Expression does, and throws as it does; text must not be empty.
    ExpressionImpl(const std::string &text, unsigned int options, bool jit);
    ~ExpressionImpl() override;

    // Whether the expression matches anywhere at or after start (a byte offset; bytes before it are
    // seen by lookbehinds). *failed, where failed is not null, tells whether matching ended in an
    // error: a pattern that needs too many steps, start beyond the end, or the end of the budget that
    // the thread uses. The answer is false then. Nothing behind the subject is read.
    bool matches(const Buffer &subject, unsigned int start, bool *failed) const;

    // The same for bytes that are in no buffer: no reference is counted, nothing is allocated but by
    // the first match of a thread. data may be null where length is 0.
    bool matches(const unsigned char *data, std::size_t length, std::size_t start,
                 bool *failed) const;

    // Where the first match is, for those who show it: slower than matches(), whose answers it gives. No more is told of
    // a try that failed. data as there.
    FoundRange find(const unsigned char *data, std::size_t length) const;

    // How far the expression came in a subject that it does not match; where it does, the match is among the tries.
    // Follows each step of the search in the interpreter, some tens of millions a second, at most steps of them, which
    // are taken off. data as there.
    FurthestTry furthest(const unsigned char *data, std::size_t length, std::uint64_t &steps) const;

    // The pattern alone: without the slashes and modifiers of the slash form. Lives as long as the expression.
    const std::string &pattern() const;

    // Whether it can match at the beginning of a subject alone, so that the rest of one need not be
    // read.
    bool isAnchored() const;

private:
    struct Code;
    std::unique_ptr<const Code> code_;
};

class CORVANE_REGEX_API Expression : public Ref<ExpressionImpl> {
public:
    // Not compiled: isNull() is true, and it matches nothing.
    Expression();

    // Compiles text; an empty text leaves the expression not compiled. jit asks for machine code,
    // without which matching is slower; where that cannot be made the expression still works.
    // Throws code 4 for a pattern that does not compile, a slash form without its closing slash, an
    // unknown modifier and an unknown option word; the parameters name the fault and the text.
    Expression(const std::string &text, unsigned int options, bool jit);

    // Whether the expression matches anywhere in subject; *failed as in ExpressionImpl::matches. An
    // expression that is not compiled answers false and has not failed.
    bool operator()(const Buffer &subject, bool *failed) const;
    bool operator()(const std::string &subject, bool *failed) const;
};

} // namespace Corvane::Regex

#endif
