// What a driver does wrong with locks, critical regions and IRQL.

#include "wrong_driver.h"

#include <thread>

namespace sim::strictness {
namespace {

constexpr ULONG lockTag = 'kcoL';

ERESOURCE &newResource() {
    auto *resource = static_cast<ERESOURCE *>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(ERESOURCE), lockTag));
    ExInitializeResourceLite(resource);
    return *resource;
}

FAST_MUTEX &newFastMutex() {
    auto *mutex = static_cast<FAST_MUTEX *>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(FAST_MUTEX), lockTag));
    ExInitializeFastMutex(mutex);
    return *mutex;
}

WDFWAITLOCK newWaitLock() {
    WDFWAITLOCK lock = nullptr;
    (void)WdfWaitLockCreate(WDF_NO_OBJECT_ATTRIBUTES, &lock);
    return lock;
}

void takeResourceOutsideARegion(WDFDEVICE, PDEVICE_OBJECT) {
    ExAcquireResourceExclusiveLite(&newResource(), TRUE);
}

void leaveTheRegionHoldingIt(WDFDEVICE, PDEVICE_OBJECT) {
    KeEnterCriticalRegion();
    ExAcquireResourceSharedLite(&newResource(), TRUE);
    KeLeaveCriticalRegion();
}

void leaveARegionNeverEntered(WDFDEVICE, PDEVICE_OBJECT) {
    KeLeaveCriticalRegion();
}

void releaseByAnotherThread(WDFDEVICE, PDEVICE_OBJECT) {
    ERESOURCE &resource = newResource();
    KeEnterCriticalRegion();
    ExAcquireResourceExclusiveLite(&resource, TRUE);
    std::thread([&] {
        KeEnterCriticalRegion();
        ExReleaseResourceLite(&resource);
        KeLeaveCriticalRegion();
    }).join();
}

void sharedThenExclusive(WDFDEVICE, PDEVICE_OBJECT) {
    ERESOURCE &resource = newResource();
    KeEnterCriticalRegion();
    ExAcquireResourceSharedLite(&resource, TRUE);
    ExAcquireResourceExclusiveLite(&resource, TRUE);
}

void releaseWithoutHolding(WDFDEVICE, PDEVICE_OBJECT) {
    ERESOURCE &resource = newResource();
    KeEnterCriticalRegion();
    ExReleaseResourceLite(&resource);
}

void deleteAHeldResource(WDFDEVICE, PDEVICE_OBJECT) {
    ERESOURCE &resource = newResource();
    KeEnterCriticalRegion();
    ExAcquireResourceExclusiveLite(&resource, TRUE);
    ExDeleteResourceLite(&resource);
}

void freeALiveResource(WDFDEVICE, PDEVICE_OBJECT) {
    ExFreePoolWithTag(&newResource(), lockTag);
}

void useAResourceNeverMade(WDFDEVICE, PDEVICE_OBJECT) {
    auto *resource = static_cast<ERESOURCE *>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(ERESOURCE), lockTag));
    KeEnterCriticalRegion();
    ExAcquireResourceExclusiveLite(resource, TRUE);
}

void returnHoldingAResource(WDFDEVICE, PDEVICE_OBJECT) {
    KeEnterCriticalRegion();
    ExAcquireResourceExclusiveLite(&newResource(), TRUE);
}

void returnInsideARegion(WDFDEVICE, PDEVICE_OBJECT) {
    KeEnterCriticalRegion();
}

void takeAFastMutexTwice(WDFDEVICE, PDEVICE_OBJECT) {
    FAST_MUTEX &mutex = newFastMutex();
    ExAcquireFastMutex(&mutex);
    ExAcquireFastMutex(&mutex);
}

void releaseAFastMutexNeverTaken(WDFDEVICE, PDEVICE_OBJECT) {
    ExReleaseFastMutex(&newFastMutex());
}

void compareStringsUnderAFastMutex(WDFDEVICE, PDEVICE_OBJECT) {
    UNICODE_STRING text{2, 2, const_cast<PWCH>(L"x")};
    ExAcquireFastMutex(&newFastMutex());
    RtlEqualUnicodeString(&text, &text, TRUE);
}

