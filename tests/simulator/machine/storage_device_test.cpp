// The device trees above disks.

#include "disk_fixture.h"

#include <ntddstor.h>

namespace sim::machinetest {
namespace {

using Stack = std::vector<std::u16string>;

const std::u16string diskDriveClass = u"{4d36e967-e325-11ce-bfc1-08002be10318}";

struct StorageTrees : DiskTest {
    std::uint32_t busType(std::string_view disk) {
        openDisk(*machine.find(disk));
        EXPECT_EQ(control(IOCTL_STORAGE_QUERY_PROPERTY, 256, std::vector<std::uint8_t>(12)), STATUS_SUCCESS);
        user.close(handle);
        return static_cast<std::uint32_t>(structureIn<STORAGE_DEVICE_DESCRIPTOR>(received).BusType);
    }
    /// A disk of the class, below its port driver, above which the class driver and the filter stand.
    void expectDisk(std::string_view disk, const std::u16string &port, std::uint32_t bus) {
        SCOPED_TRACE(disk);
        DeviceNode *node = machine.find(disk);
        ASSERT_NE(node, nullptr);
        EXPECT_TRUE(node->started());
        EXPECT_EQ(node->stack(), (Stack{port, u"\\Driver\\disk", ours}));
        EXPECT_EQ(property(node->physicalDevice(), DevicePropertyClassGuid), diskDriveClass);
        EXPECT_EQ(busType(disk), bus);
    }
    std::u16string textOf(std::string_view device, DEVICE_REGISTRY_PROPERTY which) {
        return property(machine.find(device)->physicalDevice(), which);
    }
};

TEST_F(StorageTrees, UsbDisksHaveOneNodePerUnit) {
    machine.plug(
        usbMultiDisk("reader", {0x058F, 0x6366, 0x0100, u"Generic", u"Reader", u"0580"},
                     {{"Generic", "SD/MMC", "1.00", {}, true}, {"Generic", "Compact Flash", "1.01", {}, true}}));
    expectDisk("reader disk 0", u"\\Driver\\USBSTOR", BusTypeUsb);
    expectDisk("reader disk 1", u"\\Driver\\USBSTOR", BusTypeUsb);
    EXPECT_EQ(textOf("reader disk 1", DevicePropertyEnumeratorName), u"USBSTOR");
    EXPECT_TRUE(
        textOf("reader disk 1", DevicePropertyHardwareID).starts_with(u"USBSTOR\\DiskGeneric_Compact_Flash___1.01"));
    EXPECT_EQ(machine.find("reader disk 1")->parent(), machine.find("reader"));
}

TEST_F(StorageTrees, UsbAttachedScsiIsUsbBelowAnotherName) {
    machine.plug(usbUaspDisk("fast", {0x0781, 0x558C, 0x1012, u"SanDisk", u"Extreme SSD", u"2019"}));
    expectDisk("fast disk", u"\\Driver\\UASPSTOR", BusTypeUsb);
    EXPECT_EQ(textOf("fast disk", DevicePropertyEnumeratorName), u"SCSI");
}

TEST_F(StorageTrees, MemoryCardsInABuiltInReader) {
    machine.plug(memoryCardReader("slot", CardKind::sd, {"", "SL32G", "8.0", "0a1b"}), &machine.pciRoot());
    machine.plug(memoryCardReader("other slot", CardKind::mmc, {"", "MMC04G", "0.1", "77"}), &machine.pciRoot());
    expectDisk("slot disk", u"\\Driver\\sdstor", BusTypeSd);
    expectDisk("other slot disk", u"\\Driver\\sdstor", BusTypeMmc);
    EXPECT_EQ(machine.find("slot")->stack(), (Stack{u"\\Driver\\pci", u"\\Driver\\sdbus"}));
}

TEST_F(StorageTrees, NvmeOnARootPort) {
    machine.plug(pciePort("port", PciePort::root, {nvmeDisk("nvme", {"", "SSD 980 PRO", "3B2Q", "S5"})}),
                 &machine.pciRoot());
    expectDisk("nvme disk", u"\\Driver\\stornvme", BusTypeNvme);
    EXPECT_EQ(machine.find("nvme")->stack(), (Stack{u"\\Driver\\pci", ours, u"\\Driver\\stornvme"}));
    EXPECT_EQ(machine.find("nvme")->parent(), machine.find("port"));
    EXPECT_EQ(textOf("nvme", DevicePropertyDeviceDescription), u"Standard NVM Express Controller");
}

TEST_F(StorageTrees, NvmeBehindASwitchHasItsTwoPorts) {
    machine.plug(nvmeBehindSwitch("box", {"", "PORTABLE SSD", "1.0", "S7"}, true), &machine.pciRoot());
    expectDisk("box disk", u"\\Driver\\stornvme", BusTypeNvme);
    const DeviceNode *controller = machine.find("box");
    EXPECT_EQ(controller->parent(), machine.find("box downstream"));
    EXPECT_EQ(controller->parent()->parent(), machine.find("box upstream"));
    EXPECT_EQ(machine.find("box downstream")->description().matchingDeviceId, u"PCI\\CC_0604&DT_6");
    EXPECT_EQ(machine.find("box upstream")->description().matchingDeviceId, u"PCI\\CC_0604&DT_5");
    EXPECT_TRUE(controller->description().removable);
    EXPECT_FALSE(machine.find("box disk")->description().removable);
}

TEST_F(StorageTrees, SataIsNoClassOfTheDriver) {
    machine.plug(sataDisk("sata", {"WDC", "WD10EZEX", "1A01", "WD-1"}), &machine.pciRoot());
    expectDisk("sata disk", u"\\Driver\\storahci", BusTypeSata);
    EXPECT_EQ(machine.find("sata")->stack(), (Stack{u"\\Driver\\pci", u"\\Driver\\storahci"}));
}

TEST_F(StorageTrees, ADiskNeedsItsClassDriverAndWholeSectors) {
    DeviceDescription noDriver = flashDrive();
    noDriver.children.front().service = u"partmgr";
    EXPECT_THROW(machine.plug(std::move(noDriver)), std::invalid_argument);
    DeviceDescription halfSector = flashDrive();
    halfSector.children.front().disk->medium.bytes = 700;
    EXPECT_THROW(machine.plug(std::move(halfSector)), std::invalid_argument);
}

} // namespace
} // namespace sim::machinetest
