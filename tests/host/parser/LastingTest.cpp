#include "host/parser/Lasting.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

struct Counted {
    Counted() { ++s_made; }
    Counted(const Counted &) = delete;
    Counted &operator=(const Counted &) = delete;
    ~Counted() { ++s_gone; }

    int number = 0;

    static inline std::atomic<int> s_made = 0;
    static inline std::atomic<int> s_gone = 0;
};

// Asks for the value as one of the last things that a thread does.
struct Late {
    ~Late() { s_value = &PerThread<Counted>::value(); }

    bool isMade = false;
    static inline Counted *s_value = nullptr;
};

TEST(PerThread, IsThereUntilNothingOfTheThreadRuns) {
    std::thread([] {
        static thread_local Late s_late;
        s_late.isMade = true;
        PerThread<Counted>::value().number = 7;
        EXPECT_EQ(PerThread<Counted>::value().number, 7);
        EXPECT_EQ(Counted::s_made, 1);
    }).join();
    ASSERT_NE(Late::s_value, nullptr);
    EXPECT_EQ(Late::s_value->number, 0) << "the first one is gone";
    EXPECT_EQ(Counted::s_made, 2);
    EXPECT_EQ(Counted::s_gone, 1);
    EXPECT_NE(&PerThread<Counted>::value(), Late::s_value);
}

} // namespace
} // namespace Corvane
