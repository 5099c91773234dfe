#include "wait_lock.h"

#include "../kernel/internals.h"
#include "../kernel/lock_accounting.h"
#include "../kernel/thread.h"
#include "call.h"
#include "driver.h"
#include "table.h"

namespace sim::framework {

WaitLock::WaitLock(Client &client, const void *callSite) : Object(client, objectType, callSite) {
    KeInitializeEvent(&event_, SynchronizationEvent, TRUE);
}

void WaitLock::afterCleanup() {
    if (owner_) {
        bugCheck("wait lock", "WdfObjectDelete", "the wait lock is deleted while it is held", nullptr);
    }
    kernel().internals->lockOrder.forget(this, sizeof *this);
}

// Framework source: critical region first; the IRQL stays. Not recursive.
NTSTATUS WaitLock::acquire(LONGLONG *timeout, const void *site) {
    if (owner_ == &currentThread() && !timeout) {
        bugCheck("deadlock", "WdfWaitLockAcquire", "the wait lock is already held by this thread", site);
    }
    const bool entered = currentThread().irql <= APC_LEVEL;
    if (entered) {
        KeEnterCriticalRegion();
    }
    LARGE_INTEGER due{};
    due.QuadPart = timeout ? *timeout : 0;
    const NTSTATUS status = KeWaitForSingleObject(&event_, Executive, KernelMode, FALSE, timeout ? &due : nullptr);
    if (status == STATUS_SUCCESS) {
        owner_ = &currentThread();
        lockAcquired(LockKind::waitLock, this, true, site);
    } else if (entered) {
        KeLeaveCriticalRegion();
    }
    return status;
}

void WaitLock::release(const void *site) {
    if (owner_ != &currentThread()) {
        bugCheck("wait lock", "WdfWaitLockRelease", "the wait lock is not held by this thread", site);
    }
    owner_ = nullptr;
    lockReleased(LockKind::waitLock, this, site);
    KeSetEvent(&event_, 0, FALSE);
    if (currentThread().irql <= APC_LEVEL) {
        KeLeaveCriticalRegion();
    }
}

namespace {

// learn.microsoft.com: WdfWaitLockCreate
NTSTATUS waitLockCreate(PWDF_DRIVER_GLOBALS globals, PWDF_OBJECT_ATTRIBUTES attributes, WDFWAITLOCK *handle) {
    const Call call{"WdfWaitLockCreate", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    call.pointer(handle, "Lock");
    *handle = nullptr;
    const NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *lock = new WaitLock(client, call.site);
    return call.publish(*lock, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfWaitLockAcquire
NTSTATUS waitLockAcquire(PWDF_DRIVER_GLOBALS globals, WDFWAITLOCK handle, PLONGLONG timeout) {
    const Call call{"WdfWaitLockAcquire", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(timeout && *timeout == 0 ? DISPATCH_LEVEL : APC_LEVEL);
    return call.object<WaitLock>(handle).acquire(timeout, call.site);
}

// learn.microsoft.com: WdfWaitLockRelease
VOID waitLockRelease(PWDF_DRIVER_GLOBALS globals, WDFWAITLOCK handle) {
    const Call call{"WdfWaitLockRelease", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    call.object<WaitLock>(handle).release(call.site);
}

} // namespace

void installWaitLockRoutines(FunctionTable &table) {
    table.set(WdfWaitLockCreateTableIndex, PFN_WDFWAITLOCKCREATE(waitLockCreate));
    table.set(WdfWaitLockAcquireTableIndex, PFN_WDFWAITLOCKACQUIRE(waitLockAcquire));
    table.set(WdfWaitLockReleaseTableIndex, PFN_WDFWAITLOCKRELEASE(waitLockRelease));
}

} // namespace sim::framework
