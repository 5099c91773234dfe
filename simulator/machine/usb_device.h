#pragma once

#include "device_description.h"

#include <string>
#include <vector>

namespace sim {

/// Who a USB device says it is. An empty text has no descriptor string; without a serial Windows makes up an instance
/// id.
struct UsbIdentity {
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::uint16_t release = 0x0100; ///< bcdDevice
    std::u16string manufacturer{};
    std::u16string product{};
    std::u16string serial{};
};

/// One function of a composite device and what Windows installed for it.
struct UsbFunction {
    std::string name;
    UsbInterfaceClass codes;
    std::u16string service;
    std::u16string classGuid;
    std::u16string description{};
    std::vector<std::u16string> firstCompatibleIds{}; ///< such as "USB\MS_COMP_MTP", before those of the class codes
};

/// Id lists in the documented forms, e.g. "USB\VID_0781&PID_5581&REV_0100" and "USB\Class_08&SubClass_06&Prot_50".
std::vector<std::u16string> usbHardwareIds(const UsbIdentity &identity);
std::vector<std::u16string> usbCompatibleIds(const UsbInterfaceClass &codes);

/// A device of one interface: ids, descriptors, instance id and bus-reported description (the product string).
DeviceDescription usbDevice(std::string name, const UsbIdentity &identity, UsbInterfaceClass codes,
                            std::u16string service, std::u16string classGuid);
/// A device of several functions under usbccgp, its children named and numbered in order.
DeviceDescription usbCompositeDevice(std::string name, const UsbIdentity &identity,
                                     const std::vector<UsbFunction> &functions);

DeviceDescription usbFlashDrive(std::string name, const UsbIdentity &identity); ///< with its disk "NAME disk" below
DeviceDescription usbUaspDisk(std::string name, const UsbIdentity &identity);   ///< with its disk "NAME disk" below
DeviceDescription usbKeyboard(std::string name,
                              const UsbIdentity &identity); ///< functions "NAME keys" and "NAME consumer"
DeviceDescription usbMtpPhone(std::string name, const UsbIdentity &identity);
UsbFunction usbPtpFunction(std::string name); ///< still image class only, as some phones have it
DeviceDescription usbVendorDevice(std::string name, const UsbIdentity &identity);
DeviceDescription usbSmartCardReader(std::string name, const UsbIdentity &identity);
DeviceDescription usbNetworkAdapter(std::string name, const UsbIdentity &identity); ///< RNDIS
DeviceDescription usbBluetoothAdapter(std::string name, const UsbIdentity &identity);
DeviceDescription usbHub(std::string name, const UsbIdentity &identity, std::uint32_t ports = 4);

} // namespace sim