void readARegistryValueUnderAFastMutex(WDFDEVICE, PDEVICE_OBJECT physicalDevice) {
    ExAcquireFastMutex(&newFastMutex());
    ULONG needed = 0;
    IoGetDeviceProperty(physicalDevice, DevicePropertyHardwareID, 0, nullptr, &needed);
}

void takeAWaitLockTwice(WDFDEVICE, PDEVICE_OBJECT) {
    WDFWAITLOCK lock = newWaitLock();
    WdfWaitLockAcquire(lock, nullptr);
    WdfWaitLockAcquire(lock, nullptr);
}

void releaseAWaitLockNeverTaken(WDFDEVICE, PDEVICE_OBJECT) {
    WdfWaitLockRelease(newWaitLock());
}

void returnAtDispatchLevel(WDFDEVICE, PDEVICE_OBJECT) {
    raiseToDispatchLevel();
}

void forgetAResource(WDFDEVICE, PDEVICE_OBJECT) {
    newResource();
}

INSTANTIATE_TEST_SUITE_P(
    Locks, CaughtMistakes,
    testing::Values(
        Mistake{"ResourceOutsideARegion", takeResourceOutsideARegion, "critical region",
                "ExAcquireResourceExclusiveLite", ""},
        Mistake{"RegionLeftHoldingAResource", leaveTheRegionHoldingIt, "critical region", "KeLeaveCriticalRegion", ""},
        Mistake{"RegionNeverEntered", leaveARegionNeverEntered, "critical region", "KeLeaveCriticalRegion", ""},
        Mistake{"ReleasedByAnotherThread", releaseByAnotherThread, "executive resource", "ExReleaseResourceLite", ""},
        Mistake{"SharedThenExclusive", sharedThenExclusive, "deadlock", "ExAcquireResourceExclusiveLite", ""},
        Mistake{"ReleasedWithoutHolding", releaseWithoutHolding, "executive resource", "ExReleaseResourceLite", ""},
        Mistake{"DeletedWhileHeld", deleteAHeldResource, "executive resource", "ExDeleteResourceLite", ""},
        Mistake{"FreedWhileAlive", freeALiveResource, "executive resource", "ExFreePoolWithTag", ""},
        Mistake{"NeverInitialised", useAResourceNeverMade, "executive resource", "ExAcquireResourceExclusiveLite", ""},
        Mistake{"FastMutexTwice", takeAFastMutexTwice, "deadlock", "ExAcquireFastMutex", ""},
        Mistake{"FastMutexNeverTaken", releaseAFastMutexNeverTaken, "irql", "ExReleaseFastMutex", ""},
        Mistake{"ComparisonUnderAFastMutex", compareStringsUnderAFastMutex, "irql", "RtlEqualUnicodeString", ""},
        Mistake{"PropertyUnderAFastMutex", readARegistryValueUnderAFastMutex, "irql", "IoGetDeviceProperty", ""},
        Mistake{"WaitLockTwice", takeAWaitLockTwice, "deadlock", "WdfWaitLockAcquire", ""},
        Mistake{"WaitLockNeverTaken", releaseAWaitLockNeverTaken, "wait lock", "WdfWaitLockRelease", ""},
        Mistake{"ForgottenResource", forgetAResource, "", "executive resource", "newResource"}),
    nameOf);

/// Noticed when the callback returns, so that the caller is the machine, not the driver.
class ReturnedWith : public testing::TestWithParam<Mistake> {};

TEST_P(ReturnedWith, IsCaughtWhenTheCallbackReturns) {
    EXPECT_DEATH(run(GetParam()), "bug check .callback contract. " + GetParam().routine);
}

INSTANTIATE_TEST_SUITE_P(Locks, ReturnedWith,
                         testing::Values(Mistake{"AResource", returnHoldingAResource, "x", "EvtDriverDeviceAdd", {}},
                                         Mistake{"ARegion", returnInsideARegion, "x", "EvtDriverDeviceAdd", {}},
                                         Mistake{"AnotherIrql", returnAtDispatchLevel, "x", "EvtDriverDeviceAdd", {}}),
                         nameOf);

} // namespace
} // namespace sim::strictness
