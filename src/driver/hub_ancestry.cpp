#include "driver/hub_ancestry.h"

#include "device/device_tree.h"
#include "driver/driver_context.h"
#include "log/log.h"
#include "support/locks.h"

namespace {

/// Calls `visit(device)` for the device and each ancestor until it answers true; false when none did.
template<typename Visit>
bool anyUpward(PDEVICE_OBJECT device, Visit visit) {
    for (auto current = DeviceReference::share(device); current; current = getParentDevice(current.get())) {
        if (visit(current.get())) {
            return true;
        }
    }
    return false;
}

bool isBelowHub(PDEVICE_OBJECT physicalDevice) {
    return anyUpward(physicalDevice, [](PDEVICE_OBJECT device) {
        LOG_INFO(L"Search no usbhub devices, check name = ", driverName(device));
        return isOwnedByHubDriver(device);
    });
}

/// The status of the line's last append. STATUS_BUFFER_TOO_SMALL without the room that is reserved at load.
NTSTATUS appendLine(PDEVICE_OBJECT physicalDevice) {
    DriverContext &context = getDriverContext();
    FastMutexLock hold(context.notUsbHubMutex);
    if (context.notUsbHubText.maximumLength() == 0) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    (void)anyUpward(physicalDevice, [&](PDEVICE_OBJECT device) {
        (void)context.notUsbHubText.append(driverName(device));
        (void)context.notUsbHubText.append(literal(L"->"));
        return false;
    });
    return context.notUsbHubText.append(literal(L"\n"));
}

} // namespace

void recordUnlessBelowHub(PDEVICE_OBJECT physicalDevice) {
    if (isBelowHub(physicalDevice)) {
        return;
    }
    const NTSTATUS status = appendLine(physicalDevice);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to get no usbhub devices, status = 0x", hex(status));
    }
}
