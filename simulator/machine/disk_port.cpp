#include "disk_port.h"

#include "../kernel/io.h"
#include "../kernel/violation.h"
#include "storage_codes.h"
#include "storage_descriptor.h"
#include "storage_requests.h"

#include <algorithm>
#include <cstring>

namespace sim::machine {

DiskPort::DiskPort(PDRIVER_OBJECT driver, std::shared_ptr<Hardware> hardware, std::u16string_view name)
    : PhysicalDevice(driver, std::move(hardware), name) {
    object_->Flags |= DO_DIRECT_IO;
}

NTSTATUS DiskPort::serve(PIRP irp, RemoveLock &lock, bool isTransfer, std::function<DiskAnswer()> work) {
    const auto finish = [this, irp, work = std::move(work)] {
        const DiskAnswer answer = gone_ ? DiskAnswer{STATUS_DEVICE_DOES_NOT_EXIST} : work();
        return complete(irp, answer.status, answer.information);
    };
    if (gone_ || (!disk().answersLater && !isTransfer)) {
        return finish();
    }
    IoMarkIrpPending(irp);
    lock.enter(); // until the answer, as the call itself is inside
    const auto finishAndLeave = [finish, &lock] {
        finish();
        lock.leave();
    };
    const auto start = [this, isTransfer, finishAndLeave] {
        if (isTransfer) {
            medium().serve(this, [this] { return gone_.load(); }, finishAndLeave);
        } else {
            finishAndLeave();
        }
    };
    if (disk().answersLater) {
        wire_.post(start, true);
    } else {
        start();
    }
    return STATUS_PENDING;
}

/// The disk is pulled out: what the device has not done by now it never will.
void DiskPort::disappear() {
    gone_ = true;
    medium().abandon(this);
}

NTSTATUS DiskPort::readiness() const {
    return medium().present() ? STATUS_SUCCESS : STATUS_NO_MEDIA_IN_DEVICE;
}

NTSTATUS DiskPort::request(PIRP irp, PIO_STACK_LOCATION location) {
    if (location->MajorFunction != IRP_MJ_DEVICE_CONTROL) {
        return PhysicalDevice::request(irp, location); // transfers come from the class driver in another form
    }
    auto work = control(irp, location);
    if (work == nullptr) {
        return PhysicalDevice::request(irp, location);
    }
    const ULONG code = location->Parameters.DeviceIoControl.IoControlCode;
    return serve(irp, removeLock_, code == scsiPassThrough || code == storageManageDataSet, std::move(work));
}

/// What answers a control code; nothing for one that no port driver of this machine knows.
std::function<DiskAnswer()> DiskPort::control(PIRP irp, PIO_STACK_LOCATION location) {
    const ULONG code = location->Parameters.DeviceIoControl.IoControlCode;
    if (const auto told = disk().controlAnswers.find(code); told != disk().controlAnswers.end()) {
        return [irp, location, &answer = told->second] {
            const std::size_t bytes =
                std::min<std::size_t>(answer.output.size(), location->Parameters.DeviceIoControl.OutputBufferLength);
            if (bytes != 0 && !NT_ERROR(answer.status)) {
                std::memcpy(irp->AssociatedIrp.SystemBuffer, answer.output.data(), bytes);
            }
            return DiskAnswer{answer.status, NT_ERROR(answer.status) ? 0 : bytes};
        };
    }
    switch (code) {
    case IOCTL_STORAGE_QUERY_PROPERTY:
        return [this, irp, location] { return queryProperty(irp, *location); };
    case scsiPassThrough:
        return [this, irp, location] { return passThrough(irp, *location); };
    case storageManageDataSet:
        return [this, irp, location] { return manageDataSet(irp, *location); };
    default:
        return nullptr;
    }
}

// learn.microsoft.com: IOCTL_STORAGE_QUERY_PROPERTY. What a buffer too small for the whole gets differs from stack to
// stack; Size always tells the full length.
DiskAnswer DiskPort::queryProperty(PIRP irp, const IO_STACK_LOCATION &location) {
    const auto &lengths = location.Parameters.DeviceIoControl;
    if (lengths.InputBufferLength < sizeof(STORAGE_PROPERTY_QUERY)) {
        return {STATUS_INFO_LENGTH_MISMATCH};
    }
    ULONG asked[2]; // PropertyId and QueryType, which may be numbers that the enumerations do not know
    std::memcpy(asked, irp->AssociatedIrp.SystemBuffer, sizeof(asked));
    if (disk().storageAnswer.failure) {
        return {*disk().storageAnswer.failure};
    }
    if (asked[0] != StorageDeviceProperty) {
        return {STATUS_NOT_SUPPORTED}; // of the statuses documented for a property that a stack does not have
    }
    if (asked[1] == PropertyExistsQuery || lengths.OutputBufferLength == 0) {
        return {STATUS_SUCCESS}; // no room at all asks whether there is an answer
    }
    if (asked[1] != PropertyStandardQuery) {
        return {STATUS_INVALID_PARAMETER};
    }
    return answerStorageQuery(disk(), static_cast<std::uint8_t *>(irp->AssociatedIrp.SystemBuffer),
                              lengths.OutputBufferLength);
}

DiskAnswer DiskPort::transfer(PIRP irp, const IO_STACK_LOCATION &location) {
    const bool isWrite = location.MajorFunction == IRP_MJ_WRITE;
    const ULONG length = isWrite ? location.Parameters.Write.Length : location.Parameters.Read.Length;
    const auto offset = static_cast<std::uint64_t>(
        (isWrite ? location.Parameters.Write.ByteOffset : location.Parameters.Read.ByteOffset).QuadPart);
    if (const NTSTATUS status = readiness(); !NT_SUCCESS(status)) {
        return {status};
    }
    if (offset % medium().sectorBytes() != 0 || length % medium().sectorBytes() != 0) {
        return {STATUS_INVALID_PARAMETER};
    }
    if (offset > medium().size() || length > medium().size() - offset) {
        return {STATUS_INVALID_PARAMETER}; // recalled: what the class driver says of sectors that are not there
    }
    if (length == 0) {
        return {STATUS_SUCCESS};
    }
    if (isWrite && medium().writeProtected()) {
        return {STATUS_MEDIA_WRITE_PROTECTED};
    }
    const PMDL mdl = irp->MdlAddress;
    if (mdl == nullptr || mdl->MappedSystemVa == nullptr || mdl->ByteCount < length) {
        bugCheck("direct io", isWrite ? "IRP_MJ_WRITE" : "IRP_MJ_READ",
                 "the request has no memory described for its " + std::to_string(length) + " bytes", nullptr);
    }
    auto *memory = static_cast<std::uint8_t *>(mdl->MappedSystemVa);
    if (isWrite) {
        medium().write(offset, memory, length);
    } else {
        medium().read(offset, memory, length);
    }
    return {STATUS_SUCCESS, length};
}

} // namespace sim::machine
