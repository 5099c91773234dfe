#include "simulator/framework/framework.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/standard_devices.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

namespace setup = sim::machine::setup;

/// A touch pad on another bus, of a class that the driver filters.
sim::DeviceDescription touchPad() {
    sim::DeviceDescription device;
    device.name = "touch pad";
    device.instanceId = u"ACPI\\ELAN0001\\4&2F1C5E7A&0";
    device.hardwareIds = {u"ACPI\\VEN_ELAN&DEV_0001", u"ACPI\\ELAN0001"};
    device.classGuid = setup::humanInterface.guid;
    device.service = u"hidi2c";
    return device;
}

class DeviceAddDispatch : public DriverTest {
  protected:
    /// A node with the driver as its function driver.
    sim::DeviceNode &plugOwnNode(std::string name, std::vector<std::u16string> ids) {
        sim::DeviceDescription node = sim::machine::controlNodeDescription();
        node.name = std::move(name);
        node.instanceId = u"ROOT\\SYSTEM\\0001";
        node.hardwareIds = std::move(ids);
        return plug(std::move(node), &machine().rootNode());
    }
    void expectNoControlDevice() { EXPECT_EQ(driverState(machine()).controlDevice, nullptr); }
};

TEST_F(DeviceAddDispatch, ADeviceOfAnotherBusIsLeftAlone) {
    start();
    sim::DeviceNode &node = plug(touchPad(), &machine().rootNode());
    EXPECT_TRUE(node.started());
    const Add &add = addOf("touch pad");
    EXPECT_EQ(add.returned, STATUS_SUCCESS);
    EXPECT_EQ(add.callbackStatus, STATUS_SUCCESS);
    EXPECT_FALSE(add.attached);
    EXPECT_EQ(add.log, lines::asked(*touchPad().hardwareIds));
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\PnpManager", u"\\Driver\\hidi2c"}));
}

TEST_F(DeviceAddDispatch, ADeviceOfAnotherBusThatLooksLikeUsbIsLeftAlone) {
    start();
    sim::DeviceDescription device = mouse();
    device.enumerator = u"usb"; // compared letter by letter
    EXPECT_TRUE(plug(device).started());
    EXPECT_FALSE(addOf("mouse").attached);
    EXPECT_EQ(addOf("mouse").log, lines::asked(idsOf(device)));
}

TEST_F(DeviceAddDispatch, AnUnreadableEnumeratorCountsAsNotUsb) {
    start();
    sim::DeviceDescription device = mouse();
    device.rawProperties["EnumeratorName"] = {STATUS_ACCESS_DENIED, {}, 0};
    EXPECT_TRUE(plug(device).started());
    EXPECT_FALSE(addOf("mouse").attached);
    EXPECT_EQ(addOf("mouse").log, lines::asked(idsOf(device)));
}

TEST_F(DeviceAddDispatch, ADeviceOfAnUncoveredClassIsNeverAsked) {
    start();
    sim::DeviceNode &node = plug(sim::usbBluetoothAdapter("adapter", {0x0A12, 0x0001}));
    EXPECT_TRUE(node.started());
    EXPECT_FALSE(wasAdded("adapter"));
}

TEST_F(DeviceAddDispatch, TheFilterSitsBelowTheFunctionDriver) {
    start();
    sim::DeviceNode &node = plug(mouse());
    EXPECT_EQ(node.stack(),
              (std::vector<std::u16string>{u"\\Driver\\USBHUB3", std::u16string(ourDriver), u"\\Driver\\HidUsb"}));
}

