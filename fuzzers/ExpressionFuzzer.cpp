// A pattern on a text that ends where readable memory does: whatever the pattern, no byte behind the
// text is read or has a part in the answer, and machine code, interpreter and guarded tries agree.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include <sys/mman.h>

#include "Require.h"
#include "host/parser/Budget.h"
#include "host/parser/Exception.h"
#include "host/regex/Expression.h"
#include "host/regex/GuardedTry.h"
#include "host/regex/Utf8Text.h"

namespace {

using namespace Corvane;

constexpr std::size_t kMaxPatternBytes = 120;
constexpr std::size_t kMaxTextBytes = 4096;

// Readable up to an edge, behind which every access ends the process.
class EdgeOfMemory {
public:
    EdgeOfMemory() {
        void *start = mmap(nullptr, 2 * kMaxTextBytes, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        require(start != MAP_FAILED, "there is memory");
        edge_ = static_cast<unsigned char *>(start) + kMaxTextBytes;
        require(mprotect(edge_, kMaxTextBytes, PROT_NONE) == 0, "memory can be closed");
    }

    const unsigned char *copy(const std::string &text) {
        std::memcpy(edge_ - text.size(), text.data(), text.size());
        return edge_ - text.size();
    }

private:
    unsigned char *edge_;
};

struct Answer {
    bool matched;
    bool failed;

    bool operator==(const Answer &other) const {
        return matched == other.matched && failed == other.failed;
    }
};

Answer s_try(const Regex::Expression &expression, const unsigned char *data, std::size_t length) {
    Answer answer{};
    answer.matched = expression->matches(data, length, 0, &answer.failed);
    return answer;
}

void s_requireBlind(const Regex::Expression &expression, const std::string &text, Answer expected) {
    for (const char *behind : {"a", "\x80\x80\x80", "\xA9!", "\n", "\r\n"}) {
        const std::string longer = text + behind;
        const auto *bytes = reinterpret_cast<const unsigned char *>(longer.data());
        require(s_try(expression, bytes, text.size()) == expected,
                "what stands behind a text has no part in it");
    }
}

// A pattern that calls itself without end may meet one limit or another first: each call takes a little
// more memory where it also calls the guard.
bool s_mayCallItself(const std::string &pattern) {
    for (const char *call :
         {"(?R", "(?0", "(?1", "(?2", "(?3", "(?+", "(?-", "(?&", "(?P>", "\\g"}) {
        if (pattern.find(call) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void s_requireGuardedIsSame(const std::string &pattern, unsigned int options,
                            const std::string &text) {
    using Regex::EngineCode;
    const Regex::Definition definition = Regex::parseDefinition(pattern, options);
    const auto characters =
        definition.utf ? EngineCode::Characters::BrokenUtf8 : EngineCode::Characters::Bytes;
    const Regex::ReadableText readable(reinterpret_cast<const unsigned char *>(text.data()),
                                       text.size());
    const unsigned char *data = readable.data();
    const auto whole = EngineCode(definition, pattern, characters, EngineCode::Hold::No, true)
                           .run({data, text.size(), 0, Regex::kMatchLimitSteps});
    Budget budget(std::chrono::hours(1));
    const Budget::Use use(budget);
    const EngineCode watched(definition, pattern, characters, EngineCode::Hold::Watcher, true);
    for (const std::uint32_t steps : {1U, 40U}) {
        const auto guarded = Regex::GuardedTry(watched, data, text.size(), budget, steps).run();
        require(guarded == whole || (s_mayCallItself(pattern) && guarded != Regex::Outcome::Match &&
                                     whole != Regex::Outcome::Match),
                "a guarded try ends as another one");
    }
}

std::optional<Regex::Expression> s_compiled(const std::string &pattern, unsigned int options,
                                            bool jit) {
    try {
        return Regex::Expression(pattern, options, jit);
    } catch (const Exception &) {
        return std::nullopt;
    }
}

} // namespace

// The first byte chooses the options, the rest of the line is the pattern, what follows the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static EdgeOfMemory s_memory;
    constexpr unsigned int kOptions[] = {Regex::kNoOptions, Regex::kAnyLineEnd,
                                         Regex::kDotMatchesAll, Regex::kIgnoreCase};
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::size_t line = input.find('\n');
    if (line == std::string::npos || line < 2 || line > kMaxPatternBytes ||
        size - line > kMaxTextBytes) {
        return 0;
    }
    const unsigned int options = kOptions[data[0] % 4];
    const std::string pattern = input.substr(1, line - 1);
    const std::string text = input.substr(line + 1);
    const auto compiled = s_compiled(pattern, options, true);
    const auto interpreted = s_compiled(pattern, options, false);
    require(compiled.has_value() == interpreted.has_value(), "both take the same patterns");
    if (!compiled.has_value()) {
        return 0;
    }
    const unsigned char *edge = s_memory.copy(text);
    const Answer machine = s_try(*compiled, edge, text.size());
    const Answer plain = s_try(*interpreted, edge, text.size());
    require(machine.failed || plain.failed || machine == plain,
            "machine code and interpreter agree");
    s_requireBlind(*compiled, text, machine);
    s_requireBlind(*interpreted, text, plain);
    s_requireGuardedIsSame(pattern, options, text);
    return 0;
}
