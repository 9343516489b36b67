#ifndef CORVANE_HOST_REGEX_LITERALMATCHER_H
#define CORVANE_HOST_REGEX_LITERALMATCHER_H

// Finds every occurrence of many literals in one pass over a text.
//
//     LiteralMatcher matcher({{"offer", true}, {"%PDF-", false}});
//     LiteralScratch scratch; // one per thread
//     matcher.scan(text.data(), text.length(), scratch,
//                  [&](std::uint32_t number, std::size_t end) { hits.push_back({number, end}); });
//
// Threads: a matcher is immutable once constructed, and any number of threads may scan with it at
// once, each with a scratch of its own. A scratch is for one thread, and for one scan, at a time.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <type_traits>
#include <vector>

#include "host/regex/Export.h"
#include "host/regex/Literals.h"

namespace Corvane::Regex {

// Working memory of scans, which grows to what the greediest matcher used with it needs. It keeps no
// reference to a matcher, and may outlive or be outlived by every one.
class CORVANE_REGEX_API LiteralScratch {
public:
    // Allocates nothing; the first scan does.
    LiteralScratch();
    LiteralScratch(LiteralScratch &&source) noexcept;
    LiteralScratch &operator=(LiteralScratch &&source) noexcept;
    ~LiteralScratch();

    // Bytes allocated so far.
    std::size_t memoryBytes() const;

private:
    friend class LiteralMatcher;
    struct State;
    std::unique_ptr<State> state_;
};

class CORVANE_REGEX_API LiteralMatcher {
public:
    // Without literals: finds nothing.
    LiteralMatcher();

    // Compiles the literals, of which each must have a byte and none may begin with a zero byte;
    // throws code 4 otherwise, and where they cannot be compiled. Equal literals become one, so that
    // an occurrence is reported once; see numbers().
    explicit LiteralMatcher(const std::vector<Literal> &literals);
    LiteralMatcher(LiteralMatcher &&source) noexcept;
    LiteralMatcher &operator=(LiteralMatcher &&source) noexcept;
    ~LiteralMatcher();

    // How many distinct literals there are; scans report numbers below this one.
    std::size_t size() const { return lengths_.size(); }

    // For each literal in the order given to the constructor, the number that scans report for it.
    // Distinct literals are numbered in the order of their first appearance.
    const std::vector<std::uint32_t> &numbers() const { return numbers_; }

    // The length of a literal by its number, in bytes.
    std::uint32_t literalLength(std::uint32_t number) const { return lengths_[number]; }

    // Calls sink(std::uint32_t number, std::size_t end) for every occurrence, overlapping ones too:
    // end is the offset behind its last byte. Ends do not come in a guaranteed order. length is
    // below 4 GiB, throws code 4 otherwise. sink may answer a bool, of which false ends the scan;
    // it may throw, which ends the scan and reaches the caller; it must not scan with the same
    // scratch. Once a scratch has been used with this matcher, a scan allocates nothing.
    template <class Sink>
    void scan(const unsigned char *data, std::size_t length, LiteralScratch &scratch,
              Sink &&sink) const {
        scan(data, length, length, scratch, sink);
    }

    // The same where more than length bytes, whatever they are, may be read from data: a scan is faster where these are
    // kPaddingBytes more.
    template <class Sink>
    void scan(const unsigned char *data, std::size_t length, std::size_t readable,
              LiteralScratch &scratch, Sink &&sink) const;
    static constexpr std::size_t kPaddingBytes = 128;

    // Bytes of the compiled form and of the tables here; without scratches.
    std::size_t memoryBytes() const;

private:
    struct Compiled;
    // As the engine calls it, so that nothing stands between it and the sink: the number of the
    // literal, unused, end offset, unused, the Window of the scan's context. An answer other than 0 ends
    // the scan.
    using Report = int (*)(unsigned int number, unsigned long long from, unsigned long long end,
                           unsigned int flags, void *context);

    // Of what one pass of a scan finds, the ends to be reported: behind after, and no further than upTo. What the pass
    // calls 0 is shift to the caller.
    struct Window {
        std::size_t after = 0;
        std::size_t upTo = 0;
        std::size_t shift = 0;
    };
    template <class Sink>
    struct Context : Window {
        explicit Context(Sink &called) : sink(&called) {}

        Sink *sink;
        std::exception_ptr thrown;
    };
    template <class Sink>
    static int report(unsigned int number, unsigned long long from, unsigned long long end,
                      unsigned int flags, void *context) noexcept;
    LiteralScratch::State &prepare(std::size_t length, LiteralScratch &scratch) const;
    void runPadded(const unsigned char *data, std::size_t length, LiteralScratch &scratch,
                   Report callback, void *context) const;
    void run(const unsigned char *data, std::size_t length, LiteralScratch &scratch,
             Report callback, void *context) const;
    void runTail(const unsigned char *data, std::size_t length, LiteralScratch &scratch,
                 Report callback, Window &window) const;

    std::unique_ptr<const Compiled> compiled_;
    std::vector<std::uint32_t> numbers_;
    std::vector<std::uint32_t> lengths_;
};

template <class Sink>
int LiteralMatcher::report(unsigned int number, unsigned long long, unsigned long long end,
                           unsigned int, void *context) noexcept {
    auto *scan = static_cast<Context<Sink> *>(static_cast<Window *>(context));
    if (end <= scan->after || end > scan->upTo) {
        return 0;
    }
    try {
        const std::size_t place = static_cast<std::size_t>(end) + scan->shift;
        if constexpr (std::is_same_v<decltype((*scan->sink)(number, place)), bool>) {
            return (*scan->sink)(number, place) ? 0 : 1;
        } else {
            (*scan->sink)(number, place);
            return 0;
        }
    } catch (...) {
        scan->thrown = std::current_exception();
        return 1;
    }
}

template <class Sink>
void LiteralMatcher::scan(const unsigned char *data, std::size_t length, std::size_t readable,
                          LiteralScratch &scratch, Sink &&sink) const {
    using Called = std::remove_reference_t<Sink>;
    Context<Called> context(sink);
    const Report callback = &LiteralMatcher::report<Called>;
    if (readable >= length + kPaddingBytes) {
        context.upTo = length;
        runPadded(data, length, scratch, callback, static_cast<Window *>(&context));
    } else {
        run(data, length, scratch, callback, static_cast<Window *>(&context));
    }
    if (context.thrown != nullptr) {
        std::rethrow_exception(context.thrown);
    }
}

} // namespace Corvane::Regex

#endif
