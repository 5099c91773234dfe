#pragma once

#include <ntdddisk.h>
#include <ntddstor.h>
#include <ntifs.h>

namespace sim::machine {

// Control codes of disks that the driver under test does not name itself (learn.microsoft.com: "Storage I/O control
// codes").
inline constexpr ULONG diskGetDriveGeometry = CTL_CODE(FILE_DEVICE_DISK, 0x0000, METHOD_BUFFERED, FILE_ANY_ACCESS);
inline constexpr ULONG diskGetLengthInfo = CTL_CODE(FILE_DEVICE_DISK, 0x0017, METHOD_BUFFERED, FILE_READ_ACCESS);
inline constexpr ULONG storageCheckVerify2 =
    CTL_CODE(FILE_DEVICE_MASS_STORAGE, 0x0200, METHOD_BUFFERED, FILE_ANY_ACCESS);
inline constexpr ULONG storageGetDeviceNumber =
    CTL_CODE(FILE_DEVICE_MASS_STORAGE, 0x0420, METHOD_BUFFERED, FILE_ANY_ACCESS);
inline constexpr ULONG storageManageDataSet =
    CTL_CODE(FILE_DEVICE_MASS_STORAGE, 0x0501, METHOD_BUFFERED, FILE_WRITE_ACCESS);
inline constexpr ULONG scsiPassThrough =
    CTL_CODE(FILE_DEVICE_CONTROLLER, 0x0401, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);

/// learn.microsoft.com: DISK_GEOMETRY.
struct DiskGeometry {
    LONGLONG cylinders;
    ULONG mediaType; ///< 11 removable medium, 12 fixed medium
    ULONG tracksPerCylinder;
    ULONG sectorsPerTrack;
    ULONG bytesPerSector;
};
static_assert(sizeof(DiskGeometry) == 24);

/// learn.microsoft.com: STORAGE_DEVICE_NUMBER.
struct StorageDeviceNumber {
    ULONG deviceType;
    ULONG deviceNumber;
    ULONG partitionNumber;
};

/// learn.microsoft.com: DEVICE_MANAGE_DATA_SET_ATTRIBUTES, DEVICE_DATA_SET_RANGE.
struct ManageDataSet {
    ULONG size;
    ULONG action;
    ULONG flags;
    ULONG parameterBlockOffset;
    ULONG parameterBlockLength;
    ULONG rangesOffset;
    ULONG rangesLength;
};
struct DataSetRange {
    LONGLONG offset;
    ULONGLONG length;
};
inline constexpr ULONG dataSetTrim = 1;

/// learn.microsoft.com: SCSI_PASS_THROUGH, on 64-bit systems.
struct ScsiPassThrough {
    USHORT length;
    UCHAR scsiStatus;
    UCHAR pathId;
    UCHAR targetId;
    UCHAR lun;
    UCHAR cdbLength;
    UCHAR senseLength;
    UCHAR dataIn; ///< 0 to the device, 1 from it, 2 none
    ULONG transferLength;
    ULONG timeOut;
    ULONGLONG dataOffset;
    ULONG senseOffset;
    UCHAR cdb[16];
};
static_assert(sizeof(ScsiPassThrough) == 0x38);

// Commands of the SCSI block commands that pass-through requests carry here.
inline constexpr UCHAR scsiTestUnitReady = 0x00;
inline constexpr UCHAR scsiRead10 = 0x28;
inline constexpr UCHAR scsiWrite10 = 0x2A;

} // namespace sim::machine
