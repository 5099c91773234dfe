#include "support/locks.h"

#include "tests/unit/fixture/kernel_test.h"

#include <thread>

namespace unit {
namespace {

class LockGuards : public KernelTest {
  protected:
    LockGuards() { ExInitializeResourceLite(&resource); }
    ~LockGuards() override { ExDeleteResourceLite(&resource); }

    /// Whether another thread could have the resource for writing right now.
    bool isFree() {
        bool got = false;
        std::thread([&] {
            const CriticalRegion region;
            got = ExAcquireResourceExclusiveLite(&resource, FALSE) != FALSE;
            if (got) {
                ExReleaseResourceLite(&resource);
            }
        }).join();
        return got;
    }

    /// Whether another thread could have it for reading.
    bool isReadable() {
        bool got = false;
        std::thread([&] {
            const CriticalRegion region;
            got = ExAcquireResourceSharedLite(&resource, FALSE) != FALSE;
            if (got) {
                ExReleaseResourceLite(&resource);
            }
        }).join();
        return got;
    }

    ERESOURCE resource{};
};

TEST_F(LockGuards, ExclusiveLockKeepsOthersOutInsideACriticalRegion) {
    {
        const ExclusiveLock hold(resource);
        EXPECT_EQ(sim::currentThread().criticalRegionDepth, 1u);
        EXPECT_FALSE(isReadable());
    }
    EXPECT_EQ(sim::currentThread().criticalRegionDepth, 0u);
    EXPECT_TRUE(isFree());
}

TEST_F(LockGuards, SharedLockLetsReadersInAndWritersWait) {
    {
        const SharedLock hold(resource);
        EXPECT_EQ(sim::currentThread().criticalRegionDepth, 1u);
        EXPECT_TRUE(isReadable());
        EXPECT_FALSE(isFree());
    }
    EXPECT_EQ(sim::currentThread().criticalRegionDepth, 0u);
    EXPECT_TRUE(isFree());
}

TEST_F(LockGuards, CriticalRegionsNest) {
    const CriticalRegion outer;
    {
        const CriticalRegion inner;
        EXPECT_EQ(sim::currentThread().criticalRegionDepth, 2u);
    }
    EXPECT_EQ(sim::currentThread().criticalRegionDepth, 1u);
}

TEST_F(LockGuards, FastMutexRaisesToApcLevelAndBack) {
    FAST_MUTEX mutex;
    ExInitializeFastMutex(&mutex);
    {
        const FastMutexLock hold(mutex);
        EXPECT_EQ(sim::currentThread().irql, APC_LEVEL);
    }
    EXPECT_EQ(sim::currentThread().irql, PASSIVE_LEVEL);
}

} // namespace
} // namespace unit
