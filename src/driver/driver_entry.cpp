#include <ntifs.h>
#include <wdf.h>

#include "driver/add_device_hook.h"
#include "driver/device_add.h"
#include "driver/driver_context.h"
#include "driver/unload.h"
#include "log/log.h"

extern "C" DRIVER_INITIALIZE DriverEntry;

/// Creates the framework driver object with DriverContext and writes the first log line. Devices, rules and the control
/// device come later, with device add. Returns the status of WdfDriverCreate.
extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath) {
    WDF_DRIVER_CONFIG config;
    WDF_DRIVER_CONFIG_INIT(&config, onDriverDeviceAdd);
    config.EvtDriverUnload = onDriverUnload;

    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, DriverContext);
    attributes.EvtCleanupCallback = onDriverCleanup;

    const NTSTATUS status = WdfDriverCreate(driverObject, registryPath, &attributes, &config, WDF_NO_HANDLE);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    buildDriverContext(getDriverContext(), driverObject);
    hookAddDevice(driverObject);
    LOG_INFO(L"Driver start");
    return status;
}
