// What becomes of loads and scans where memory runs out. Each allocation fails once, in a program
// of its own, as it takes the place of the one that all others use.

#include <cstdlib>
#include <map>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "corvane/RuleSet.h"

namespace {

constexpr long kNone = -1;

// How many allocations of this thread succeed before one fails.
thread_local long s_left = kNone;

bool s_fails() {
    return s_left != kNone && s_left-- == 0;
}

void *s_allocate(std::size_t bytes) noexcept {
    return s_fails() ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
}

} // namespace

// Not inlined: GCC would see malloc where delete is called, and free where new was.
[[gnu::noinline]] void *operator new(std::size_t bytes) {
    void *const place = s_allocate(bytes);
    if (place == nullptr) {
        throw std::bad_alloc();
    }
    return place;
}

[[gnu::noinline]] void *operator new(std::size_t bytes,
                                     const std::nothrow_t & /*unused*/) noexcept {
    return s_allocate(bytes);
}

[[gnu::noinline]] void operator delete(void *place) noexcept {
    std::free(place);
}

[[gnu::noinline]] void operator delete(void *place, std::size_t /*bytes*/) noexcept {
    std::free(place);
}

namespace corvane {
namespace {

const std::map<std::string, std::string> kFiles = {
    {"README", "CF_MAJOR_VERSION=5\nCF_HR_VERSION=123\n"},
    {"a.cf", "body A /pri[sz]e/i\nheader B Subject =~ /\xc3\xa9/\nmeta C A + B > 1.5\nbody A /x/\n"
             "body BAD /(/\ndescribe A a prize\n"},
    {"b.score", "score A 2.25\nscore B 1 0.75 1 1\n"}};
const char *const kMessage =
    "Subject: =?iso-8859-1?q?=e9?=\nContent-Type: text/html; charset=windows-1252\n\n<p>prize";

std::string told(const Verdict &verdict) {
    std::string text = std::to_string(verdict.score());
    for (const Hit &hit : verdict.hits()) {
        text += ' ' + hit.name + ' ' + hit.description;
    }
    return text;
}

std::string told(const RuleSet &rules) {
    std::string text = rules.generation() + rules.version();
    for (const Rule &rule : rules.rules()) {
        text += ' ' + rule.name + ' ' + std::to_string(rule.score) + (rule.active ? "" : " off");
    }
    for (const Problem &problem : rules.problems()) {
        text += '\n' + toString(problem);
    }
    return text;
}

// Does the work with one allocation failing after the other until none does. Each time it either
// throws std::bad_alloc or does what it would with memory enough.
template <class Work>
void failEach(const std::string &expected, Work work) {
    long at = 0;
    for (bool failed = true; failed; ++at) {
        std::string text;
        s_left = at;
        try {
            const auto result = work();
            failed = s_left == kNone;
            s_left = kNone;
            text = told(result);
        } catch (const std::bad_alloc &) {
            s_left = kNone;
            text = expected;
        }
        ASSERT_EQ(text, expected) << "allocation " << at;
    }
    EXPECT_GT(at, 10);
}

TEST(Memory, LoadsTheWholeSetOrThrows) {
    failEach(told(RuleSet::fromMemory(kFiles)), [] { return RuleSet::fromMemory(kFiles); });
}

TEST(Memory, ScansAsIfNothingHadBeenOrThrows) {
    const RuleSet rules = RuleSet::fromMemory(kFiles);
    const std::string expected = told(rules.scan(kMessage));
    ASSERT_EQ(expected, "4.000000 A a prize B  C ");
    failEach(expected, [&rules] { return rules.scan(kMessage); });
    EXPECT_EQ(told(rules.scan(kMessage)), expected);
}

} // namespace
} // namespace corvane
