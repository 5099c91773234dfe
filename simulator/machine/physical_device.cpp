#include "physical_device.h"

#include "../kernel/io.h"
#include "../kernel/kernel.h"
#include "child_list.h"
#include "storage_requests.h"

namespace sim::machine {

PhysicalDevice::PhysicalDevice(PDRIVER_OBJECT driver, std::shared_ptr<Hardware> hardware, std::u16string_view name)
    : hardware_(std::move(hardware)) {
    create(driver, FILE_DEVICE_UNKNOWN, FILE_DEVICE_SECURE_OPEN, name);
    object_->Flags |= DO_BUS_ENUMERATED_DEVICE | DO_POWER_PAGABLE;
    markInitialized();
}

NTSTATUS PhysicalDevice::handle(PIRP irp, PIO_STACK_LOCATION location) {
    switch (location->MajorFunction) {
    case IRP_MJ_PNP:
        return plugAndPlay(irp, location);
    case IRP_MJ_POWER:
        if (location->MinorFunction == IRP_MN_SET_POWER || location->MinorFunction == IRP_MN_QUERY_POWER) {
            return complete(irp, STATUS_SUCCESS, 0);
        }
        return completeAsIs(irp);
    case IRP_MJ_SYSTEM_CONTROL:
        return completeAsIs(irp);
    case IRP_MJ_CREATE:
    case IRP_MJ_CLEANUP:
    case IRP_MJ_CLOSE:
        return complete(irp, STATUS_SUCCESS, 0);
    default:
        return request(irp, location);
    }
}

NTSTATUS PhysicalDevice::request(PIRP irp, PIO_STACK_LOCATION location) {
    const UCHAR major = location->MajorFunction;
    if (major == IRP_MJ_DEVICE_CONTROL || major == IRP_MJ_INTERNAL_DEVICE_CONTROL) {
        refuseToGuessStorageRequest(location->Parameters.DeviceIoControl.IoControlCode);
    }
    return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
}

// learn.microsoft.com: "Plug and Play minor IRPs"; what a bus driver does not handle it completes unchanged.
NTSTATUS PhysicalDevice::plugAndPlay(PIRP irp, PIO_STACK_LOCATION location) {
    switch (location->MinorFunction) {
    case IRP_MN_START_DEVICE:
        if (hardware_->description.startFailure) {
            return complete(irp, *hardware_->description.startFailure, 0);
        }
        started_ = true;
        return complete(irp, STATUS_SUCCESS, 0);
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_DEVICE_ENUMERATED:
        return complete(irp, STATUS_SUCCESS, 0);
    case IRP_MN_SURPRISE_REMOVAL:
        disappear();
        [[fallthrough]];
    case IRP_MN_STOP_DEVICE:
        started_ = false;
        return complete(irp, STATUS_SUCCESS, 0);
    case IRP_MN_REMOVE_DEVICE:
        return remove(irp);
    case IRP_MN_QUERY_CAPABILITIES:
        return answerCapabilities(irp, location->Parameters.DeviceCapabilities.Capabilities);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
        if (location->Parameters.QueryDeviceRelations.Type == TargetDeviceRelation) {
            return answerTargetRelation(irp);
        }
        return completeAsIs(irp);
    default:
        return completeAsIs(irp);
    }
}

// learn.microsoft.com: IRP_MN_QUERY_CAPABILITIES. Size and Version are the sender's.
NTSTATUS PhysicalDevice::answerCapabilities(PIRP irp, DEVICE_CAPABILITIES *capabilities) {
    const DeviceDescription &description = hardware_->description;
    if (description.capabilitiesFailure) {
        return complete(irp, *description.capabilitiesFailure, 0);
    }
    if (capabilities->Version != 1 || capabilities->Size < sizeof(DEVICE_CAPABILITIES)) {
        return complete(irp, STATUS_UNSUCCESSFUL, 0);
    }
    capabilities->Removable = description.removable;
    capabilities->SurpriseRemovalOK = description.removable && description.usb.has_value();
    capabilities->UniqueID = description.uniqueId;
    capabilities->Address = hardware_->address;
    return complete(irp, STATUS_SUCCESS, 0);
}

// learn.microsoft.com: IRP_MN_QUERY_DEVICE_RELATIONS, TargetDeviceRelation.
NTSTATUS PhysicalDevice::answerTargetRelation(PIRP irp) {
    PDEVICE_RELATIONS relations = allocateRelations(1);
    kernel().objects.reference(object_, nullptr);
    relations->Count = 1;
    relations->Objects[0] = object_;
    return complete(irp, STATUS_SUCCESS, reinterpret_cast<ULONG_PTR>(relations));
}

// learn.microsoft.com: "Removing a device in a bus driver": the object stays while the device is there.
NTSTATUS PhysicalDevice::remove(PIRP irp) {
    started_ = false;
    if (present_) {
        return complete(irp, STATUS_SUCCESS, 0);
    }
    disappear();
    removeLock_.closeAndWait();
    deleteDevice(object_);
    return complete(irp, STATUS_SUCCESS, 0);
}

} // namespace sim::machine
