#include "storage_device.h"

#include "../kernel/strings.h"
#include "place_hash.h"
#include "setup_classes.h"

#include <fmt/format.h>

#include <map>
#include <utility>

namespace sim {

using namespace machine;

namespace {

/// A field of an INQUIRY answer: exactly so many characters, the rest blank.
std::string inquiryField(const std::string &text, std::size_t width) {
    return fmt::format("{:<{}}", text.substr(0, width), width);
}

/// The same in an id: what may not occur in one becomes "_".
std::string idField(const std::string &text, std::size_t width) {
    std::string field = inquiryField(text, width);
    for (char &letter : field) {
        const bool allowed = letter > 0x20 && letter < 0x7F && letter != ',';
        letter = allowed ? letter : '_';
    }
    return field;
}

std::string withoutBlanks(std::string field) {
    field.resize(field.find_last_not_of('_') + 1);
    return field;
}

std::u16string diskInstance(std::u16string_view enumerator, const DiskIdentity &identity, std::u16string_view own) {
    std::string id = fmt::format("\\DISK&VEN_{}&PROD_{}", withoutBlanks(idField(identity.vendor, 8)),
                                 withoutBlanks(idField(identity.product, 16)));
    if (enumerator == u"USBSTOR") {
        id += "&REV_" + withoutBlanks(idField(identity.revision, 4));
    }
    return upcase(std::u16string(enumerator) + toUtf16(id)) + u"\\" + std::u16string(own);
}

std::vector<std::u16string> diskHardwareIds(std::u16string_view enumerator, const DiskIdentity &identity) {
    const std::string vendor = idField(identity.vendor, 8);
    const std::string product = idField(identity.product, 16);
    const std::string revision = idField(identity.revision, 4);
    const std::string bus = toUtf8(std::u16string(enumerator)) + "\\";
    const std::string shortForm = vendor + product + revision.substr(0, 1);
    std::vector<std::u16string> ids;
    for (const std::string &id : {bus + "Disk" + vendor + product + revision, bus + "Disk" + vendor + product,
                                  bus + "Disk" + vendor, bus + shortForm, shortForm}) {
        ids.push_back(toUtf16(id));
    }
    if (enumerator == u"USBSTOR") {
        ids.push_back(toUtf16(bus + "GenDisk"));
    }
    ids.emplace_back(u"GenDisk");
    return ids;
}

/// Who made a PCI function, and what it is.
struct PciIdentity {
    std::uint16_t vendor;
    std::uint16_t device;
    std::uint32_t classCode;  ///< three bytes: base class, sub-class, programming interface
    std::string portSuffix{}; ///< "&DT_6" of a PCI Express port
};

/// learn.microsoft.com: "Identifiers for PCI devices"; those with the port type are recalled.
DeviceDescription pciFunction(std::string name, const PciIdentity &identity, const SetupClass &setupClass,
                              std::u16string service, std::u16string description) {
    const std::string device = fmt::format("PCI\\VEN_{:04X}&DEV_{:04X}", identity.vendor, identity.device);
    const std::string maker = fmt::format("PCI\\VEN_{:04X}", identity.vendor);
    const std::string subsystem = fmt::format("{}&SUBSYS_0000{:04X}", device, identity.vendor);
    const std::string longCode = fmt::format("CC_{:06X}", identity.classCode);
    const std::string shortCode = fmt::format("CC_{:04X}", identity.classCode >> 8);
    DeviceDescription function;
    function.instanceId = toUtf16(fmt::format("{}&REV_01\\4&{:x}&0&00E0", subsystem, placeHash(name)));
    function.name = std::move(name);
    function.hardwareIds.emplace();
    for (const std::string &id :
         {subsystem + "&REV_01", subsystem, device + "&" + longCode, device + "&" + shortCode}) {
        function.hardwareIds->push_back(toUtf16(id));
    }
    function.compatibleIds.emplace();
    for (const std::string &id : {device + "&REV_01", device, maker + "&" + longCode, maker + "&" + shortCode, maker,
                                  "PCI\\" + longCode + identity.portSuffix, "PCI\\" + longCode,
                                  "PCI\\" + shortCode + identity.portSuffix, "PCI\\" + shortCode}) {
        if (function.compatibleIds->empty() || function.compatibleIds->back() != toUtf16(id)) {
            function.compatibleIds->push_back(toUtf16(id));
        }
    }
    const bool isBridge = identity.classCode >> 8 == 0x0604;
    function.matchingDeviceId = toUtf16("PCI\\" + (isBridge ? shortCode + identity.portSuffix : longCode));
    function.classGuid = setupClass.guid;
    function.service = std::move(service);
    function.description = std::move(description);
    function.address = 0x001C0000; // device 28, function 0
    function.removable = false;
    function.uniqueId = false;
    return function;
}

/// The instance that storport gives its first unit on a controller.
std::u16string firstUnit(std::string_view controller) {
    return toUtf16(fmt::format("5&{:x}&0&000000", placeHash(controller)));
}

} // namespace

DeviceDescription usbMultiDisk(std::string name, const UsbIdentity &identity, const std::vector<DiskIdentity> &units) {
    DeviceDescription device = usbFlashDrive(std::move(name), identity);
    const std::u16string parent = device.instanceId.substr(device.instanceId.rfind(u'\\') + 1);
    device.children.clear();
    for (std::size_t unit = 0; unit < units.size(); ++unit) {
        device.children.push_back(diskDevice(fmt::format("{} disk {}", device.name, unit), u"USBSTOR", units[unit],
                                             parent + toUtf16(fmt::format("&{}", unit))));
        device.children.back().address = static_cast<std::uint32_t>(unit);
    }
    return device;
}

DeviceDescription nvmeDisk(std::string name, const DiskIdentity &identity) {
    DeviceDescription controller = pciFunction(std::move(name), {0x144D, 0xA808, 0x010802}, setup::scsiAdapter,
                                               u"stornvme", u"Standard NVM Express Controller");
    DiskIdentity unit = identity;
    unit.vendor = "NVMe";
    controller.children.push_back(diskDevice(controller.name + " disk", u"SCSI", unit, firstUnit(controller.name)));
    controller.children.back().disk->vendor = std::nullopt; // recalled: such disks give no vendor
    controller.children.back().disk->product = identity.product;
    return controller;
}

DeviceDescription sataDisk(std::string name, const DiskIdentity &identity) {
    DeviceDescription controller = pciFunction(std::move(name), {0x8086, 0xA352, 0x010601}, setup::diskController,
                                               u"storahci", u"Standard SATA AHCI Controller");
    controller.children.push_back(diskDevice(controller.name + " disk", u"SCSI", identity, firstUnit(controller.name)));
    return controller;
}

DeviceDescription memoryCardReader(std::string name, CardKind kind, const DiskIdentity &card) {
    DeviceDescription host = pciFunction(std::move(name), {0x10EC, 0x5229, 0x080501}, setup::sdHost, u"sdbus",
                                         u"SDA Standard Compliant SD Host Controller");
    DeviceDescription inserted;
    inserted.name = host.name + " card";
    const std::string type = kind == CardKind::sd ? "SD\\CLASS_STORAGE" : "SD\\CLASS_MMC";
    const std::string id = fmt::format("SD\\VID_03&OID_5344&PID_{}&REV_8.0", withoutBlanks(idField(card.product, 5)));
    inserted.instanceId = toUtf16(fmt::format("{}\\5&{:x}&0&0", id, placeHash(host.name)));
    inserted.hardwareIds = {toUtf16(id)};
    inserted.compatibleIds = {toUtf16(type)};
    inserted.matchingDeviceId = toUtf16(type);
    inserted.classGuid = setup::sdHost.guid;
    inserted.service = u"sdstor";
    inserted.description = u"SD Storage Class Controller";
    inserted.uniqueId = false;
    DiskIdentity unit = card;
    unit.removableMedia = true;
    DeviceDescription disk = diskDevice(host.name + " disk", u"SD", unit, firstUnit(host.name));
    disk.disk->busType = kind == CardKind::sd ? 12 : 13;
    inserted.children.push_back(std::move(disk));
    host.children.push_back(std::move(inserted));
    return host;
}

DeviceDescription pciePort(std::string name, PciePort type, std::vector<DeviceDescription> children) {
    static const std::map<PciePort, std::pair<std::string, std::u16string>> types{
        {PciePort::root, {"&DT_4", u"PCI Express Root Port"}},
        {PciePort::upstream, {"&DT_5", u"PCI Express Upstream Switch Port"}},
        {PciePort::downstream, {"&DT_6", u"PCI Express Downstream Switch Port"}}};
    const auto &[suffix, description] = types.at(type);
    DeviceDescription port =
        pciFunction(std::move(name), {0x8086, 0x15D3, 0x060400, suffix}, setup::system, u"pci", description);
    port.children = std::move(children);
    return port;
}

DeviceDescription nvmeBehindSwitch(std::string name, const DiskIdentity &identity, bool removable) {
    DeviceDescription controller = nvmeDisk(name, identity);
    controller.removable = removable;
    DeviceDescription downstream = pciePort(name + " downstream", PciePort::downstream, {std::move(controller)});
    downstream.removable = removable;
    DeviceDescription upstream = pciePort(name + " upstream", PciePort::upstream, {std::move(downstream)});
    upstream.removable = removable;
    return upstream;
}

DeviceDescription diskDevice(std::string name, std::u16string_view enumerator, const DiskIdentity &identity,
                             std::u16string_view instance) {
    DeviceDescription device;
    device.name = std::move(name);
    device.instanceId = diskInstance(enumerator, identity, instance);
    device.hardwareIds = diskHardwareIds(enumerator, identity);
    device.compatibleIds = {std::u16string(enumerator) + u"\\Disk", std::u16string(enumerator) + u"\\RAW"};
    device.service = u"disk";
    device.classGuid = setup::diskDrive.guid;
    device.description = u"Disk drive";
    device.friendlyName = toUtf16(identity.vendor + " " + identity.product);
    device.manufacturer = u"(Standard disk drives)";
    device.matchingDeviceId = u"GenDisk";
    device.removable = false;
    DiskDescription &disk = device.disk.emplace();
    disk.removableMedia = identity.removableMedia;
    disk.vendor = inquiryField(identity.vendor, 8);
    disk.product = inquiryField(identity.product, 16);
    disk.revision = inquiryField(identity.revision, 4);
    if (!identity.serial.empty()) {
        disk.serial = identity.serial;
    }
    return device;
}

} // namespace sim
