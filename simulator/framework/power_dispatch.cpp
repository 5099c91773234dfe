#include "../kernel/io.h"
#include "../kernel/thread.h"
#include "device.h"
#include "irp_dispatch.h"

namespace sim::framework {

namespace {

/// A device power IRP: down first on the way to D0, last on the way out of it.
NTSTATUS setDevicePower(Device &device, PIRP irp, DEVICE_POWER_STATE state) {
    if (state == PowerDeviceD0) {
        const NTSTATUS status = forwardIrpAndWait(device, irp);
        if (NT_SUCCESS(status)) {
            device.power.resume();
        }
        return completeIrp(irp, status, irp->IoStatus.Information);
    }
    device.power.goDx(state);
    irp->IoStatus.Status = STATUS_SUCCESS;
    return forwardIrp(device, irp);
}

/// A system power IRP: the power policy owner asks for the matching device power IRP before it passes this one on.
NTSTATUS setSystemPower(Device &device, PIRP irp, SYSTEM_POWER_STATE state, POWER_ACTION action) {
    const bool ownsPolicy = !device.filter();
    if (!ownsPolicy) {
        irp->IoStatus.Status = STATUS_SUCCESS;
        return forwardIrp(device, irp);
    }
    NTSTATUS status = STATUS_SUCCESS;
    if (state == PowerSystemWorking) {
        status = forwardIrpAndWait(device, irp);
        if (NT_SUCCESS(status)) {
            status = requestDevicePower(device.deviceObject, PowerDeviceD0, action);
        }
        return completeIrp(irp, status, 0);
    }
    if (device.power.inD0()) {
        requestDevicePower(device.deviceObject, PowerDeviceD3, action);
    }
    irp->IoStatus.Status = STATUS_SUCCESS;
    return forwardIrp(device, irp);
}

} // namespace

// learn.microsoft.com: PoRequestPowerIrp
NTSTATUS requestDevicePower(PDEVICE_OBJECT deviceObject, DEVICE_POWER_STATE state, POWER_ACTION action) {
    POWER_STATE wanted{};
    wanted.DeviceState = state;
    return sendPowerIrp(deviceObject, IRP_MN_SET_POWER, DevicePowerState, wanted, action);
}

NTSTATUS dispatchPower(Device &device, PIRP irp) {
    if (!device.removeLock.acquire()) {
        return completeIrp(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    device.reference();
    const IO_STACK_LOCATION location = *IoGetCurrentIrpStackLocation(irp);
    NTSTATUS status;
    if (location.MinorFunction != IRP_MN_SET_POWER) {
        status = forwardIrp(device, irp);
    } else if (location.Parameters.Power.Type == DevicePowerState) {
        status = setDevicePower(device, irp, location.Parameters.Power.State.DeviceState);
    } else {
        status = setSystemPower(device, irp, location.Parameters.Power.State.SystemState,
                                location.Parameters.Power.ShutdownType);
    }
    device.removeLock.release();
    device.dereference("IRP_MJ_POWER", nullptr);
    return status;
}

} // namespace sim::framework
