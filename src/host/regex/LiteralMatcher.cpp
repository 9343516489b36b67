#include "host/regex/LiteralMatcher.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include <hs.h>

#include "host/parser/Exception.h"

namespace Corvane::Regex {

namespace {

struct DatabaseDeleter {
    void operator()(hs_database_t *database) const { hs_free_database(database); }
};
struct ScratchDeleter {
    void operator()(hs_scratch_t *scratch) const { hs_free_scratch(scratch); }
};
struct CompileErrorDeleter {
    void operator()(hs_compile_error_t *error) const { hs_free_compile_error(error); }
};
using Database = std::unique_ptr<hs_database_t, DatabaseDeleter>;

[[noreturn]] void s_fail(const std::string &reason, unsigned int line) {
    Exception failure("Regex::LiteralMatcher", Exception::kGeneral, "LiteralMatcher", line);
    failure.stringParameter(reason);
    throw failure;
}

// The distinct literals in the form that the engine takes. The pointers are into the caller's list.
struct Distinct {
    std::vector<const char *> bytes;
    std::vector<unsigned int> flags;
    std::vector<unsigned int> ids;
    std::vector<std::size_t> lengths;
};

void s_check(const Literal &literal, std::size_t index) {
    if (literal.bytes.empty() || literal.bytes.front() == '\0') {
        s_fail("literal " + std::to_string(index) +
                   (literal.bytes.empty() ? " is empty" : " begins with a zero byte"),
               __LINE__);
    }
    if (literal.bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        s_fail("literal " + std::to_string(index) + " is too long", __LINE__);
    }
}

void s_append(Distinct &distinct, const Literal &literal) {
    distinct.bytes.push_back(literal.bytes.data());
    distinct.lengths.push_back(literal.bytes.size());
    distinct.flags.push_back(literal.ignoreCase ? HS_FLAG_CASELESS : 0U);
    distinct.ids.push_back(static_cast<unsigned int>(distinct.ids.size()));
}

Distinct s_distinct(const std::vector<Literal> &literals, std::vector<std::uint32_t> &numbers) {
    Distinct distinct;
    std::map<std::pair<bool, std::string>, std::uint32_t> known;
    numbers.reserve(literals.size());
    for (const Literal &literal : literals) {
        s_check(literal, numbers.size());
        const auto next = static_cast<std::uint32_t>(distinct.ids.size());
        const auto found = known.try_emplace({literal.ignoreCase, literal.bytes}, next);
        if (found.second) {
            s_append(distinct, literal);
        }
        numbers.push_back(found.first->second);
    }
    return distinct;
}

Database s_compile(const Distinct &distinct) {
    hs_database_t *database = nullptr;
    hs_compile_error_t *error = nullptr;
    const hs_error_t result = hs_compile_lit_multi(
        distinct.bytes.data(), distinct.flags.data(), distinct.ids.data(), distinct.lengths.data(),
        static_cast<unsigned int>(distinct.ids.size()), HS_MODE_BLOCK, nullptr, &database, &error);
    const std::unique_ptr<hs_compile_error_t, CompileErrorDeleter> guard(error);
    // The engine has one code for all failures.
    constexpr std::string_view kOutOfMemory = "Unable to allocate memory.";
    if (result == HS_NOMEM || (error != nullptr && error->message == kOutOfMemory)) {
        throw std::bad_alloc();
    }
    if (result != HS_SUCCESS) {
        const std::string reason =
            error != nullptr ? error->message : "code " + std::to_string(result);
        s_fail("the literals cannot be compiled: " + reason, __LINE__);
    }
    return Database(database);
}

void s_requireSuccess(int result) {
    if (result != HS_SUCCESS) {
        s_fail("a scan failed with code " + std::to_string(result), __LINE__);
    }
}

} // namespace

struct LiteralMatcher::Compiled {
    Compiled(Database compiled, std::size_t longestLiteral)
        : database(std::move(compiled)), longest(longestLiteral) {
        if (hs_database_size(database.get(), &bytes) != HS_SUCCESS) {
            s_fail("the size of the compiled literals is unknown", __LINE__);
        }
    }

    Database database;
    std::size_t bytes = 0;
    std::size_t longest = 0;
    // Tells this matcher from every other one in the life of the process, so that a scratch can
    // remember for whom it is large enough without pointing there.
    std::uint64_t identity = s_nextIdentity();

private:
    static std::uint64_t s_nextIdentity() {
        static std::atomic<std::uint64_t> s_last{0};
        return ++s_last;
    }
};

struct LiteralScratch::State {
    // Matchers that a scratch remembers; used with more, it asks the engine anew now and then.
    static constexpr std::size_t kMaxRemembered = 64;

    std::unique_ptr<hs_scratch_t, ScratchDeleter> scratch;
    std::vector<std::uint64_t> fits;
    std::vector<unsigned char> tail;

    int scan(const hs_database_t *database, const unsigned char *data, std::size_t length,
             match_event_handler found, void *context) const {
        return hs_scan(database, reinterpret_cast<const char *>(data),
                       static_cast<unsigned int>(length), 0, scratch.get(), found, context);
    }

