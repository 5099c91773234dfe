// Wait locks.

#include "framework_fixture.h"

#include <thread>

namespace sim::test {

namespace {

class WaitLockTest : public FrameworkTest {
  protected:
    WaitLockTest() {
        loadDriver();
        EXPECT_EQ(WdfWaitLockCreate(nullptr, &lock), STATUS_SUCCESS);
    }
    WDFWAITLOCK lock = nullptr;
};

TEST_F(WaitLockTest, HoldsACriticalRegionAndLeavesTheIrql) {
    EXPECT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(currentThread().criticalRegionDepth, 1u);
    EXPECT_EQ(currentThread().irql, PASSIVE_LEVEL);
    WdfWaitLockRelease(lock);
    EXPECT_EQ(currentThread().criticalRegionDepth, 0u);
}

TEST_F(WaitLockTest, SecondAcquireByTheOwner) {
    ASSERT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(stoppedBy([&] { WdfWaitLockAcquire(lock, nullptr); }), "deadlock");
    LONGLONG none = 0;
    EXPECT_EQ(WdfWaitLockAcquire(lock, &none), STATUS_TIMEOUT);
    EXPECT_EQ(currentThread().criticalRegionDepth, 1u);
    WdfWaitLockRelease(lock);
}

TEST_F(WaitLockTest, MisuseIsReported) {
    EXPECT_EQ(stoppedBy([&] { WdfWaitLockRelease(lock); }), "wait lock");
    ASSERT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
    std::thread([&] { EXPECT_EQ(stoppedBy([&] { WdfWaitLockRelease(lock); }), "wait lock"); }).join();
    WdfWaitLockRelease(lock);
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { WdfWaitLockAcquire(lock, nullptr); }), "irql");
}

TEST_F(WaitLockTest, ExcludesOtherThreads) {
    int counter = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                ASSERT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
                ++counter;
                WdfWaitLockRelease(lock);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 1600);
}

TEST_F(WaitLockTest, TimeOutsFollowTheClock) {
    ASSERT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
    std::thread other([&] {
        LONGLONG second = WDF_REL_TIMEOUT_IN_SEC(1);
        EXPECT_EQ(WdfWaitLockAcquire(lock, &second), STATUS_TIMEOUT);
        EXPECT_EQ(currentThread().criticalRegionDepth, 0u);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    kernel.clock.advance(10'000'000);
    other.join();
    WdfWaitLockRelease(lock);
}

} // namespace

} // namespace sim::test
