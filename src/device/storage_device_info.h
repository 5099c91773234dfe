#pragma once

#include <ntifs.h>

#include "log/kstring.h"

/// A storage device in its own words. Strings that it does not give stay empty.
struct StorageDeviceInfo {
    ULONG busType = 0;      ///< a STORAGE_BUS_TYPE, or any other number that the device gives
    bool removable = false; ///< removable media
    KString vendorId;
    KString productId;
    KString productRevision;
    KString serialNumber;
};

/// Asks the device object (for a device that is being added: its physical one) for its descriptor. A string for which
/// memory runs out stays empty. Returns the status of the query; on failure nothing is filled. PASSIVE_LEVEL.
NTSTATUS getStorageDeviceInfo(PDEVICE_OBJECT device, StorageDeviceInfo &info);
