#include "filters/storage_filter.h"

#include "filters/read_only_queue.h"
#include "log/log.h"

NTSTATUS createStorageFilter(PWDFDEVICE_INIT deviceInit, WDFDEVICE &device) {
    WdfFdoInitSetFilter(deviceInit);
    const NTSTATUS status = WdfDeviceCreate(&deviceInit, WDF_NO_OBJECT_ATTRIBUTES, &device);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create device, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS makeReadOnly(WDFDEVICE device) {
    const NTSTATUS status = initReadOnlyQueue(device);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init i/o queue, status = 0x", hex(status));
    }
    return status;
}
