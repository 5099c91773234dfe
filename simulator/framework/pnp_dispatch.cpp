#include "../kernel/thread.h"
#include "device.h"
#include "irp_dispatch.h"

namespace sim::framework {

namespace {

/// A callback that may object; success when the driver has none.
using ObjectingCallback = NTSTATUS (*)(WDFDEVICE);

NTSTATUS ask(const char *name, ObjectingCallback callback, Device &device) {
    if (!callback) {
        return STATUS_SUCCESS;
    }
    CallbackContract contract(name);
    return callback(device.deviceHandle());
}

// Framework source: the lower drivers start first
NTSTATUS start(Device &device, PIRP irp) {
    device.forgetPassingStates();
    NTSTATUS status = forwardIrpAndWait(device, irp);
    if (NT_SUCCESS(status)) {
        status = device.power.prepareHardware();
    }
    if (NT_SUCCESS(status)) {
        status = device.power.start();
    }
    device.started = NT_SUCCESS(status);
    if (!NT_SUCCESS(status)) {
        device.withdrawInterfaces();
    }
    return completeIrp(irp, status, irp->IoStatus.Information);
}

// Framework source: the IRP goes down first, bits are merged on the way up
NTSTATUS queryDeviceState(Device &device, PIRP irp) {
    NTSTATUS status = forwardIrpAndWait(device, irp);
    if (status == STATUS_NOT_SUPPORTED) {
        status = STATUS_SUCCESS;
        irp->IoStatus.Information = 0;
    }
    if (NT_SUCCESS(status)) {
        irp->IoStatus.Information = device.applyState(static_cast<ULONG>(irp->IoStatus.Information));
    }
    return completeIrp(irp, status, irp->IoStatus.Information);
}

NTSTATUS surpriseRemoval(Device &device, PIRP irp) {
    if (const auto callback = device.settings.pnpPower.EvtDeviceSurpriseRemoval) {
        CallbackContract contract("EvtDeviceSurpriseRemoval");
        callback(device.deviceHandle());
    }
    device.stopForRemoval();
    irp->IoStatus.Status = STATUS_SUCCESS;
    return forwardIrp(device, irp);
}

NTSTATUS removeDevice(Device &device, PIRP irp) {
    device.stopForRemoval();
    device.removeLock.release();
    return device.tearDown([&] {
        irp->IoStatus.Status = STATUS_SUCCESS;
        return forwardIrp(device, irp);
    });
}

NTSTATUS queryAndForward(Device &device, PIRP irp, const char *name, ObjectingCallback callback) {
    const NTSTATUS status = ask(name, callback, device);
    if (!NT_SUCCESS(status)) {
        return completeIrp(irp, status, 0);
    }
    irp->IoStatus.Status = STATUS_SUCCESS;
    return forwardIrp(device, irp);
}

NTSTATUS dispatchHeld(Device &device, PIRP irp) {
    const auto &callbacks = device.settings.pnpPower;
    switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
        return start(device, irp);
    case IRP_MN_QUERY_PNP_DEVICE_STATE:
        return queryDeviceState(device, irp);
    case IRP_MN_SURPRISE_REMOVAL:
        return surpriseRemoval(device, irp);
    case IRP_MN_QUERY_REMOVE_DEVICE:
        return queryAndForward(device, irp, "EvtDeviceQueryRemove", callbacks.EvtDeviceQueryRemove);
    case IRP_MN_QUERY_STOP_DEVICE:
        return queryAndForward(device, irp, "EvtDeviceQueryStop", callbacks.EvtDeviceQueryStop);
    case IRP_MN_STOP_DEVICE:
        device.power.stop();
        device.power.releaseHardware();
        device.started = false;
        [[fallthrough]];
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
        irp->IoStatus.Status = STATUS_SUCCESS;
        return forwardIrp(device, irp);
    default:
        return forwardIrp(device, irp);
    }
}

} // namespace

NTSTATUS dispatchPnp(Device &device, PIRP irp) {
    const UCHAR minor = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
    requirePassive("IRP_MJ_PNP", nullptr);
    if (!device.removeLock.acquire()) {
        return completeIrp(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    if (minor == IRP_MN_REMOVE_DEVICE) {
        return removeDevice(device, irp); // gives the lock back itself; the device is gone afterwards
    }
    device.reference();
    const NTSTATUS status = dispatchHeld(device, irp);
    device.removeLock.release();
    device.dereference("IRP_MJ_PNP", nullptr);
    return status;
}

} // namespace sim::framework
