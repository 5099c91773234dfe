#include "device/storage_device_info.h"

#include "device/storage_descriptor.h"
#include "log/log.h"

namespace {

void convert(ANSI_STRING text, KString &out) {
    if (text.Length == 0) {
        return;
    }
    // The text is short enough for its size to fit in 16 bits, terminator included.
    if (!NT_SUCCESS(out.resize(static_cast<LONG>(RtlxAnsiStringToUnicodeSize(&text))))) {
        return;
    }
    if (!NT_SUCCESS(RtlAnsiStringToUnicodeString(out.counted(), &text, FALSE))) {
        out.release(); // a failed conversion may have set the length already
    }
}

/// As a number: an enumeration must not hold what its type does not know.
ULONG busTypeIn(const STORAGE_DEVICE_DESCRIPTOR &header) {
    static_assert(sizeof(header.BusType) == sizeof(ULONG));
    ULONG busType = 0;
    RtlCopyMemory(&busType, &header.BusType, sizeof(busType));
    return busType;
}

} // namespace

NTSTATUS getStorageDeviceInfo(PDEVICE_OBJECT device, StorageDeviceInfo &info) {
    info.busType = 0;
    info.removable = false;
    StorageDescriptor descriptor;
    const NTSTATUS status = descriptor.read(device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const STORAGE_DEVICE_DESCRIPTOR &header = descriptor.header();
    info.busType = busTypeIn(header);
    info.removable = header.RemovableMedia != 0;
    LOG_DEBUG(L"ProductIdOffset=", decimal(header.ProductIdOffset), L" ProductRevisionOffset=",
              decimal(header.ProductRevisionOffset), L" SerialNumberOffset=", decimal(header.SerialNumberOffset),
              L" VendorIdOffset=", decimal(header.VendorIdOffset));
    convert(descriptor.text(header.ProductIdOffset), info.productId);
    convert(descriptor.text(header.ProductRevisionOffset), info.productRevision);
    convert(descriptor.text(header.SerialNumberOffset), info.serialNumber);
    convert(descriptor.text(header.VendorIdOffset), info.vendorId);
    return STATUS_SUCCESS;
}
