#include "attached_device.h"

#include "../kernel/io.h"
#include "../kernel/irp_table.h"
#include "../kernel/violation.h"

namespace sim::machine {

namespace {

NTSTATUS signalAndKeep(PDEVICE_OBJECT, PIRP irp, PVOID event) {
    if (irp->PendingReturned) {
        KeSetEvent(static_cast<PKEVENT>(event), IO_NO_INCREMENT, FALSE);
    }
    return STATUS_MORE_PROCESSING_REQUIRED;
}

} // namespace

AttachedDevice::AttachedDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, ULONG deviceType,
                               std::u16string_view name) {
    create(driver, deviceType, FILE_DEVICE_SECURE_OPEN, name);
    if (attachDevice(object_, physicalDevice, &lower_) == nullptr) {
        bugCheck("device stack", "IoAttachDeviceToDeviceStack", "a stack is being built on a device that is going away",
                 nullptr);
    }
    object_->Flags |= lower_->Flags & (DO_BUFFERED_IO | DO_DIRECT_IO | DO_POWER_PAGABLE);
    markInitialized();
}

NTSTATUS AttachedDevice::passOn(PIRP irp) {
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(lower_, irp);
}

// learn.microsoft.com: "Postponing PnP IRP processing until lower drivers finish".
NTSTATUS AttachedDevice::passOnAndWait(PIRP irp) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    IoCopyCurrentIrpStackLocationToNext(irp);
    IoSetCompletionRoutine(irp, signalAndKeep, &event, TRUE, TRUE, TRUE);
    NTSTATUS status = IoCallDriver(lower_, irp);
    if (status == STATUS_PENDING) {
        KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
        status = irp->IoStatus.Status;
    }
    return status;
}

// learn.microsoft.com: "Removing a device in a function driver".
NTSTATUS AttachedDevice::remove(PIRP irp) {
    removeLock_.closeAndWait();
    irp->IoStatus.Status = STATUS_SUCCESS;
    const NTSTATUS status = passOn(irp);
    detachDevice(lower_);
    deleteDevice(object_);
    return status;
}

PassThroughFilter::PassThroughFilter(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice)
    : AttachedDevice(driver, physicalDevice, FILE_DEVICE_UNKNOWN) {}

NTSTATUS PassThroughFilter::handle(PIRP irp, PIO_STACK_LOCATION location) {
    if (location->MajorFunction == IRP_MJ_PNP && location->MinorFunction == IRP_MN_REMOVE_DEVICE) {
        return remove(irp);
    }
    return passOn(irp);
}

} // namespace sim::machine
