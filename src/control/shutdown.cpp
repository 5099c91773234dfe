#include "control/shutdown.h"

#include "control/rescan.h"
#include "log/log.h"

namespace {

NTSTATUS onShutdown(WDFDEVICE device, PIRP irp) {
    (void)rescanDevices(getControlDevice(device)->m_rescanContext);
    IoSkipCurrentIrpStackLocation(irp); // the framework advances to the next location itself
    return WdfDeviceWdmDispatchPreprocessedIrp(device, irp);
}

} // namespace

void registerShutdownHandler(PWDFDEVICE_INIT deviceInit) {
    const NTSTATUS status =
        WdfDeviceInitAssignWdmIrpPreprocessCallback(deviceInit, onShutdown, IRP_MJ_SHUTDOWN, nullptr, 0);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to assign WdmIrpPreprocessCallback, status = 0x", hex(status));
    }
}
