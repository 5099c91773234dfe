// Locks that a driver takes in one order here and in another there.

#include "wrong_driver.h"

#include <thread>

namespace sim::strictness {
namespace {

constexpr ULONG orderTag = 'redO';

/// One lock of each kind, and another resource.
struct Locks {
    ERESOURCE *resource = make<ERESOURCE>();
    ERESOURCE *otherResource = make<ERESOURCE>();
    FAST_MUTEX *mutex = make<FAST_MUTEX>();
    WDFWAITLOCK waitLock = nullptr;

    Locks() {
        ExInitializeResourceLite(resource);
        ExInitializeResourceLite(otherResource);
        ExInitializeFastMutex(mutex);
        (void)WdfWaitLockCreate(WDF_NO_OBJECT_ATTRIBUTES, &waitLock);
    }
    ~Locks() {
        ExDeleteResourceLite(resource);
        ExDeleteResourceLite(otherResource);
        ExFreePoolWithTag(resource, orderTag);
        ExFreePoolWithTag(otherResource, orderTag);
        ExFreePoolWithTag(mutex, orderTag);
        WdfObjectDelete(waitLock);
    }
    Locks(const Locks &) = delete;
    Locks &operator=(const Locks &) = delete;

    void resourceThenMutex() {
        takeShared(resource);
        ExAcquireFastMutex(mutex);
        ExReleaseFastMutex(mutex);
        release(resource);
    }
    void mutexThenResource() {
        ExAcquireFastMutex(mutex);
        takeShared(resource);
        release(resource);
        ExReleaseFastMutex(mutex);
    }
    void resourceThenWaitLock() {
        takeShared(resource);
        (void)WdfWaitLockAcquire(waitLock, nullptr);
        WdfWaitLockRelease(waitLock);
        release(resource);
    }
    void waitLockThenOtherResource() {
        (void)WdfWaitLockAcquire(waitLock, nullptr);
        takeShared(otherResource);
        release(otherResource);
        WdfWaitLockRelease(waitLock);
    }
    void otherResourceThenResource() {
        takeShared(otherResource);
        takeShared(resource);
        release(resource);
        release(otherResource);
    }

    static void takeShared(ERESOURCE *taken) {
        KeEnterCriticalRegion();
        ExAcquireResourceSharedLite(taken, TRUE);
    }
    static void release(ERESOURCE *taken) {
        ExReleaseResourceLite(taken);
        KeLeaveCriticalRegion();
    }

  private:
    template<typename Lock>
    static Lock *make() {
        return static_cast<Lock *>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(Lock), orderTag));
    }
};

void takeTwoInBothOrders(WDFDEVICE, PDEVICE_OBJECT) {
    Locks locks;
    locks.resourceThenMutex();
    locks.mutexThenResource();
}

void takeTwoInBothOrdersInTwoThreads(WDFDEVICE, PDEVICE_OBJECT) {
    Locks locks;
    std::thread([&] { locks.resourceThenMutex(); }).join();
    locks.mutexThenResource();
}

void takeThreeInACircle(WDFDEVICE, PDEVICE_OBJECT) {
    Locks locks;
    locks.resourceThenWaitLock();
    locks.waitLockThenOtherResource();
    locks.otherResourceThenResource();
}

INSTANTIATE_TEST_SUITE_P(
    LockOrder, CaughtMistakes,
    testing::Values(
        Mistake{"TwoInBothOrders", takeTwoInBothOrders, "lock order", "lock acquisition",
                "executive resource .*after fast mutex .*mutexThenResource.*before, fast mutex .*resourceThenMutex"},
        Mistake{"TwoInBothOrdersInTwoThreads", takeTwoInBothOrdersInTwoThreads, "lock order", "lock acquisition",
                "after fast mutex"},
        Mistake{"ThreeInACircle", takeThreeInACircle, "lock order", "lock acquisition",
                "after executive resource .* after wait lock"}),
    nameOf);

/// Orders that cannot deadlock.
void takeThemRightly(WDFDEVICE, PDEVICE_OBJECT) {
    {
        Locks locks;
        locks.resourceThenMutex();
        locks.resourceThenWaitLock();
        locks.waitLockThenOtherResource();
        locks.resourceThenMutex();
        Locks::takeShared(locks.resource);
        Locks::takeShared(locks.otherResource);
        Locks::takeShared(locks.resource); // held already: no wait, no order
        Locks::release(locks.resource);
        Locks::release(locks.otherResource);
        Locks::release(locks.resource);
    }
    Locks others; // may lie where the first ones lay
    others.mutexThenResource();
    others.otherResourceThenResource();
}

TEST(LockOrder, ThatIsKeptIsNoMistake) {
    EXPECT_THAT(run({"Rightly", takeThemRightly, {}, {}, {}}), testing::IsEmpty());
}

} // namespace
} // namespace sim::strictness
