#include "disk_device.h"

#include "../kernel/io.h"
#include "../kernel/strings.h"
#include "storage_codes.h"

#include <fmt/format.h>

#include <cstring>

namespace sim::machine {

namespace {

/// Hands a structure out, if the caller has room for it.
template<typename Structure>
DiskAnswer giveStructure(PIRP irp, const IO_STACK_LOCATION &location, const Structure &structure) {
    if (location.Parameters.DeviceIoControl.OutputBufferLength < sizeof(structure)) {
        return {STATUS_BUFFER_TOO_SMALL};
    }
    std::memcpy(irp->AssociatedIrp.SystemBuffer, &structure, sizeof(structure));
    return {STATUS_SUCCESS, sizeof(structure)};
}

/// Codes that the class driver answers by itself; the others it hands to the port.
bool isAnsweredByClass(ULONG code) {
    switch (code) {
    case IOCTL_DISK_IS_WRITABLE:
    case IOCTL_STORAGE_CHECK_VERIFY:
    case storageCheckVerify2:
    case storageGetDeviceNumber:
    case diskGetDriveGeometry:
    case diskGetLengthInfo:
        return true;
    default:
        return false;
    }
}

} // namespace

DiskDevice::DiskDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, DiskPort &port, unsigned number)
    : FunctionDevice(driver, physicalDevice, FILE_DEVICE_DISK,
                     toUtf16(fmt::format("\\Device\\Harddisk{}\\DR{}", number, number))),
      port_(port), number_(number) {}

NTSTATUS DiskDevice::transfer(PIRP irp, PIO_STACK_LOCATION location) {
    if (!running_) {
        return complete(irp, STATUS_DEVICE_NOT_READY, 0); // recalled
    }
    return port_.serve(irp, removeLock_, true, [this, irp, location] { return port_.transfer(irp, *location); });
}

NTSTATUS DiskDevice::deviceControl(PIRP irp, PIO_STACK_LOCATION location) {
    const ULONG code = location->Parameters.DeviceIoControl.IoControlCode;
    const bool told = port_.disk().controlAnswers.contains(code);
    if (location->MajorFunction != IRP_MJ_DEVICE_CONTROL || told || !isAnsweredByClass(code)) {
        return passOn(irp);
    }
    if (!running_) {
        return complete(irp, STATUS_DEVICE_NOT_READY, 0); // recalled
    }
    return port_.serve(irp, removeLock_, false, [this, irp, location] { return answer(irp, *location); });
}

// learn.microsoft.com: IOCTL_DISK_IS_WRITABLE, IOCTL_DISK_GET_DRIVE_GEOMETRY, IOCTL_DISK_GET_LENGTH_INFO,
// IOCTL_STORAGE_GET_DEVICE_NUMBER, IOCTL_STORAGE_CHECK_VERIFY.
DiskAnswer DiskDevice::answer(PIRP irp, const IO_STACK_LOCATION &location) const {
    const Medium &medium = port_.medium();
    const ULONG code = location.Parameters.DeviceIoControl.IoControlCode;
    if (code == storageGetDeviceNumber) {
        return giveStructure(irp, location, StorageDeviceNumber{FILE_DEVICE_DISK, number_, 0});
    }
    if (const NTSTATUS status = port_.readiness(); !NT_SUCCESS(status)) {
        return {status};
    }
    constexpr ULONG tracks = 255; // recalled: the geometry that disks without one of their own report
    constexpr ULONG sectors = 63;
    switch (code) {
    case IOCTL_DISK_IS_WRITABLE:
        return {medium.writeProtected() ? STATUS_MEDIA_WRITE_PROTECTED : STATUS_SUCCESS};
    case diskGetDriveGeometry:
        return giveStructure(
            irp, location,
            DiskGeometry{static_cast<LONGLONG>(medium.size() / medium.sectorBytes() / tracks / sectors),
                         port_.disk().removableMedia ? 11U : 12U, tracks, sectors, medium.sectorBytes()});
    case diskGetLengthInfo:
        return giveStructure(irp, location, static_cast<LONGLONG>(medium.size()));
    default: // the verify codes
        return {STATUS_SUCCESS};
    }
}

} // namespace sim::machine
