// The ways to reach a disk's sectors by device control.

#include "disk_port.h"
#include "storage_codes.h"

#include "../kernel/violation.h"

#include <cstring>

namespace sim::machine {

namespace {

/// A big-endian number of a command block.
std::uint64_t bigEndian(const UCHAR *bytes, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

constexpr UCHAR checkCondition = 2;

} // namespace

// learn.microsoft.com: IOCTL_SCSI_PASS_THROUGH; the commands are those of the SCSI block commands. What the device
// refuses shows in the SCSI status, the request itself succeeds.
DiskAnswer DiskPort::passThrough(PIRP irp, const IO_STACK_LOCATION &location) {
    const auto &lengths = location.Parameters.DeviceIoControl;
    ScsiPassThrough request;
    if (lengths.InputBufferLength < sizeof(request) || lengths.OutputBufferLength < sizeof(request)) {
        return {STATUS_BUFFER_TOO_SMALL};
    }
    auto *buffer = static_cast<std::uint8_t *>(irp->AssociatedIrp.SystemBuffer);
    std::memcpy(&request, buffer, sizeof(request));
    if (request.length != sizeof(request)) {
        return {STATUS_REVISION_MISMATCH};
    }
    const bool isWrite = request.cdb[0] == scsiWrite10;
    const std::size_t room = isWrite ? lengths.InputBufferLength : lengths.OutputBufferLength;
    if (request.dataOffset > room || request.transferLength > room - request.dataOffset) {
        return {STATUS_INVALID_PARAMETER};
    }
    const auto finish = [&](UCHAR scsiStatus, ULONG_PTR data) {
        request.scsiStatus = scsiStatus;
        request.transferLength = static_cast<ULONG>(data);
        std::memcpy(buffer, &request, sizeof(request));
        return DiskAnswer{STATUS_SUCCESS, isWrite || data == 0 ? sizeof(request) : request.dataOffset + data};
    };
    if (!NT_SUCCESS(readiness())) {
        return finish(checkCondition, 0);
    }
    if (request.cdb[0] == scsiTestUnitReady) {
        return finish(0, 0);
    }
    if (request.cdb[0] != scsiRead10 && !isWrite) {
        notSimulated("IOCTL_SCSI_PASS_THROUGH", "SCSI command " + hex(request.cdb[0]), nullptr);
    }
    const std::uint64_t offset = bigEndian(request.cdb + 2, 4) * medium().sectorBytes();
    const std::uint64_t length = bigEndian(request.cdb + 7, 2) * medium().sectorBytes();
    const bool inside = offset <= medium().size() && length <= medium().size() - offset;
    if (!inside || length != request.transferLength || (isWrite && medium().writeProtected())) {
        return finish(checkCondition, 0);
    }
    if (isWrite) {
        medium().write(offset, buffer + request.dataOffset, length);
    } else {
        medium().read(offset, buffer + request.dataOffset, length);
    }
    return finish(0, length);
}

// learn.microsoft.com: IOCTL_STORAGE_MANAGE_DATA_SET_ATTRIBUTES, DeviceDsmAction_Trim.
DiskAnswer DiskPort::manageDataSet(PIRP irp, const IO_STACK_LOCATION &location) {
    const std::size_t given = location.Parameters.DeviceIoControl.InputBufferLength;
    ManageDataSet request;
    if (given < sizeof(request)) {
        return {STATUS_INVALID_PARAMETER};
    }
    const auto *buffer = static_cast<const std::uint8_t *>(irp->AssociatedIrp.SystemBuffer);
    std::memcpy(&request, buffer, sizeof(request));
    if (request.action != dataSetTrim) {
        notSimulated("IOCTL_STORAGE_MANAGE_DATA_SET_ATTRIBUTES", "action " + hex(request.action), nullptr);
    }
    if (request.rangesOffset > given || request.rangesLength > given - request.rangesOffset) {
        return {STATUS_INVALID_PARAMETER};
    }
    if (const NTSTATUS status = readiness(); !NT_SUCCESS(status)) {
        return {status};
    }
    if (medium().writeProtected()) {
        return {STATUS_MEDIA_WRITE_PROTECTED};
    }
    for (std::size_t at = 0; at + sizeof(DataSetRange) <= request.rangesLength; at += sizeof(DataSetRange)) {
        DataSetRange range;
        std::memcpy(&range, buffer + request.rangesOffset + at, sizeof(range));
        const auto offset = static_cast<std::uint64_t>(range.offset);
        if (offset > medium().size() || range.length > medium().size() - offset) {
            return {STATUS_INVALID_PARAMETER};
        }
        medium().trim(offset, range.length);
    }
    return {STATUS_SUCCESS};
}

} // namespace sim::machine
