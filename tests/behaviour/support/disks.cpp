#include "disks.h"

#include "simulator/machine/setup_classes.h"
#include "simulator/machine/storage_device.h"
#include "tests/behaviour/support/log_lines.h"

#include <stdexcept>

namespace behaviour {

namespace {

/// A device on the PCI bus.
sim::DeviceDescription pciDevice(std::string name, std::u16string ids, std::u16string instance, std::u16string service,
                                 std::u16string description) {
    sim::DeviceDescription device;
    device.name = std::move(name);
    device.instanceId = u"PCI\\" + ids + u"\\" + instance;
    device.hardwareIds = {u"PCI\\" + ids};
    device.classGuid = std::u16string(sim::machine::setup::system.guid);
    device.service = std::move(service);
    device.description = std::move(description);
    device.busDriver = u"pci";
    device.removable = false;
    return device;
}

sim::DeviceDescription nvmeController(std::string name, std::u16string instance) {
    sim::DeviceDescription device = pciDevice(std::move(name), u"VEN_144D&DEV_A80A&CC_010802", std::move(instance),
                                              u"stornvme", u"Standard NVM Express Controller");
    device.classGuid = std::u16string(sim::machine::setup::scsiAdapter.guid);
    device.matchingDeviceId = u"PCI\\CC_010802";
    return device;
}

} // namespace

sim::DeviceDescription sdCard() {
    sim::DeviceDescription reader =
        pciDevice("reader", u"VEN_10EC&DEV_5260", u"4&1A2B3C4&0&00E5", u"sdbus", u"SDA Standard Compliant Host");
    sim::DeviceDescription slot;
    slot.name = "slot";
    slot.instanceId = u"SD\\VID_03&OID_5344&PID_SU32G&REV_8.0\\5&2C3D4E5&0&1";
    slot.hardwareIds = {u"SD\\VID_03&OID_5344&PID_SU32G&REV_8.0", u"SD\\CLASS_STORAGE"};
    slot.classGuid = std::u16string(sim::machine::setup::system.guid);
    slot.service = u"sdstor";
    slot.children.push_back(
        sim::diskDevice("card", u"SD", {"Generic", "SU32G", "8.0", "1234ABCD", true}, u"6&3D4E5F6&0&000000"));
    reader.children.push_back(std::move(slot));
    return reader;
}

sim::DeviceDescription internalNvme() {
    sim::DeviceDescription device = nvmeController("controller", u"4&5E6F7A8&0&00E8");
    device.children.push_back(sim::diskDevice("boot disk", u"SCSI", {"NVMe", "PM981a NVMe", "HXA7", "S4GXNX0R123456"},
                                              u"5&1B2C3D4&0&000000"));
    return device;
}

sim::DeviceDescription internalSata() {
    sim::DeviceDescription device = pciDevice("sata", u"VEN_8086&DEV_A102&CC_010601", u"3&11583659&0&B8", u"storahci",
                                              u"Standard SATA AHCI Controller");
    device.classGuid = std::u16string(sim::machine::setup::scsiAdapter.guid);
    device.children.push_back(
        sim::diskDevice("sata disk", u"SCSI", {"ATA", "ST2000DM008", "0001", "ZFL1ABCD"}, u"4&2F3A4B5&0&000000"));
    return device;
}

sim::DeviceDescription enclosure() {
    sim::DeviceDescription upstream = pciDevice("upstream port", u"VEN_8086&DEV_15DA&CC_0604", u"5&6A7B8C9&0&0000E8",
                                                u"pci", u"PCI Express Upstream Switch Port");
    upstream.matchingDeviceId = u"PCI\\CC_0604&DT_5";
    sim::DeviceDescription downstream = pciDevice("downstream port", u"VEN_8086&DEV_15DA&CC_0604&P2",
                                                  u"6&7B8C9D0&0&0800E8", u"pci", u"PCI Express Downstream Switch Port");
    downstream.matchingDeviceId = u"PCI\\CC_0604&DT_6";
    sim::DeviceDescription controller = nvmeController("enclosure", u"7&8C9D0E1&0&000800E8");
    controller.removable = true;
    controller.children.push_back(sim::diskDevice(
        "enclosure disk", u"SCSI", {"NVMe", "SSD 980 PRO", "3B2Q", "S5GXNX0T654321"}, u"8&9D0E1F2&0&000000"));
    downstream.children.push_back(std::move(controller));
    upstream.children.push_back(std::move(downstream));
    return upstream;
}

sim::DeviceDescription &part(sim::DeviceDescription &whole, std::string_view name) {
    if (whole.name == name) {
        return whole;
    }
    for (sim::DeviceDescription &child : whole.children) {
        try {
            return part(child, name);
        } catch (const std::out_of_range &) {
            continue;
        }
    }
    throw std::out_of_range("no device " + std::string(name) + " in the description");
}

std::vector<std::u16string> idsWithin(sim::DeviceDescription whole, std::string_view name) {
    return *part(whole, name).hardwareIds;
}

Lines diskAsked(const std::vector<std::u16string> &hardwareIds, unsigned busType, bool removable) {
    return lines::all(lines::asked(hardwareIds), Lines{"INFO Disk information busType = " + std::to_string(busType) +
                                                       ", isRemovable = " + (removable ? "1" : "0")});
}

} // namespace behaviour
