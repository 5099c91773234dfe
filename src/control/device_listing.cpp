#include "control/device_listing.h"

#include "control/processed_device.h"
#include "device/device_classes.h"
#include "device/device_layouts.h"
#include "device/driver_devices.h"
#include "driver/driver_context.h"
#include "log/log.h"
#include "myrtelhaven_service.h"
#include "support/device_reference.h"
#include "support/locks.h"

namespace {

/// The records of one request.
struct Listing {
    WDFDEVICE controlDevice;
    ProcessedDeviceInfo *records;
    size_t capacity;
    size_t count;
};

/// The output buffer, zeroed. A buffer that is too small completes the request.
NTSTATUS retrieveOutput(WDFREQUEST request, size_t least, void *&buffer, size_t &bytes) {
    const NTSTATUS status = WdfRequestRetrieveOutputBuffer(request, least, &buffer, &bytes);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve output buffer, status = 0x", hex(status));
        WdfRequestComplete(request, status);
        return status;
    }
    RtlZeroMemory(buffer, bytes);
    return STATUS_SUCCESS;
}

NTSTATUS listDevice(Listing &listing, PDEVICE_OBJECT device) {
    const auto base = DeviceReference::adopt(IoGetDeviceAttachmentBaseRef(device));
    if (base.get() != device) {
        return STATUS_SUCCESS; // the hub driver's devices for the hubs themselves
    }
    if (deviceNodeOf(device) == nullptr) {
        LOG_INFO(L"PnP Manager has not initialized the device yet");
        return STATUS_SUCCESS;
    }
    if (listing.count == listing.capacity) {
        LOG_ERROR(L"processedDevices error = STATUS_BUFFER_TOO_SMALL");
        return STATUS_BUFFER_TOO_SMALL;
    }
    if (!isUsbHub(device)) {
        fillProcessedDevice(listing.controlDevice, device, listing.records[listing.count++]);
    }
    return STATUS_SUCCESS;
}

NTSTATUS listDevicesOf(Listing &listing, const UNICODE_STRING &driverName) {
    LOG_INFO(L"getProcessedDevicesInternal driver name = ", driverName);
    DriverDevices devices;
    NTSTATUS status = devices.enumerate(driverName);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to enumerate driver devices, status = 0x", hex(status));
        return status;
    }
    for (PDEVICE_OBJECT device : devices) {
        status = listDevice(listing, device);
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}

NTSTATUS listDevices(Listing &listing) {
    for (const UNICODE_STRING &name : hubDriverNames) {
        LOG_INFO(L"getProcessedDevices driverName = ", name);
        const NTSTATUS status = listDevicesOf(listing, name);
        // A hub driver that is not loaded has no devices.
        if (!NT_SUCCESS(status) && status != STATUS_OBJECT_NAME_NOT_FOUND) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}

/// Returns how many characters were copied; the buffer is zero behind them.
USHORT copyNotUsbHubText(WCHAR *buffer, size_t room) {
    DriverContext &context = getDriverContext();
    FastMutexLock hold(context.notUsbHubMutex);
    const UNICODE_STRING &text = context.notUsbHubText;
    const auto count = static_cast<USHORT>(characterCount(text) < room ? characterCount(text) : room);
    if (count > 0) {
        RtlCopyMemory(buffer, text.Buffer, count * sizeof(WCHAR));
    }
    return count;
}

} // namespace

void getProcessedDevices(WDFDEVICE controlDevice, WDFREQUEST request) {
    void *buffer = nullptr;
    size_t bytes = 0;
    if (!NT_SUCCESS(retrieveOutput(request, sizeof(ProcessedDeviceInfo), buffer, bytes))) {
        return;
    }
    Listing listing{controlDevice, static_cast<ProcessedDeviceInfo *>(buffer), bytes / sizeof(ProcessedDeviceInfo), 0};
    const NTSTATUS status = listDevices(listing);
    size_t records = listing.count;
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get processed devices info, status = 0x", hex(status));
        records = listing.capacity;
    }
    LOG_INFO(L"Processed devices size = ", decimal(listing.count));
    WdfRequestCompleteWithInformation(request, status, records * sizeof(ProcessedDeviceInfo));
}

void getNotUsbHubDevices(WDFREQUEST request) {
    void *buffer = nullptr;
    size_t bytes = 0;
    if (!NT_SUCCESS(retrieveOutput(request, MYRTELHAVEN_NOT_USBHUB_BYTES, buffer, bytes))) {
        return;
    }
    const USHORT count = copyNotUsbHubText(static_cast<WCHAR *>(buffer), bytes / sizeof(WCHAR) - 1);
    LOG_INFO(L"Not usbhub devices size = ", decimal(count));
    WdfRequestCompleteWithInformation(request, STATUS_SUCCESS, count * sizeof(WCHAR));
}
