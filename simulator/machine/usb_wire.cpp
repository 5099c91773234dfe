#include "usb_wire.h"

#include <usbspec.h>

#include <cstring>
#include <stdexcept>

namespace sim::machine {

namespace {

/// bLength is one byte and counts two bytes of header and two for each unit.
constexpr std::size_t longestText = (255 - 2) / 2;

template<typename Descriptor>
void append(std::vector<std::uint8_t> &bytes, const Descriptor &descriptor) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(&descriptor);
    bytes.insert(bytes.end(), first, first + sizeof(descriptor));
}

std::vector<std::uint8_t> textDescriptor(const void *units, std::size_t count) {
    std::vector<std::uint8_t> bytes(2 + 2 * count);
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    bytes[1] = USB_STRING_DESCRIPTOR_TYPE;
    if (count != 0) {
        std::memcpy(bytes.data() + 2, units, 2 * count);
    }
    return bytes;
}

UsbInterfaceClass classOfInterface(const UsbDescriptors &usb, std::size_t interface) {
    if (interface < usb.interfaceClasses.size()) {
        return usb.interfaceClasses[interface];
    }
    return {usb.deviceClass, usb.deviceSubClass, usb.deviceProtocol};
}

} // namespace

std::vector<std::uint8_t> deviceDescriptor(const UsbDescriptors &usb) {
    USB_DEVICE_DESCRIPTOR descriptor{};
    descriptor.bLength = sizeof(descriptor);
    descriptor.bDescriptorType = USB_DEVICE_DESCRIPTOR_TYPE;
    descriptor.bcdUSB = usb.usbVersion;
    descriptor.bDeviceClass = usb.deviceClass;
    descriptor.bDeviceSubClass = usb.deviceSubClass;
    descriptor.bDeviceProtocol = usb.deviceProtocol;
    descriptor.bMaxPacketSize0 = usb.usbVersion >= 0x0300 ? 9 : 64; // USB 3 gives the exponent of two
    descriptor.idVendor = usb.vendorId;
    descriptor.idProduct = usb.productId;
    descriptor.bcdDevice = usb.release;
    descriptor.iManufacturer = usb.manufacturerIndex;
    descriptor.iProduct = usb.productIndex;
    descriptor.iSerialNumber = usb.serialIndex;
    descriptor.bNumConfigurations = usb.configurationCount;
    std::vector<std::uint8_t> bytes;
    append(bytes, descriptor);
    return bytes;
}

std::vector<std::uint8_t> configurationDescriptor(const UsbDescriptors &usb) {
    USB_CONFIGURATION_DESCRIPTOR descriptor{};
    descriptor.bLength = sizeof(descriptor);
    descriptor.bDescriptorType = USB_CONFIGURATION_DESCRIPTOR_TYPE;
    descriptor.wTotalLength =
        static_cast<USHORT>(sizeof(descriptor) + usb.interfaceCount * sizeof(USB_INTERFACE_DESCRIPTOR));
    descriptor.bNumInterfaces = usb.interfaceCount;
    descriptor.bConfigurationValue = 1;
    descriptor.bmAttributes = 0x80; // bus-powered
    descriptor.MaxPower = 50;       // 100 mA
    std::vector<std::uint8_t> bytes;
    append(bytes, descriptor);
    for (std::size_t number = 0; number < usb.interfaceCount; ++number) {
        const UsbInterfaceClass codes = classOfInterface(usb, number);
        USB_INTERFACE_DESCRIPTOR interface{};
        interface.bLength = sizeof(interface);
        interface.bDescriptorType = USB_INTERFACE_DESCRIPTOR_TYPE;
        interface.bInterfaceNumber = static_cast<UCHAR>(number);
        interface.bInterfaceClass = codes.classCode;
        interface.bInterfaceSubClass = codes.subClass;
        interface.bInterfaceProtocol = codes.protocol;
        append(bytes, interface);
    }
    return bytes;
}

std::optional<std::vector<std::uint8_t>> stringDescriptor(const UsbDescriptors &usb, std::uint8_t index,
                                                          std::uint16_t language) {
    if (index == 0) {
        return textDescriptor(usb.languages.data(), usb.languages.size());
    }
    const auto text = usb.strings.find(index);
    for (const std::uint16_t known : usb.languages) {
        if (known == language && text != usb.strings.end()) {
            return textDescriptor(text->second.data(), text->second.size());
        }
    }
    return std::nullopt;
}

void checkDescriptors(const UsbDescriptors &usb) {
    for (const auto &[index, text] : usb.strings) {
        if (index == 0) {
            throw std::invalid_argument("USB string index 0 is the list of languages");
        }
        if (text.size() > longestText) {
            throw std::invalid_argument("a USB string holds at most 126 characters");
        }
    }
    if (usb.languages.size() > longestText) {
        throw std::invalid_argument("a USB device lists at most 126 languages");
    }
}

} // namespace sim::machine
