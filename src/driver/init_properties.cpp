#include "driver/init_properties.h"

#include "device/property_reader.h"

NTSTATUS getInitProperty(PWDFDEVICE_INIT deviceInit, DEVICE_REGISTRY_PROPERTY property, KString &out) {
    return readProperty(out, [=](ULONG size, PVOID buffer, PULONG needed) {
        return WdfFdoInitQueryProperty(deviceInit, property, size, buffer, needed);
    });
}

bool isUsbEnumerated(PWDFDEVICE_INIT deviceInit) {
    KString enumerator;
    return NT_SUCCESS(getInitProperty(deviceInit, DevicePropertyEnumeratorName, enumerator)) &&
           equalCaseSensitive(enumerator, literal(L"USB"));
}
