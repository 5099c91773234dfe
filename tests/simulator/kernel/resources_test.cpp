#include "kernel_fixture.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace sim::test {

namespace {

class ResourcesTest : public KernelTest {
  protected:
    ResourcesTest() { ExInitializeResourceLite(&resource); }
    ~ResourcesTest() override {
        if (!deleted) {
            ExDeleteResourceLite(&resource);
        }
    }

    bool exclusive(bool wait = true) { return ExAcquireResourceExclusiveLite(&resource, wait) != FALSE; }
    bool shared(bool wait = true) { return ExAcquireResourceSharedLite(&resource, wait) != FALSE; }
    void release() { ExReleaseResourceLite(&resource); }

    /// Runs in another thread, inside a critical region, to its end.
    void elsewhere(const std::function<void()> &action) {
        std::thread([&action] {
            KeEnterCriticalRegion();
            action();
            KeLeaveCriticalRegion();
        }).join();
    }

    void waitForWaiters(ULONG exclusiveOnes, ULONG sharedOnes) {
        // The counts are the structure's own, written under a lock of the kernel's; a trial acquire orders the reads.
        for (;;) {
            shared(false) ? release() : void();
            if (__atomic_load_n(&resource.NumberOfExclusiveWaiters, __ATOMIC_RELAXED) == exclusiveOnes &&
                __atomic_load_n(&resource.NumberOfSharedWaiters, __ATOMIC_RELAXED) == sharedOnes) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    ERESOURCE resource;
    bool deleted = false;
};

TEST_F(ResourcesTest, exclusiveIsRecursiveForItsOwner) {
    KeEnterCriticalRegion();
    EXPECT_TRUE(exclusive());
    EXPECT_TRUE(exclusive(false));
    elsewhere([this] { EXPECT_FALSE(shared(false)); });
    release();
    elsewhere([this] { EXPECT_FALSE(shared(false)); });
    release();
    elsewhere([this] {
        EXPECT_TRUE(shared(false));
        release();
    });
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, exclusiveOwnerThatSharesStaysExclusive) {
    KeEnterCriticalRegion();
    exclusive();
    EXPECT_TRUE(shared(false));
    release();
    elsewhere([this] { EXPECT_FALSE(shared(false)); });
    release();
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, manyThreadsShare) {
    KeEnterCriticalRegion();
    shared();
    elsewhere([this] {
        EXPECT_TRUE(shared(false));
        EXPECT_TRUE(shared(false));
        release();
        release();
        EXPECT_FALSE(exclusive(false));
    });
    release();
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, sharedHolderThatWantsExclusiveWouldWaitForItself) {
    KeEnterCriticalRegion();
    shared();
    EXPECT_FALSE(exclusive(false));
    EXPECT_EQ(stoppedBy([this] { exclusive(true); }), "deadlock");
    release();
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, waitingExclusiveKeepsNewSharersOutButNotOldOnes) {
    KeEnterCriticalRegion();
    shared();
    std::thread writer([this] {
        KeEnterCriticalRegion();
        exclusive();
        release();
        KeLeaveCriticalRegion();
    });
    // Once another thread's trial fails, the writer waits.
    for (bool waiting = false; !waiting;) {
        elsewhere([this, &waiting] {
            waiting = !shared(false);
            if (!waiting) {
                release();
            }
        });
    }
    EXPECT_TRUE(shared(false));
    release();
    release();
    writer.join();
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, exclusiveWaiterRunsBeforeSharedOnes) {
    std::mutex mutex;
    std::vector<std::string> order;
    const auto note = [&](const char *who) {
        std::lock_guard lock(mutex);
        order.emplace_back(who);
    };
    KeEnterCriticalRegion();
    shared();
    std::thread writer([&] {
        KeEnterCriticalRegion();
        exclusive();
        note("writer");
        release();
        KeLeaveCriticalRegion();
    });
    for (bool waiting = false; !waiting;) {
        elsewhere([this, &waiting] {
            waiting = !shared(false);
            if (!waiting) {
                release();
            }
        });
    }
    std::thread reader([&] {
        KeEnterCriticalRegion();
        shared();
        note("reader");
        release();
        KeLeaveCriticalRegion();
    });
    waitForWaiters(1, 1);
    release();
    writer.join();
    reader.join();
    KeLeaveCriticalRegion();
    EXPECT_EQ(order, (std::vector<std::string>{"writer", "reader"}));
}

TEST_F(ResourcesTest, acquireNeedsNormalApcsOff) {
    EXPECT_EQ(stoppedBy([this] { exclusive(); }), "critical region");
    EXPECT_EQ(stoppedBy([this] { shared(false); }), "critical region");
    EXPECT_EQ(stoppedAt(APC_LEVEL,
                        [this] {
                            exclusive();
                            release();
                        }),
              "");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [this] { shared(); }), "irql");
}

TEST_F(ResourcesTest, leavingTheRegionWhileHoldingStops) {
    KeEnterCriticalRegion();
    exclusive();
    EXPECT_EQ(stoppedBy([] { KeLeaveCriticalRegion(); }), "critical region");
    release();
}

TEST_F(ResourcesTest, innerRegionMayBeLeftWhileHolding) {
    KeEnterCriticalRegion();
    exclusive();
    KeEnterCriticalRegion();
    KeLeaveCriticalRegion();
    release();
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, leavingWithoutEnteringStops) {
    EXPECT_EQ(stoppedBy([] { KeLeaveCriticalRegion(); }), "critical region");
}

TEST_F(ResourcesTest, onlyTheOwnerReleases) {
    EXPECT_EQ(stoppedBy([this] { release(); }), "executive resource");
    KeEnterCriticalRegion();
    exclusive();
    std::string rule;
    elsewhere([&] { rule = stoppedBy([this] { release(); }); });
    EXPECT_EQ(rule, "executive resource");
    release();
    KeLeaveCriticalRegion();
}

TEST_F(ResourcesTest, deletingWhileHeldOrTwiceStops) {
    KeEnterCriticalRegion();
    exclusive();
    EXPECT_EQ(stoppedBy([this] { ExDeleteResourceLite(&resource); }), "executive resource");
    release();
    KeLeaveCriticalRegion();
    EXPECT_EQ(ExDeleteResourceLite(&resource), STATUS_SUCCESS);
    deleted = true;
    EXPECT_EQ(stoppedBy([this] { ExDeleteResourceLite(&resource); }), "executive resource");
}

TEST_F(ResourcesTest, useBeforeInitialisationAndTwiceInitialisingStop) {
    ERESOURCE other{};
    KeEnterCriticalRegion();
    EXPECT_EQ(stoppedBy([&] { ExAcquireResourceExclusiveLite(&other, TRUE); }), "executive resource");
    KeLeaveCriticalRegion();
    EXPECT_EQ(stoppedBy([this] { ExInitializeResourceLite(&resource); }), "executive resource");
}

TEST_F(ResourcesTest, storageMustBeNonPagedAndAligned) {
    PVOID paged = ExAllocatePool2(POOL_FLAG_PAGED, sizeof(ERESOURCE), 'tseT');
    EXPECT_EQ(stoppedBy([&] { ExInitializeResourceLite(static_cast<PERESOURCE>(paged)); }), "executive resource");
    ExFreePoolWithTag(paged, 'tseT');
    alignas(8) char storage[sizeof(ERESOURCE) + 8];
    EXPECT_EQ(stoppedBy([&] { ExInitializeResourceLite(reinterpret_cast<PERESOURCE>(storage + 4)); }),
              "executive resource");
}

TEST_F(ResourcesTest, freeingMemoryWithALiveResourceStops) {
    auto *memory = static_cast<char *>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(ERESOURCE) + 32, 'tseT'));
    auto *inside = reinterpret_cast<PERESOURCE>(memory + 16);
    ExInitializeResourceLite(inside);
    EXPECT_EQ(stoppedBy([&] { ExFreePoolWithTag(memory, 'tseT'); }), "executive resource");
    ExDeleteResourceLite(inside);
}

TEST_F(ResourcesTest, undeletedResourceIsALeak) {
    ASSERT_EQ(kernel.leaks().size(), 1u);
    EXPECT_NE(kernel.leaks()[0].find("not deleted"), std::string::npos);
    ExDeleteResourceLite(&resource);
    deleted = true;
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(ResourcesTest, eightThreadsExcludeEachOther) {
    int counter = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([this, &counter] {
            for (int round = 0; round < 200; ++round) {
                KeEnterCriticalRegion();
                if (round % 3 == 0) {
                    shared();
                    EXPECT_GE(counter, 0);
                } else {
                    exclusive();
                    ++counter;
                }
                release();
                KeLeaveCriticalRegion();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 8 * 133);
}

} // namespace

} // namespace sim::test
