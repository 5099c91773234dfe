#include "irp_dispatch.h"

#include "../kernel/io.h"
#include "../kernel/thread.h"
#include "../kernel/violation.h"
#include "call.h"
#include "device.h"
#include "io_package.h"
#include "table.h"

#include <algorithm>
#include <memory>

namespace sim::framework {

NTSTATUS completeIrp(PIRP irp, NTSTATUS status, ULONG_PTR information) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IofCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

NTSTATUS forwardIrp(Device &device, PIRP irp) {
    IoSkipCurrentIrpStackLocation(irp);
    return IofCallDriver(device.attached, irp);
}

namespace {

bool handlesMinor(const PreprocessCallback &callback, UCHAR minor) {
    const auto &minors = callback.minorFunctions;
    return minors.empty() || std::find(minors.begin(), minors.end(), minor) != minors.end();
}

/// Other majors than those with a package of their own: flush, query and set information, shutdown …
NTSTATUS dispatchOther(Device &device, PIRP irp) {
    if (device.filter()) {
        return forwardIrp(device, irp);
    }
    const bool shutdown = IoGetCurrentIrpStackLocation(irp)->MajorFunction == IRP_MJ_SHUTDOWN;
    return completeIrp(irp, shutdown ? STATUS_SUCCESS : STATUS_INVALID_DEVICE_REQUEST, 0);
}

NTSTATUS dispatchSystemControl(Device &device, PIRP irp) {
    if (!device.removeLock.acquire()) {
        return completeIrp(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    const NTSTATUS status = forwardIrp(device, irp);
    device.removeLock.release();
    return status;
}

} // namespace

NTSTATUS forwardIrpAndWait(Device &device, PIRP irp) {
    IoCopyCurrentIrpStackLocationToNext(irp);
    return sendAndWait(device.attached, irp);
}

NTSTATUS dispatchToPackages(Device &device, PIRP irp) {
    switch (IoGetCurrentIrpStackLocation(irp)->MajorFunction) {
    case IRP_MJ_CREATE:
        return dispatchCreate(device, irp);
    case IRP_MJ_CLEANUP:
        return dispatchCleanup(device, irp);
    case IRP_MJ_CLOSE:
        return dispatchClose(device, irp);
    case IRP_MJ_READ:
    case IRP_MJ_WRITE:
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
        return device.io->dispatch(irp);
    case IRP_MJ_PNP:
        return dispatchPnp(device, irp);
    case IRP_MJ_POWER:
        return dispatchPower(device, irp);
    case IRP_MJ_SYSTEM_CONTROL:
        return dispatchSystemControl(device, irp);
    default:
        return dispatchOther(device, irp);
    }
}

NTSTATUS dispatchIrp(PDEVICE_OBJECT deviceObject, PIRP irp) {
    const auto release = [](Device *held) { held->dereference("IofCallDriver", nullptr); };
    const std::unique_ptr<Device, decltype(release)> device(referencedDeviceOf(deviceObject), release);
    if (!device && isDeletePending(deviceObject)) { // removed since the sender found it at the top of its stack
        return completeIrp(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    if (!device) {
        bugCheck("device object", "IofCallDriver", "an IRP was sent to a device object that is no framework device",
                 SIM_CALL_SITE);
    }
    const IO_STACK_LOCATION &location = *IoGetCurrentIrpStackLocation(irp);
    const auto found = device->settings.preprocess.find(location.MajorFunction);
    if (found != device->settings.preprocess.end() && handlesMinor(found->second, location.MinorFunction)) {
        CallbackContract contract("EvtDeviceWdmIrpPreprocess");
        return found->second.routine(device->deviceHandle(), irp);
    }
    return dispatchToPackages(*device, irp);
}

namespace {

// learn.microsoft.com: WdfDeviceWdmDispatchPreprocessedIrp, "Preprocessing and Postprocessing IRPs"; framework source:
// it advances to the next stack location as IoCallDriver does
NTSTATUS dispatchPreprocessedIrp(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle, PIRP irp) {
    const Call call{"WdfDeviceWdmDispatchPreprocessedIrp", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Device &device = call.object<Device>(handle);
    call.pointer(irp, "Irp");
    if (irp->CurrentLocation <= 1) {
        call.violation("stack location", "the IRP has no location left: skip or copy the current one first");
    }
    --irp->CurrentLocation;
    const PIO_STACK_LOCATION location = --irp->Tail.Overlay.CurrentStackLocation;
    if (location->DeviceObject != device.deviceObject) {
        call.violation("stack location", "the next location was not formatted: skip or copy the current one first");
    }
    return dispatchToPackages(device, irp);
}

} // namespace

void installDispatchRoutines(FunctionTable &table) {
    table.set(WdfDeviceWdmDispatchPreprocessedIrpTableIndex,
              PFN_WDFDEVICEWDMDISPATCHPREPROCESSEDIRP(dispatchPreprocessedIrp));
}

} // namespace sim::framework
