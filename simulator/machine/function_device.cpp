#include "function_device.h"

#include "../kernel/io.h"
#include "storage_requests.h"

namespace sim::machine {

FunctionDevice::FunctionDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, ULONG deviceType,
                               std::u16string_view name)
    : AttachedDevice(driver, physicalDevice, deviceType, name) {}

NTSTATUS FunctionDevice::handle(PIRP irp, PIO_STACK_LOCATION location) {
    switch (location->MajorFunction) {
    case IRP_MJ_PNP:
        return plugAndPlay(irp, location);
    case IRP_MJ_POWER:
        return power(irp, location);
    case IRP_MJ_SYSTEM_CONTROL:
        return passOn(irp);
    case IRP_MJ_CREATE:
    case IRP_MJ_CLEANUP:
    case IRP_MJ_CLOSE:
        return complete(irp, STATUS_SUCCESS, 0);
    case IRP_MJ_READ:
    case IRP_MJ_WRITE:
        return transfer(irp, location);
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
        return deviceControl(irp, location);
    default:
        return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
}

// learn.microsoft.com: "Handling an IRP_MN_START_DEVICE request", "Handling an IRP_MN_SURPRISE_REMOVAL request".
NTSTATUS FunctionDevice::plugAndPlay(PIRP irp, PIO_STACK_LOCATION location) {
    switch (location->MinorFunction) {
    case IRP_MN_START_DEVICE:
        return start(irp);
    case IRP_MN_REMOVE_DEVICE:
        startedOrStopped(false);
        return remove(irp);
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
        irp->IoStatus.Status = STATUS_SUCCESS;
        return passOn(irp);
    case IRP_MN_STOP_DEVICE:
        startedOrStopped(false);
        irp->IoStatus.Status = STATUS_SUCCESS;
        return passOn(irp);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
        if (location->Parameters.QueryDeviceRelations.Type == BusRelations) {
            children_.report(irp);
        }
        return passOn(irp);
    default:
        return passOn(irp);
    }
}

NTSTATUS FunctionDevice::start(PIRP irp) {
    const NTSTATUS status = passOnAndWait(irp);
    if (NT_SUCCESS(status)) {
        startedOrStopped(true);
    }
    return complete(irp, status, 0);
}

// learn.microsoft.com: "Handling a system set-power IRP in a device power policy owner".
NTSTATUS FunctionDevice::power(PIRP irp, PIO_STACK_LOCATION location) {
    const auto &parameters = location->Parameters.Power;
    if (location->MinorFunction != IRP_MN_SET_POWER || parameters.Type != SystemPowerState) {
        return passOn(irp);
    }
    const bool waking = parameters.State.SystemState == PowerSystemWorking;
    const POWER_ACTION action = parameters.ShutdownType;
    POWER_STATE device{};
    device.DeviceState = waking ? PowerDeviceD0 : PowerDeviceD3;
    if (waking) {
        const NTSTATUS status = passOnAndWait(irp);
        sendPowerIrp(object_, IRP_MN_SET_POWER, DevicePowerState, device, action);
        return complete(irp, status, 0);
    }
    sendPowerIrp(object_, IRP_MN_SET_POWER, DevicePowerState, device, action);
    return passOn(irp);
}

NTSTATUS FunctionDevice::deviceControl(PIRP irp, PIO_STACK_LOCATION location) {
    refuseToGuessStorageRequest(location->Parameters.DeviceIoControl.IoControlCode);
    return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
}

NTSTATUS FunctionDevice::transfer(PIRP irp, PIO_STACK_LOCATION) {
    return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
}

RootDevice::RootDevice(PDRIVER_OBJECT driver) {
    create(driver, FILE_DEVICE_CONTROLLER, 0, {});
    object_->Flags |= DO_BUS_ENUMERATED_DEVICE;
    markInitialized();
}

NTSTATUS RootDevice::handle(PIRP irp, PIO_STACK_LOCATION location) {
    if (location->MajorFunction == IRP_MJ_PNP && location->MinorFunction == IRP_MN_QUERY_DEVICE_RELATIONS &&
        location->Parameters.QueryDeviceRelations.Type == BusRelations) {
        children_.report(irp);
        return completeAsIs(irp);
    }
    if (location->MajorFunction == IRP_MJ_PNP || location->MajorFunction == IRP_MJ_SYSTEM_CONTROL) {
        return completeAsIs(irp);
    }
    return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
}

} // namespace sim::machine