    // Makes room for scans with the matcher of that identity.
    void prepare(const hs_database_t *database, std::uint64_t identity, std::size_t longest) {
        if (std::find(fits.rbegin(), fits.rend(), identity) != fits.rend()) {
            return;
        }
        tail.reserve(2 * LiteralMatcher::kPaddingBytes + longest);
        hs_scratch_t *grown = scratch.release();
        const hs_error_t result = hs_alloc_scratch(database, &grown);
        scratch.reset(grown);
        if (result == HS_NOMEM) {
            throw std::bad_alloc();
        }
        s_requireSuccess(result);
        if (fits.size() == kMaxRemembered) {
            fits.clear();
        }
        fits.push_back(identity);
    }
};

LiteralScratch::LiteralScratch() = default;
LiteralScratch::LiteralScratch(LiteralScratch &&source) noexcept = default;
LiteralScratch &LiteralScratch::operator=(LiteralScratch &&source) noexcept = default;
LiteralScratch::~LiteralScratch() = default;

std::size_t LiteralScratch::memoryBytes() const {
    std::size_t bytes = 0;
    if (state_ != nullptr && state_->scratch != nullptr) {
        hs_scratch_size(state_->scratch.get(), &bytes);
        bytes += state_->tail.capacity();
    }
    return bytes;
}

LiteralMatcher::LiteralMatcher() = default;
LiteralMatcher::LiteralMatcher(LiteralMatcher &&source) noexcept = default;
LiteralMatcher &LiteralMatcher::operator=(LiteralMatcher &&source) noexcept = default;
LiteralMatcher::~LiteralMatcher() = default;

LiteralMatcher::LiteralMatcher(const std::vector<Literal> &literals) {
    const Distinct distinct = s_distinct(literals, numbers_);
    if (distinct.ids.empty()) {
        return;
    }
    lengths_.reserve(distinct.lengths.size());
    for (const std::size_t length : distinct.lengths) {
        lengths_.push_back(static_cast<std::uint32_t>(length));
    }
    compiled_ = std::make_unique<const Compiled>(
        s_compile(distinct), *std::max_element(distinct.lengths.begin(), distinct.lengths.end()));
}

// Answers the scratch, fit for a scan of so many bytes.
LiteralScratch::State &LiteralMatcher::prepare(std::size_t length, LiteralScratch &scratch) const {
    if (length > std::numeric_limits<unsigned int>::max()) {
        s_fail("a text of " + std::to_string(length) + " bytes is too long", __LINE__);
    }
    if (scratch.state_ == nullptr) {
        scratch.state_ = std::make_unique<LiteralScratch::State>();
    }
    scratch.state_->prepare(compiled_->database.get(), compiled_->identity, compiled_->longest);
    return *scratch.state_;
}

void LiteralMatcher::runPadded(const unsigned char *data, std::size_t length,
                               LiteralScratch &scratch, Report callback, void *context) const {
    if (compiled_ == nullptr || length == 0) {
        return;
    }
    const std::size_t padded = length + kPaddingBytes;
    if (padded > std::numeric_limits<unsigned int>::max()) {
        run(data, length, scratch, callback, context);
        return;
    }
    const LiteralScratch::State &state = prepare(padded, scratch);
    const int result = state.scan(compiled_->database.get(), data, padded, callback, context);
    if (result != HS_SCAN_TERMINATED) {
        s_requireSuccess(result);
    }
}

void LiteralMatcher::run(const unsigned char *data, std::size_t length, LiteralScratch &scratch,
                         Report callback, void *context) const {
    if (compiled_ == nullptr || length == 0) {
        return;
    }
    const LiteralScratch::State &state = prepare(length, scratch);
    auto &window = *static_cast<Window *>(context);
    if (length > kPaddingBytes) {
        window = {0, length - kPaddingBytes, 0};
        const int result = state.scan(compiled_->database.get(), data, length, callback, context);
        if (result == HS_SCAN_TERMINATED) {
            return;
        }
        s_requireSuccess(result);
    }
    runTail(data, length, scratch, callback, window);
}

// Reports what ends in the last kPaddingBytes. The engine overlooks some of what ends within the last block of a text, on
// processors with the widest of registers: it was seen to as far as 31 bytes from the end. So the last bytes are scanned
// in a copy, with a block or more behind them.
void LiteralMatcher::runTail(const unsigned char *data, std::size_t length, LiteralScratch &scratch,
                             Report callback, Window &window) const {
    LiteralScratch::State &state = *scratch.state_;
    const std::size_t bytes = std::min(length, kPaddingBytes + compiled_->longest);
    state.tail.assign(bytes + kPaddingBytes, 0);
    std::copy_n(data + (length - bytes), bytes, state.tail.begin());
    window = {bytes - std::min(bytes, kPaddingBytes), bytes, length - bytes};
    const int result = state.scan(compiled_->database.get(), state.tail.data(), state.tail.size(),
                                  callback, &window);
    if (result != HS_SCAN_TERMINATED) {
        s_requireSuccess(result);
    }
}

std::size_t LiteralMatcher::memoryBytes() const {
    return (compiled_ != nullptr ? compiled_->bytes : 0) +
           (numbers_.capacity() + lengths_.capacity()) * sizeof(std::uint32_t);
}

} // namespace Corvane::Regex
