// The disk of a USB device follows the decision about the device.

#include "storage_test.h"

#include "tests/behaviour/support/answering_service.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::HasSubstr;

class UsbDisk : public StorageTest {
  protected:
    /// The lines of the disk's add up to its decision; the address that ends the last one is cut.
    Lines judgedDisk(const std::vector<std::u16string> &ids, int mode) {
        return lines::all(diskAsked(ids, 7, true),
                          Lines{"INFO DiskFilterDevice create, hardwareIds = " + lines::list(ids),
                                "INFO Try to create wdf device",
                                "INFO Wdf device was successfully created. Check read only mode for parent device, usb "
                                "mode = " +
                                    std::to_string(mode) + ", pdo = 0x"});
    }
    Lines logOf(std::string_view disk) {
        Lines log = addOf(disk).log;
        for (std::string &line : log) {
            const std::size_t address = line.find(", pdo = 0x");
            if (address != std::string::npos) {
                EXPECT_GT(line.size(), address + 14);
                line.resize(address + 10);
            }
        }
        return log;
    }
    static sim::DeviceDescription diskOf(sim::DeviceDescription whole, std::string_view name) {
        return part(whole, name);
    }
    const std::vector<std::u16string> ids = idsWithin(flashDrive(), "stick disk");
};

TEST_F(UsbDisk, OfAnAllowedDeviceIsWritable) {
    startWith(allowing({u"VID_0781&PID_5581"}));
    plug(flashDrive());
    EXPECT_EQ(logOf("stick disk"), judgedDisk(ids, 2));
    EXPECT_TRUE(addOf("stick disk").attached);
    expectWritable("stick disk");
}

TEST_F(UsbDisk, OfAReadOnlyDeviceIsReadOnly) {
    startWith(readOnly({u"VID_0781&PID_5581"}));
    plug(flashDrive());
    EXPECT_EQ(logOf("stick disk"), lines::all(judgedDisk(ids, 3), Lines{"INFO Init queue"}));
    expectReadOnly("stick disk");
}

TEST_F(UsbDisk, TheAddressIsThatOfTheDisksPhysicalDevice) {
    startWith(allowing({u"*"}));
    plug(flashDrive());
    char expected[40];
    snprintf(
        expected, sizeof expected, "pdo = 0x%llx",
        static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(deviceNode("stick disk").physicalDevice())));
    EXPECT_THAT(addOf("stick disk").log.back(), testing::EndsWith(expected));
}

TEST_F(UsbDisk, OfABlockedDeviceNeverComes) {
    startWith();
    plug(flashDrive());
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
    EXPECT_EQ(machine().find("stick disk"), nullptr);
    EXPECT_FALSE(wasAdded("stick disk"));
}

TEST_F(UsbDisk, OfAnAttachedScsiDeviceFollowsItsDeviceToo) {
    startWith(readOnly({u"*"}));
    plug(sim::usbUaspDisk("ssd", {0x04E8, 0x61F5, 0x0100, u"Samsung", u"PSSD T7", u"S5TBNS0R"}));
    EXPECT_THAT(addOf("ssd disk").log, Contains("INFO Disk information busType = 7, isRemovable = 0"));
    expectReadOnly("ssd disk");
}

TEST_F(UsbDisk, BelowAParentWithoutAUsbFilterIsWritable) {
    startWith();
    sim::DeviceDescription device = internalSata();
    part(device, "sata disk").disk->busType = 7;
    plugBelowRoot(device);
    EXPECT_THAT(addOf("sata disk").log, Contains(HasSubstr("usb mode = 2,")));
    EXPECT_TRUE(addOf("sata disk").attached);
    expectWritable("sata disk");
}

TEST_F(UsbDisk, WithoutAParentDoesNotStart) {
    startWith();
    sim::DeviceDescription device = diskOf(internalSata(), "sata disk");
    device.disk->busType = 7;
    device.hasParent = false;
    device.busDriver = u"USBSTOR";
    plugBelowRoot(device);
    expectCode31("sata disk", STATUS_BAD_DEVICE_TYPE);
    const std::vector<std::u16string> own = *device.hardwareIds;
    EXPECT_EQ(
        addOf("sata disk").log,
        lines::all(diskAsked(own, 7, false), Lines{"INFO DiskFilterDevice create, hardwareIds = " + lines::list(own),
                                                   "ERROR Failed to get parent pdo"}));
}

TEST_F(UsbDisk, WithoutAFrameworkDeviceDoesNotStart) {
    startWith(allowing({u"*"}));
    sim::DeviceDescription device = flashDrive();
    const sim::DeviceDescription disk = device.children.front();
    device.children.clear();
    sim::DeviceNode &stick = plug(device);
    failInAdd("WdfDeviceCreate", 1, STATUS_NO_SUCH_DEVICE);
    plug(disk, &stick);
    expectCode31("stick disk", STATUS_NO_SUCH_DEVICE);
    EXPECT_EQ(addOf("stick disk").log.back(), "ERROR Failed to create device, status = 0xc000000e");
}

