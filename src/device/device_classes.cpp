#include "device/device_classes.h"

#include <initguid.h>

#include <devpkey.h>
#include <usbiodef.h>

#include "device/device_properties.h"
#include "device/identifiers.h"
#include "support/text.h"

namespace {

/// Whether a compatible id of the device equals `wanted` behind its bus name.
bool hasCompatibleId(PDEVICE_OBJECT device, const UNICODE_STRING &wanted) {
    KString ids;
    return NT_SUCCESS(getDeviceProperty(device, DevicePropertyCompatibleIDs, ids)) &&
           anyOfMultiSz(ids, [&](const UNICODE_STRING &id) { return equalCaseSensitive(idWithoutBus(id), wanted); });
}

} // namespace

bool isCompositeDevice(PDEVICE_OBJECT device) {
    if (hasCompatibleId(device, literal(L"COMPOSITE"))) {
        return true;
    }
    KString service;
    return NT_SUCCESS(getDevicePropertyData(device, DEVPKEY_Device_Service, service)) &&
           (equalIgnoringCase(service, literal(L"usbccgp")) || equalIgnoringCase(service, literal(L"dg_ssudbus")));
}

bool isUsbHub(PDEVICE_OBJECT device) {
    PZZWSTR interfaces = nullptr;
    if (!NT_SUCCESS(IoGetDeviceInterfaces(&GUID_DEVINTERFACE_USB_HUB, device, 0, &interfaces))) {
        return false;
    }
    const bool any = interfaces[0] != L'\0';
    ExFreePool(interfaces);
    return any;
}

bool isMassStorageDevice(PDEVICE_OBJECT device) {
    return hasCompatibleId(device, literal(L"Class_08"));
}