TEST_F(DeviceAddDispatch, AnUnreadableClassOnAnotherBusFailsTheAddWithoutALineOfItsOwn) {
    start();
    sim::DeviceDescription device = touchPad();
    device.rawProperties["ClassGuid"] = {STATUS_OBJECT_NAME_NOT_FOUND, {}, 0};
    sim::DeviceNode &node = plug(device, &machine().rootNode());
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(node.problemStatus(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(addOf("touch pad").returned, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(addOf("touch pad").log, lines::asked(idsOf(device)));
}

TEST_F(DeviceAddDispatch, UnreadableHardwareIdsFailTheAdd) {
    start();
    for (const bool usb : {true, false}) {
        SCOPED_TRACE(usb);
        sim::DeviceDescription device = usb ? mouse() : touchPad();
        device.rawProperties["HardwareId"] = {STATUS_ACCESS_DENIED, {}, 0};
        sim::DeviceNode &node = plug(device, usb ? nullptr : &machine().rootNode());
        EXPECT_EQ(node.problemCode(), 31U);
        EXPECT_EQ(addOf(device.name).returned, STATUS_ACCESS_DENIED);
        EXPECT_EQ(addOf(device.name).log, Lines{"ERROR Failed to get hardware ids, status = 0xc0000022"});
    }
}

TEST_F(DeviceAddDispatch, HardwareIdsThatVanishBetweenTheTwoQuestionsFailTheAdd) {
    start();
    failInAdd("WdfFdoInitQueryProperty", 2, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(plug(mouse()).problemCode(), 31U);
    EXPECT_EQ(addOf("mouse").log, Lines{"ERROR Failed to get hardware ids, status = 0xc0000034"});
}

TEST_F(DeviceAddDispatch, NoMemoryForTheHardwareIdsFailsTheAdd) {
    setParameter(u"LogLevel", 2);
    start();
    failInAdd("ExAllocatePool2", 1);
    sim::DeviceNode &node = plug(mouse());
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(node.problemStatus(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(addOf("mouse").log, Lines{"ERROR Failed to get hardware ids, status = 0xc000009a"});
}

TEST_F(DeviceAddDispatch, EmptyHardwareIdsAreNoFailure) {
    start();
    sim::DeviceDescription device = touchPad();
    device.rawProperties["HardwareId"] = {{}, {}, 0x2012};
    EXPECT_TRUE(plug(device, &machine().rootNode()).started());
    EXPECT_EQ(addOf("touch pad").log, Lines{"INFO onDriverDeviceAdd hardwareIds = "});
}

TEST_F(DeviceAddDispatch, TrailingNulsOfTheIdsDoNotCount) {
    load();
    sim::DeviceDescription node = sim::machine::controlNodeDescription();
    node.rawProperties["HardwareId"] = {
        {}, bytesOf(std::u16string_view(u"Tarvenholt\\Myrtelhaven\0\0\0\0", 26)), 0x2012};
    EXPECT_TRUE(plug(node, &machine().rootNode()).started());
    EXPECT_NE(driverState(machine()).controlDevice, nullptr);
}

TEST_F(DeviceAddDispatch, TheOwnNodeIsKnownLetterByLetter) {
    load();
    plugOwnNode("other letters", {u"tarvenholt\\myrtelhaven"});
    EXPECT_EQ(addOf("other letters").callbackStatus, STATUS_SUCCESS);
    EXPECT_FALSE(addOf("other letters").attached);
    EXPECT_EQ(addOf("other letters").log, lines::asked({u"tarvenholt\\myrtelhaven"}));
    expectNoControlDevice();
}

TEST_F(DeviceAddDispatch, AListWithAFurtherIdIsNotTheOwnNode) {
    load();
    const std::vector<std::u16string> ids{u"Tarvenholt\\Myrtelhaven", u"Tarvenholt\\Other"};
    plugOwnNode("further id", ids);
    EXPECT_EQ(addOf("further id").callbackStatus, STATUS_SUCCESS);
    EXPECT_FALSE(addOf("further id").attached);
    EXPECT_EQ(addOf("further id").log, lines::asked(ids));
    expectNoControlDevice();
}

TEST_F(DeviceAddDispatch, ASecondOwnNodeGetsNoDevice) {
    sim::DeviceNode &first = start();
    const ControlDevice *control = driverState(machine()).controlDevice;
    ASSERT_NE(control, nullptr);
    const auto link = sim::framework::symbolicLinkTarget(u"\\DosDevices\\Tarvenholt Myrtelhaven");
    registry().deleteValue(sim::Machine::classKey(setup::portable.guid), u"LowerFilters");

    plugOwnNode("second", {u"Tarvenholt\\Myrtelhaven"});
    EXPECT_EQ(addOf("second").returned, STATUS_SUCCESS);
    EXPECT_EQ(addOf("second").callbackStatus, STATUS_SUCCESS);
    EXPECT_FALSE(addOf("second").attached);
    EXPECT_EQ(addOf("second").log, lines::asked({u"Tarvenholt\\Myrtelhaven"}));
    EXPECT_EQ(driverState(machine()).controlDevice, control);
    EXPECT_EQ(sim::framework::symbolicLinkTarget(u"\\DosDevices\\Tarvenholt Myrtelhaven"), link);
    EXPECT_TRUE(first.started());
    // Only a node that becomes the control device repairs the registration.
    EXPECT_FALSE(registry().value(sim::Machine::classKey(setup::portable.guid), u"LowerFilters"));
}

TEST_F(DeviceAddDispatch, AnInternalDiskStartsWithoutAFilter) {
    start();
    sim::DeviceDescription disk;
    disk.name = "disk";
    disk.instanceId = u"SCSI\\DISK&VEN_ATA&PROD_X\\4&1";
    disk.hardwareIds = {u"SCSI\\DiskATA_____X"};
    disk.classGuid = u"{4D36E967-E325-11CE-BFC1-08002BE10318}"; // compared ignoring case
    disk.service = u"disk";
    registry().setMultiString(sim::Machine::classKey(*disk.classGuid), u"UpperFilters",
                              {u"TarvenholtMyrtelhavenDriver"});
    sim::DeviceNode &node = plug(disk, &machine().rootNode());
    EXPECT_TRUE(node.started());
    EXPECT_TRUE(wasAdded("disk"));
    EXPECT_FALSE(addOf("disk").attached);
}

} // namespace
} // namespace behaviour
