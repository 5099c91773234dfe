#include "control/service_registration.h"

#include "control/control_device.h"
#include "support/framework_guards.h"

namespace {

/// Counts an open by this process. The caller holds the device lock.
NTSTATUS registerOpen(ControlDevice &control, ULONG processId) {
    if (control.m_processId == 0) {
        control.m_processId = processId;
        __atomic_store_n(&control.m_apiRegistered, BOOLEAN{TRUE}, __ATOMIC_RELEASE);
    } else if (control.m_processId != processId) {
        return STATUS_ACCESS_DENIED;
    }
    ++control.m_openCount;
    return STATUS_SUCCESS;
}

} // namespace

VOID onControlDeviceOpen(WDFDEVICE device, WDFREQUEST request, WDFFILEOBJECT) {
    ControlDevice &control = *getControlDevice(device);
    const ULONG processId = IoGetRequestorProcessId(WdfRequestWdmGetIrp(request));
    WaitLockGuard hold(control.m_deviceLock);
    WdfRequestComplete(request, registerOpen(control, processId));
}

VOID onControlDeviceClose(WDFFILEOBJECT fileObject) {
    ControlDevice &control = *getControlDevice(WdfFileObjectGetDevice(fileObject));
    WaitLockGuard hold(control.m_deviceLock);
    if (--control.m_openCount == 0) {
        control.m_processId = 0;
        __atomic_store_n(&control.m_apiRegistered, BOOLEAN{FALSE}, __ATOMIC_RELEASE);
    }
}