TEST_F(UsbDisk, WhoseQueueCannotBeCreatedDoesNotStart) {
    startWith(readOnly({u"*"}));
    sim::DeviceDescription device = flashDrive();
    const sim::DeviceDescription disk = device.children.front();
    device.children.clear();
    sim::DeviceNode &stick = plug(device);
    failInAdd("WdfIoQueueCreate");
    plug(disk, &stick);
    expectCode31("stick disk", STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(logOf("stick disk"), lines::all(judgedDisk(*disk.hardwareIds, 3),
                                              Lines{"INFO Init queue", "ERROR Failed to queue creating",
                                                    "ERROR Failed to init i/o queue, status = 0xc000009a"}));
    EXPECT_TRUE(stick.started());
}

TEST_F(UsbDisk, WhateverFailsTheDiskIsNeverWritableUnderAReadOnlyDecision) {
    startWith(readOnly({u"*"}));
    sim::DeviceDescription device = flashDrive();
    const sim::DeviceDescription disk = device.children.front();
    device.children.clear();
    sim::DeviceNode &stick = plug(device);
    failEachCallOfAdd([&] {
        sim::DeviceNode &node = plug(disk, &stick);
        if (node.started()) {
            expectReadOnly("stick disk");
        } else {
            EXPECT_EQ(node.problemCode(), 31U);
        }
        machine().unplug(node);
    });
}

TEST_F(UsbDisk, OfAnUndecidedDeviceIsReadOnly) {
    setParameter(u"CallbackMode", 1);
    startWith();
    sim::UserProcess service{100};
    Handle handle = 0;
    ASSERT_EQ(service.open(linkName, handle), STATUS_SUCCESS);
    sim::DeviceDescription device = flashDrive();
    device.children.clear(); // the disk comes when the service has nothing more to say
    {
        AnsweringService answering(service, handle, 2, [](const MessageBytes &) { return 0U; });
        plug(device);
    }
    plug(diskOf(flashDrive(), "stick disk"), &deviceNode("stick"));
    EXPECT_EQ(filterOf("stick").mode, 0U);
    EXPECT_EQ(logOf("stick disk"), lines::all(judgedDisk(ids, 0), Lines{"INFO Init queue"}));
    expectReadOnly("stick disk");
    service.die();
}

TEST_F(UsbDisk, ControlCodesThatChangeTheMediumReachAReadOnlyDisk) {
    startWith(readOnly({u"*"}));
    sim::DeviceDescription device = flashDrive();
    part(device, "stick disk").disk->controlAnswers[manageDataSetCode] = {STATUS_SUCCESS, {}};
    plug(device);
    const Handle handle = openDisk("stick disk");
    EXPECT_EQ(control(handle, manageDataSetCode), STATUS_SUCCESS);
    EXPECT_EQ(control(handle, geometryCode, 4), STATUS_BUFFER_TOO_SMALL) << "the disk's own refusal comes back";
    user.close(handle);
}

TEST_F(UsbDisk, AControlCodeThatCannotBeSentOnComesBackWithTheReason) {
    startWith(readOnly({u"*"}));
    plug(flashDrive());
    const Handle handle = openDisk("stick disk");
    failCall("WdfRequestSend", 1, STATUS_DEVICE_NOT_READY);
    EXPECT_EQ(control(handle, geometryCode, 24), STATUS_DEVICE_NOT_READY);
    endFailures();
    EXPECT_EQ(control(handle, geometryCode, 24), STATUS_SUCCESS);
    user.close(handle);
}

TEST_F(UsbDisk, AChangedPolicyActsWhenTheDeviceIsPluggedInAgain) {
    startWith(allowing({u"*"}));
    sim::DeviceNode &stick = plug(flashDrive());
    expectWritable("stick disk");
    apply(readOnly({u"*"}));
    expectWritable("stick disk");
    sim::DeviceNode &again = machine().replug(stick);
    expectReadOnly("stick disk");
    apply(allowing({u"*"}));
    machine().replug(again);
    expectWritable("stick disk");
}

TEST_F(UsbDisk, OfAnInterfaceOfACompositeDeviceFollowsTheInterface) {
    startWith(readOnly({u"*"}));
    sim::DeviceDescription device = sim::usbCompositeDevice(
        "combo", {0x0951, 0x1666, 0x0100, u"Kingston", u"Combo", u"60A4"},
        {{"combo keys", {0x03, 0x01, 0x01}, u"HidUsb", u"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}"},
         {"combo storage", {0x08, 0x06, 0x50}, u"USBSTOR", u"{36fc9e60-c465-11cf-8056-444553540000}"}});
    sim::DeviceDescription disk = diskOf(flashDrive(), "stick disk");
    disk.name = "combo disk";
    part(device, "combo storage").children.push_back(disk);
    plug(device);
    EXPECT_EQ(filterOf("combo storage").mode, 3U);
    expectReadOnly("combo disk");
}

} // namespace
} // namespace behaviour
