#include "simulator/machine/setup_classes.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"
#include "tests/behaviour/support/service_message.h"

namespace behaviour {
namespace {

using testing::Contains;

/// Which hub is asked about a device, and for which port: told by whose descriptors end up in the message.
class UsbPort : public DriverTest {
  protected:
    UsbPort() { start(); }
    MessageBytes messageOf(std::string_view device) {
        const Add &add = addOf(device);
        return MessageBytes(add.filter ? add.filter->message : std::vector<std::uint8_t>{});
    }
    /// A device with a function below that has these ids.
    static sim::DeviceDescription parentOf(std::u16string service, std::vector<std::u16string> functionIds) {
        sim::DeviceDescription device = sim::usbCompositeDevice(
            "parent", {0x1234, 0x5678, 0x0100, u"Maker", u"Whole device", u"77"},
            {{"function", {0x03, 0x01, 0x01}, u"HidUsb", std::u16string(sim::machine::setup::humanInterface.guid)}});
        device.compatibleIds = {u"USB\\DevClass_00"};
        device.service = std::move(service);
        device.children[0].hardwareIds = std::move(functionIds);
        return device;
    }
    void expectFailure(std::string_view device, NTSTATUS status, const std::string &line) {
        EXPECT_EQ(deviceNode(device).problemCode(), 31U);
        EXPECT_EQ(addOf(device).returned, status);
        EXPECT_EQ(addOf(device).log.back(), line);
    }
};

TEST_F(UsbPort, EachDeviceIsAskedForAtItsOwnPort) {
    sim::DeviceNode &hub = plug(sim::usbHub("hub", {0x05E3, 0x0610}));
    plug(mouse(), &hub);
    plug(flashDrive(), &hub);
    plug(vendorBoard());
    EXPECT_EQ(messageOf("mouse").productId(), 0xC077U);
    EXPECT_EQ(messageOf("stick").productId(), 0x5581U);
    EXPECT_EQ(messageOf("board").productId(), 0x8613U);
}

TEST_F(UsbPort, ACompositeDeviceIsAskedForAtItsOwnPort) {
    plug(keyboard());
    EXPECT_EQ(messageOf("keyboard").productId(), 0xC31CU);
}

TEST_F(UsbPort, AFunctionIsAskedForAtTheCompositeDevicesPort) {
    plug(mouse());
    plug(keyboard());
    EXPECT_EQ(messageOf("keyboard keys").productId(), 0xC31CU);
    EXPECT_EQ(messageOf("keyboard consumer").deviceName(), u"USB Keyboard");
}

TEST_F(UsbPort, ACompositeDeviceMayBeKnownByItsServiceInAnyLetterCase) {
    for (const char16_t *service : {u"usbccgp", u"USBCCGP", u"dg_ssudbus", u"DG_SSUDBUS"}) {
        SCOPED_TRACE(lines::utf8(service));
        // Without an interface number only the parent tells that this is a function.
        sim::DeviceNode &node = plug(parentOf(service, {u"USB\\VID_1234&PID_5678&Whatever"}));
        EXPECT_EQ(messageOf("function").deviceName(), u"Whole device");
        machine().unplug(node);
    }
}

TEST_F(UsbPort, AnInterfaceNumberAloneMakesAFunction) {
    plug(parentOf(u"otherbus", {u"USB\\VID_1234&PID_5678&REV_0100&MI_01"}));
    EXPECT_EQ(messageOf("function").deviceName(), u"Whole device");
    EXPECT_EQ(messageOf("function").interfaceNumber(), 1U);
}

TEST_F(UsbPort, WithoutEitherTheParentIsTakenForTheHub) {
    plug(parentOf(u"otherbus", {u"USB\\VID_1234&PID_5678"}));
    EXPECT_TRUE(deviceNode("function").started());
    EXPECT_THAT(addOf("function").log, Contains(testing::StartsWith("ERROR Failed to fill device info, status = 0x")));
    EXPECT_EQ(messageOf("function").deviceName(), u"");
}

TEST_F(UsbPort, OnlyTheFirstHardwareIdHasTheInterfaceNumber) {
    plug(parentOf(u"otherbus", {u"USB\\VID_1234&PID_5678", u"USB\\VID_1234&PID_5678&MI_01"}));
    EXPECT_EQ(messageOf("function").deviceName(), u"");
}

TEST_F(UsbPort, TheWordCompositeIsKnownLetterByLetter) {
    sim::DeviceDescription device = parentOf(u"otherbus", {u"USB\\VID_1234&PID_5678"});
    device.compatibleIds = {u"USB\\DevClass_00", u"USB\\composite"};
    sim::DeviceNode &node = plug(device);
    EXPECT_EQ(messageOf("function").deviceName(), u"");
    machine().unplug(node);
    device.compatibleIds = {u"USB\\DevClass_00", u"USB\\COMPOSITE"};
    plug(device);
    EXPECT_EQ(messageOf("function").deviceName(), u"Whole device");
}

TEST_F(UsbPort, ADeviceWithoutAParentCannotBeJudged) {
    sim::DeviceDescription device = mouse();
    device.hasParent = false;
    plug(device);
    expectFailure("mouse", STATUS_UNSUCCESSFUL, "ERROR Failed to process rules, status = 0xc0000001");
}

TEST_F(UsbPort, AFunctionWhoseParentHasNoParentCannotBeJudged) {
    sim::DeviceDescription device = parentOf(u"usbccgp", {u"USB\\VID_1234&PID_5678&MI_00"});
    device.instanceId = u"ROOT\\PARENT\\0000";
    device.hasParent = false;
    sim::DeviceNode &node = plug(device, &machine().rootNode());
    EXPECT_TRUE(node.started());
    expectFailure("function", STATUS_UNSUCCESSFUL, "ERROR Failed to process rules, status = 0xc0000001");
}

TEST_F(UsbPort, ABusThatRefusesItsCapabilitiesLeavesNoPortAndTheAddGoesOn) {
    sim::DeviceDescription device = mouse();
    device.capabilitiesFailure = STATUS_DEVICE_NOT_READY;
    EXPECT_TRUE(plug(device).started());
    EXPECT_THAT(addOf("mouse").log, Contains("ERROR Failed to fill device info, status = 0xc000000d"));
    EXPECT_EQ(messageOf("mouse").vendorId(), 0U);
    EXPECT_EQ(messageOf("mouse").mode(), 2U);
}

TEST_F(UsbPort, FailuresBeforeTheCapabilitiesAreSentFailTheAdd) {
    failInAdd("WdfIoTargetCreate", 1);
    plug(mouse());
    expectFailure("mouse", STATUS_INSUFFICIENT_RESOURCES, "ERROR Failed to process rules, status = 0xc000009a");
    failInAdd("WdfIoTargetOpen", 1, STATUS_NO_SUCH_DEVICE);
    plug(flashDrive());
    expectFailure("stick", STATUS_NO_SUCH_DEVICE, "ERROR Failed to process rules, status = 0xc000000e");
    failInAdd("WdfRequestCreate", 1);
    plug(vendorBoard());
    expectFailure("board", STATUS_INSUFFICIENT_RESOURCES, "ERROR Failed to process rules, status = 0xc000009a");
}

TEST_F(UsbPort, UnreadableCompatibleIdsFailTheAdd) {
    sim::DeviceDescription device = mouse();
    device.compatibleIds.reset();
    plug(device);
    expectFailure("mouse", STATUS_OBJECT_NAME_NOT_FOUND, "ERROR Failed to process rules, status = 0xc0000034");
}

TEST_F(UsbPort, EmptyCompatibleIdsAreNoFailure) {
    sim::DeviceDescription device = mouse();
    device.rawProperties["CompatibleIds"] = {{}, {}, 0x2012};
    EXPECT_TRUE(plug(device).started());
    EXPECT_EQ(messageOf("mouse").mode(), 2U);
}

} // namespace
} // namespace behaviour
