#include "kernel_fixture.h"

#include <thread>
#include <vector>

namespace sim::test {

namespace {

class FastMutexTest : public KernelTest {
  protected:
    FastMutexTest() { ExInitializeFastMutex(&mutex); }
    FAST_MUTEX mutex;
};

TEST_F(FastMutexTest, raisesToApcLevelAndRestores) {
    ExAcquireFastMutex(&mutex);
    EXPECT_EQ(KeGetCurrentIrql(), APC_LEVEL);
    ExReleaseFastMutex(&mutex);
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
}

TEST_F(FastMutexTest, nestedMutexesRestoreInOrder) {
    FAST_MUTEX inner;
    ExInitializeFastMutex(&inner);
    ExAcquireFastMutex(&mutex);
    ExAcquireFastMutex(&inner);
    ExReleaseFastMutex(&inner);
    EXPECT_EQ(KeGetCurrentIrql(), APC_LEVEL);
    ExReleaseFastMutex(&mutex);
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
}

TEST_F(FastMutexTest, secondAcquireByTheOwnerIsADeadlock) {
    ExAcquireFastMutex(&mutex);
    EXPECT_EQ(stoppedBy([this] { ExAcquireFastMutex(&mutex); }), "deadlock");
    ExReleaseFastMutex(&mutex);
}

TEST_F(FastMutexTest, releaseWantsApcLevelAndTheOwner) {
    EXPECT_EQ(stoppedBy([this] { ExReleaseFastMutex(&mutex); }), "irql");
    EXPECT_EQ(stoppedAt(APC_LEVEL, [this] { ExReleaseFastMutex(&mutex); }), "fast mutex");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [this] { ExAcquireFastMutex(&mutex); }), "irql");
}

TEST_F(FastMutexTest, stringAndRegistryCallsAreIllegalUnderIt) {
    Text a(u"a");
    ExAcquireFastMutex(&mutex);
    EXPECT_EQ(stoppedBy([&] { RtlEqualUnicodeString(&a, &a, FALSE); }), "irql");
    EXPECT_EQ(stoppedBy([&] { FsRtlIsNameInExpression(&a, &a, FALSE, nullptr); }), "irql");
    EXPECT_EQ(stoppedBy([&] { ZwClose(nullptr); }), "irql");
    ExReleaseFastMutex(&mutex);
}

TEST_F(FastMutexTest, comparisonsAtApcLevelCanBeMadeAWarning) {
    Text a(u"a");
    kernel.stopOnComparisonAtApcLevel = false;
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { EXPECT_TRUE(RtlEqualUnicodeString(&a, &a, FALSE)); }), "");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { RtlEqualUnicodeString(&a, &a, FALSE); }), "irql");
}

TEST_F(FastMutexTest, pagedStorageStops) {
    auto *paged = static_cast<PFAST_MUTEX>(ExAllocatePool2(POOL_FLAG_PAGED, sizeof(FAST_MUTEX), 'tseT'));
    ExInitializeFastMutex(paged);
    EXPECT_EQ(stoppedBy([&] { ExAcquireFastMutex(paged); }), "fast mutex");
    ExFreePoolWithTag(paged, 'tseT');
}

TEST_F(FastMutexTest, leavingTheLastProtectionOfAResourceStops) {
    ERESOURCE resource;
    ExInitializeResourceLite(&resource);
    ExAcquireFastMutex(&mutex);
    ExAcquireResourceExclusiveLite(&resource, TRUE);
    EXPECT_EQ(stoppedBy([this] { ExReleaseFastMutex(&mutex); }), "critical region");
}

TEST_F(FastMutexTest, threadsExcludeEachOther) {
    int counter = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([this, &counter] {
            for (int round = 0; round < 200; ++round) {
                ExAcquireFastMutex(&mutex);
                ++counter;
                ExReleaseFastMutex(&mutex);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 1600);
}

} // namespace

} // namespace sim::test
