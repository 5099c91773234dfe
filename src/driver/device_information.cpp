#include "driver/device_information.h"

#include <initguid.h>

#include <devpkey.h>

#include "device/device_classes.h"
#include "device/device_properties.h"
#include "device/identifiers.h"
#include "device/usb_class_codes.h"
#include "device/usb_descriptors.h"
#include "log/log.h"
#include "support/framework_guards.h"

namespace {

constexpr ULONG severalInterfaces = 255; // instead of a count that would be misread as "one interface device"

/// What the hub tells about the device on a port.
struct PortInformation {
    USB_DEVICE_DESCRIPTOR device{};
    USB_CONFIGURATION_DESCRIPTOR configuration{};
    KString manufacturer;
    KString product;
    KString serialNumber;
};

NTSTATUS askHub(WDFDEVICE owner, const UsbPort &port, PortInformation &information) {
    // The request goes to the top of the hub's stack, which must stay while the target is open on it.
    const auto top = DeviceReference::adopt(IoGetAttachedDeviceReference(port.hub.get()));
    if (!top) {
        return STATUS_UNSUCCESSFUL;
    }
    DeviceIoTarget hub;
    NTSTATUS status = hub.open(owner, top.get());
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = getUsbDeviceDescriptor(hub.get(), port.number, information.device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = getUsbConfigurationDescriptor(hub.get(), port.number, information.configuration);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    getUsbStringDescriptor(hub.get(), port.number, information.device.iManufacturer, information.manufacturer);
    getUsbStringDescriptor(hub.get(), port.number, information.device.iProduct, information.product);
    getUsbStringDescriptor(hub.get(), port.number, information.device.iSerialNumber, information.serialNumber);
    return STATUS_SUCCESS;
}

/// Lower-case hexadecimal digits without padding.
template<size_t N>
void writeHex(WCHAR (&field)[N], USHORT value) {
    static_assert(N > 4);
    size_t count = 0;
    for (int shift = 12; shift >= 0; shift -= 4) {
        const int digit = (value >> shift) & 0xF;
        if (digit != 0 || count > 0 || shift == 0) {
            field[count++] = static_cast<WCHAR>(digit < 10 ? L'0' + digit : L'a' + (digit - 10));
        }
    }
    field[count] = L'\0';
}

void fillInterfaces(ServiceMessage &message, const UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice,
                    UCHAR interfaceCount) {
    message.interfaceNumber = getInterfaceNumber(filter.hardwareIds);
    message.interfaceCount = interfaceCount;
    if (interfaceCount != 1) {
        return;
    }
    if (isCompositeDevice(physicalDevice) || message.interfaceNumber != noInterfaceNumber) {
        message.interfaceCount = severalInterfaces;
    } else {
        message.interfaceNumber = 0;
    }
}

void fillFromHub(ServiceMessage &message, const PortInformation &information) {
    message.deviceType = MYRTELHAVEN_DEVICE_TYPE_USB;
    message.vendorId = information.device.idVendor;
    message.productId = information.device.idProduct;
    writeHex(message.release, information.device.bcdDevice);
    copyToField(message.serialNumber, information.serialNumber);
    copyToField(message.deviceName, information.product);
    copyToField(message.manufacturer, information.manufacturer);
}

NTSTATUS fillTexts(ServiceMessage &message, const UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice,
                   const UNICODE_STRING &serialNumber) {
    KString description;
    NTSTATUS status = getDevicePropertyData(physicalDevice, DEVPKEY_Device_BusReportedDeviceDesc, description);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    copyToField(message.description, description);

    LONG position = 0;
    KString identity;
    status = identity.copyFrom(nextMultiSzString(filter.hardwareIds, position));
    if (NT_SUCCESS(status)) {
        status = identity.append(literal(L"\\"));
    }
    if (NT_SUCCESS(status)) {
        status = identity.append(serialNumber);
    }
    if (NT_SUCCESS(status)) {
        copyToField(message.identity, identity);
    }
    return status;
}

NTSTATUS fill(UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice, const UsbPort &port,
              const UNICODE_STRING &compatibleIds) {
    PortInformation information;
    const NTSTATUS status = askHub(filter.device, port, information);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    ServiceMessage &message = filter.message;
    fillFromHub(message, information);
    const UsbClassCodes codes = usbClassCodes(compatibleIds);
    message.classCode = codes.classCode;
    message.subclassCode = codes.subclassCode;
    message.protocolCode = codes.protocolCode;
    fillInterfaces(message, filter, physicalDevice, information.configuration.bNumInterfaces);
    message.filterable = static_cast<unsigned char>(filter.filterable);
    return fillTexts(message, filter, physicalDevice, information.serialNumber);
}

} // namespace

void fillDeviceInformation(UsbFilterDevice &filter, PDEVICE_OBJECT physicalDevice, const UsbPort &port,
                           const UNICODE_STRING &compatibleIds) {
    const NTSTATUS status = fill(filter, physicalDevice, port, compatibleIds);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to fill device info, status = 0x", hex(status));
    }
}
