#include "usb_device.h"

#include "../kernel/strings.h"
#include "place_hash.h"
#include "setup_classes.h"
#include "storage_device.h"

#include <fmt/format.h>

#include <algorithm>

namespace sim {

using namespace machine;

namespace {

std::string vendorAndProduct(const UsbIdentity &identity) {
    return fmt::format("USB\\VID_{:04X}&PID_{:04X}", identity.vendorId, identity.productId);
}

/// The serial number, unless one of its characters may not occur in an instance id.
std::u16string instancePart(const UsbIdentity &identity, std::string_view name) {
    const bool usable =
        !identity.serial.empty() && std::all_of(identity.serial.begin(), identity.serial.end(), [](char16_t unit) {
            return unit > 0x20 && unit < 0x7F && unit != u',' && unit != u'\\';
        });
    return usable ? identity.serial : toUtf16(fmt::format("5&{:x}&0&1", placeHash(name)));
}

UsbDescriptors descriptors(const UsbIdentity &identity) {
    UsbDescriptors usb;
    usb.vendorId = identity.vendorId;
    usb.productId = identity.productId;
    usb.release = identity.release;
    std::uint8_t next = 1;
    const auto add = [&](const std::u16string &text) -> std::uint8_t {
        if (text.empty()) {
            return 0;
        }
        usb.strings[next] = text;
        return next++;
    };
    usb.manufacturerIndex = add(identity.manufacturer);
    usb.productIndex = add(identity.product);
    usb.serialIndex = add(identity.serial);
    return usb;
}

DeviceDescription plainDevice(std::string name, const UsbIdentity &identity) {
    DeviceDescription device;
    device.instanceId = toUtf16(vendorAndProduct(identity)) + u"\\" + instancePart(identity, name);
    device.name = std::move(name);
    device.hardwareIds = usbHardwareIds(identity);
    device.usb = descriptors(identity);
    if (!identity.product.empty()) {
        device.busReportedDescription = identity.product;
    }
    if (!identity.manufacturer.empty()) {
        device.manufacturer = identity.manufacturer;
    }
    device.uniqueId = !identity.serial.empty();
    return device;
}

DeviceDescription functionOf(const DeviceDescription &parent, const UsbIdentity &identity, const UsbFunction &function,
                             std::size_t number) {
    DeviceDescription device;
    device.name = function.name;
    device.instanceId = toUtf16(fmt::format("{}&MI_{:02X}\\6&{:x}&0&{:04}", vendorAndProduct(identity), number,
                                            placeHash(parent.name), number));
    device.hardwareIds = {
        toUtf16(fmt::format("{}&REV_{:04X}&MI_{:02X}", vendorAndProduct(identity), identity.release, number)),
        toUtf16(fmt::format("{}&MI_{:02X}", vendorAndProduct(identity), number))};
    device.compatibleIds = function.firstCompatibleIds;
    for (const std::u16string &id : usbCompatibleIds(function.codes)) {
        device.compatibleIds->push_back(id);
    }
    device.service = function.service;
    device.classGuid = function.classGuid;
    device.description = function.description;
    device.busReportedDescription = function.description;
    device.address = static_cast<std::uint32_t>(number);
    device.removable = false;
    device.uniqueId = false;
    return device;
}

DeviceDescription disk(const DeviceDescription &parent, std::u16string_view enumerator, const UsbIdentity &identity,
                       bool removableMedia) {
    DiskIdentity own;
    own.vendor = identity.manufacturer.empty() ? "Generic" : toUtf8(identity.manufacturer);
    own.product = identity.product.empty() ? "Flash Disk" : toUtf8(identity.product);
    own.revision = fmt::format("{:x}.{:02x}", identity.release >> 8, identity.release & 0xFF);
    own.serial = toUtf8(identity.serial);
    own.removableMedia = removableMedia;
    return diskDevice(parent.name + " disk", enumerator, own,
                      parent.instanceId.substr(parent.instanceId.rfind(u'\\') + 1) + u"&0");
}

} // namespace

std::vector<std::u16string> usbHardwareIds(const UsbIdentity &identity) {
    return {toUtf16(fmt::format("{}&REV_{:04X}", vendorAndProduct(identity), identity.release)),
            toUtf16(vendorAndProduct(identity))};
}

std::vector<std::u16string> usbCompatibleIds(const UsbInterfaceClass &codes) {
    return {toUtf16(fmt::format("USB\\Class_{:02x}&SubClass_{:02x}&Prot_{:02x}", codes.classCode, codes.subClass,
                                codes.protocol)),
            toUtf16(fmt::format("USB\\Class_{:02x}&SubClass_{:02x}", codes.classCode, codes.subClass)),
            toUtf16(fmt::format("USB\\Class_{:02x}", codes.classCode))};
}

DeviceDescription usbDevice(std::string name, const UsbIdentity &identity, UsbInterfaceClass codes,
                            std::u16string service, std::u16string classGuid) {
    DeviceDescription device = plainDevice(std::move(name), identity);
    device.compatibleIds = usbCompatibleIds(codes);
    device.usb->interfaceClasses = {codes};
    device.service = std::move(service);
    device.classGuid = std::move(classGuid);
    return device;
}

DeviceDescription usbCompositeDevice(std::string name, const UsbIdentity &identity,
                                     const std::vector<UsbFunction> &functions) {
    DeviceDescription device = plainDevice(std::move(name), identity);
    device.compatibleIds = {u"USB\\DevClass_00&SubClass_00&Prot_00", u"USB\\DevClass_00&SubClass_00",
                            u"USB\\DevClass_00", u"USB\\COMPOSITE"};
    device.service = u"usbccgp";
    device.classGuid = setup::usb.guid;
    device.description = u"USB Composite Device";
    device.usb->interfaceCount = static_cast<std::uint8_t>(functions.size());
    for (std::size_t number = 0; number < functions.size(); ++number) {
        device.usb->interfaceClasses.push_back(functions[number].codes);
        device.children.push_back(functionOf(device, identity, functions[number], number));
    }
    return device;
}

DeviceDescription usbFlashDrive(std::string name, const UsbIdentity &identity) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0x08, 0x06, 0x50}, u"USBSTOR", std::u16string(setup::usb.guid));
    device.description = u"USB Mass Storage Device";
    device.children.push_back(disk(device, u"USBSTOR", identity, true));
    return device;
}

