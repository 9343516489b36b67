#include "host/include2/TesselRefcounted.h"

#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

class Probe : public RefImpl {
public:
    explicit Probe(std::atomic<int> &destroyed) : destroyed_(destroyed) {}
    ~Probe() override { ++destroyed_; }

    Ref<Probe> next;

private:
    std::atomic<int> &destroyed_;
};

class VirtualProbe : public virtual RefImpl {
public:
    explicit VirtualProbe(int &destroyed) : destroyed_(destroyed) {}
    ~VirtualProbe() override { ++destroyed_; }

private:
    int &destroyed_;
};

template <class Operation>
void expectThrows(Operation operation, const std::string &message, int code,
                  const std::string &file) {
    try {
        operation();
        FAIL() << "expected: " << message;
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.message(), message);
        EXPECT_EQ(failure.code(), code);
        EXPECT_EQ(failure.file(), file);
    }
}

TEST(Ref, LastHandleDestroysOnce) {
    std::atomic<int> destroyed = 0;
    {
        const Ref<Probe> first(new Probe(destroyed));
        Ref<Probe> second = first;
        const Ref<Probe> &itself = second;
        second = itself;
        second = first;
        second = Ref<Probe>();
        EXPECT_TRUE(second.isNull());
        EXPECT_EQ(destroyed, 0);
        Ref<Probe> third = first;
        third = Ref<Probe>(new Probe(destroyed));
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(Ref, MovedFromHandleIsEmpty) {
    std::atomic<int> destroyed = 0;
    Ref<Probe> first(new Probe(destroyed));
    Ref<Probe> second = std::move(first);
    EXPECT_TRUE(first.isNull());
    second = Ref<Probe>(new Probe(destroyed));
    EXPECT_EQ(destroyed, 1);
}

TEST(Ref, AssigningFromInsideTheOldObjectIsSafe) {
    std::atomic<int> destroyed = 0;
    Ref<Probe> list(new Probe(destroyed));
    list->next = Ref<Probe>(new Probe(destroyed));
    list = list->next;
    EXPECT_EQ(destroyed, 1);
    EXPECT_TRUE(list->next.isNull());
}

TEST(Ref, EmptyHandleThrowsCode1) {
    const Ref<Probe> empty;
    const Ref<Probe> copy = empty;
    EXPECT_TRUE(copy.isNull());
    expectThrows([&] { (void)empty.operator->(); }, "operator->", 1, "TesselRefcounted");
    expectThrows([&] { (void)*empty; }, "operator*", 1, "TesselRefcounted");
}

TEST(Ref, WrapperOfNullIsNotEmpty) {
    const Ref<Probe> holdsNull(static_cast<Probe *>(nullptr));
    const Ref<Probe> copy = holdsNull;
    EXPECT_FALSE(copy.isNull());
    EXPECT_EQ(copy.operator->(), nullptr);
}

TEST(RefCounted, AddingReferenceToNullThrows) {
    expectThrows([] { const RefCounted<Probe> wrapper(nullptr, true); },
                 "RefCounted constructor for RefImpl failed.", 4, "");
    EXPECT_NO_THROW(RefCounted<Probe>(nullptr, false));
}

TEST(RefCounted, ComparesIdentity) {
    std::atomic<int> destroyed = 0;
    {
        auto *object = new Probe(destroyed);
        const RefCounted<Probe> first(object, false);
        const RefCounted<Probe> second(object, true);
        const RefCounted<Probe> other(new Probe(destroyed), false);
        EXPECT_TRUE(first == second);
        EXPECT_FALSE(first == other);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(RefImpl, CopyIsFreshAndAssignmentKeepsTheCount) {
    std::atomic<int> destroyed = 0;
    {
        const Ref<Probe> first(new Probe(destroyed));
        const Ref<Probe> second = first;
        const Ref<Probe> copy(new Probe(*first));
        static_cast<RefImpl &>(*copy) = *second;
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(Ref, ReachesVirtualBase) {
    int destroyed = 0;
    {
        const Ref<VirtualProbe> first(new VirtualProbe(destroyed));
        const Ref<VirtualProbe> second = first;
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(Ref, ConcurrentReleaseDestroysOnce) {
    constexpr int kRounds = 200;
    std::atomic<int> destroyed = 0;
    for (int round = 0; round < kRounds; ++round) {
        Ref<Probe> first(new Probe(destroyed));
        Ref<Probe> second = first;
        std::thread other([handle = std::move(second)]() mutable {
            const Ref<Probe> copy = handle;
            handle = Ref<Probe>();
        });
        first = Ref<Probe>();
        other.join();
        ASSERT_EQ(destroyed, round + 1);
    }
}

} // namespace
} // namespace Corvane
