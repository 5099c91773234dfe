#include "device/device_properties.h"

#include "device/property_reader.h"

NTSTATUS getDeviceProperty(PDEVICE_OBJECT device, DEVICE_REGISTRY_PROPERTY property, KString &out) {
    return readProperty(out, [=](ULONG size, PVOID buffer, PULONG needed) {
        return IoGetDeviceProperty(device, property, size, buffer, needed);
    });
}

NTSTATUS getDevicePropertyData(PDEVICE_OBJECT device, const DEVPROPKEY &key, KString &out) {
    return readProperty(out, [device, &key](ULONG size, PVOID buffer, PULONG needed) {
        DEVPROPTYPE type = 0;
        return IoGetDevicePropertyData(device, &key, LOCALE_NEUTRAL, 0, size, buffer, needed, &type);
    });
}
