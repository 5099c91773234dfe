// Wait locks. learn.microsoft.com: "wdfsync.h header".
// IRQL <= DISPATCH_LEVEL; waiting needs PASSIVE_LEVEL.
#pragma once

#include <wdf/object.h>

typedef NTSTATUS(NTAPI *PFN_WDFWAITLOCKCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, PWDF_OBJECT_ATTRIBUTES LockAttributes,
                                               WDFWAITLOCK *Lock);
FORCEINLINE NTSTATUS WdfWaitLockCreate(PWDF_OBJECT_ATTRIBUTES LockAttributes, WDFWAITLOCK *Lock) {
    return wdfFunction<PFN_WDFWAITLOCKCREATE>(WdfWaitLockCreateTableIndex)(WdfDriverGlobals, LockAttributes, Lock);
}

typedef NTSTATUS(NTAPI *PFN_WDFWAITLOCKACQUIRE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFWAITLOCK Lock, PLONGLONG Timeout);
/// Not recursive; enters a critical region. A null time-out waits for ever.
FORCEINLINE NTSTATUS WdfWaitLockAcquire(WDFWAITLOCK Lock, PLONGLONG Timeout) {
    return wdfFunction<PFN_WDFWAITLOCKACQUIRE>(WdfWaitLockAcquireTableIndex)(WdfDriverGlobals, Lock, Timeout);
}

typedef VOID(NTAPI *PFN_WDFWAITLOCKRELEASE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFWAITLOCK Lock);
FORCEINLINE VOID WdfWaitLockRelease(WDFWAITLOCK Lock) {
    wdfFunction<PFN_WDFWAITLOCKRELEASE>(WdfWaitLockReleaseTableIndex)(WdfDriverGlobals, Lock);
}