DeviceDescription usbUaspDisk(std::string name, const UsbIdentity &identity) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0x08, 0x06, 0x62}, u"UASPSTOR", std::u16string(setup::scsiAdapter.guid));
    device.description = u"USB Attached SCSI (UAS) Mass Storage Device";
    device.instanceId = toUtf16(vendorAndProduct(identity)) + u"\\MSFT30" + instancePart(identity, device.name);
    device.children.push_back(disk(device, u"SCSI", identity, false));
    return device;
}

DeviceDescription usbKeyboard(std::string name, const UsbIdentity &identity) {
    const std::u16string guid(setup::humanInterface.guid);
    const std::string keys = name + " keys";
    const std::string consumer = name + " consumer";
    return usbCompositeDevice(std::move(name), identity,
                              {{keys, {0x03, 0x01, 0x01}, u"HidUsb", guid, u"USB Input Device", {}},
                               {consumer, {0x03, 0x00, 0x00}, u"HidUsb", guid, u"USB Input Device", {}}});
}

DeviceDescription usbMtpPhone(std::string name, const UsbIdentity &identity) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0x06, 0x01, 0x01}, u"WUDFRd", std::u16string(setup::portable.guid));
    device.compatibleIds->insert(device.compatibleIds->begin(), u"USB\\MS_COMP_MTP");
    device.description = u"MTP USB Device";
    return device;
}

UsbFunction usbPtpFunction(std::string name) {
    return {std::move(name), {0x06, 0x01, 0x01}, u"WUDFRd", std::u16string(setup::portable.guid), u"PTP", {}};
}

DeviceDescription usbVendorDevice(std::string name, const UsbIdentity &identity) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0xFF, 0x00, 0x00}, u"WINUSB", std::u16string(setup::usbDevice.guid));
    device.description = u"WinUsb Device";
    return device;
}

DeviceDescription usbSmartCardReader(std::string name, const UsbIdentity &identity) {
    DeviceDescription device = usbDevice(std::move(name), identity, {0x0B, 0x00, 0x00}, u"WUDFRd",
                                         std::u16string(setup::smartCardReader.guid));
    device.description = u"Smartcard Reader";
    return device;
}

DeviceDescription usbNetworkAdapter(std::string name, const UsbIdentity &identity) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0xE0, 0x01, 0x03}, u"usbrndis6", std::u16string(setup::network.guid));
    device.description = u"Remote NDIS Compatible Device";
    return device;
}

DeviceDescription usbBluetoothAdapter(std::string name, const UsbIdentity &identity) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0xE0, 0x01, 0x01}, u"BTHUSB", std::u16string(setup::bluetooth.guid));
    device.description = u"Bluetooth Adapter";
    return device;
}

DeviceDescription usbHub(std::string name, const UsbIdentity &identity, std::uint32_t ports) {
    DeviceDescription device =
        usbDevice(std::move(name), identity, {0x09, 0x00, 0x00}, u"USBHUB3", std::u16string(setup::usb.guid));
    device.compatibleIds = {u"USB\\USB20_HUB"};
    device.usb->deviceClass = 0x09;
    device.description = u"Generic USB Hub";
    device.hubPorts = ports;
    return device;
}

} // namespace sim
