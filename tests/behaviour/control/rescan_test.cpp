#include "myrtelhaven_service.h"
#include "simulator/kernel/io.h"
#include "tests/behaviour/support/control_code.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

#include <algorithm>

namespace behaviour {
namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

class Rescan : public DriverTest {
  protected:
    void startWithBothHubDrivers() {
        options.hubDrivers = {u"USBHUB3", u"USBHUB"};
        control_ = &start();
    }
    NTSTATUS rescan() {
        const NTSTATUS status = sendControlCode(*control_, IOCTL_RESCAN_DEVICES).status;
        machine().settle();
        return status;
    }
    std::size_t addsOf(const std::string &device) const {
        return static_cast<std::size_t>(
            std::count_if(adds.begin(), adds.end(), [&](const Add &add) { return add.device == device; }));
    }
    /// Lines of one kind, without the addresses in them.
    static std::size_t countOf(const Lines &log, const std::string &start) {
        return static_cast<std::size_t>(
            std::count_if(log.begin(), log.end(), [&](const std::string &line) { return line.starts_with(start); }));
    }

    sim::DeviceNode *control_ = nullptr;
};

TEST_F(Rescan, CyclesADeviceThatThePolicyNowAllows) {
    startWithBothHubDrivers();
    apply(Policy{});
    plug(flashDrive());
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
    apply(allowing({u"VID_0781&PID_5581"}));
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_TRUE(deviceNode("stick").started());
    EXPECT_EQ(deviceNode("stick").problemCode(), 0U);
    EXPECT_EQ(addsOf("stick"), 2U);
}

TEST_F(Rescan, CyclesADeviceThatThePolicyNowBlocks) {
    startWithBothHubDrivers();
    apply(allowing({u"*"}));
    plug(flashDrive());
    plug(otherFlashDrive());
    apply(allowing({u"VID_0781&PID_5581\\A20054F50D478A23"}));
    takeLog();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_TRUE(deviceNode("stick").started());
    EXPECT_EQ(addsOf("stick"), 1U) << "its mode is unchanged";
    EXPECT_EQ(deviceNode("other stick").problemCode(), 29U);
    EXPECT_EQ(addsOf("other stick"), 2U);
    const Lines log = takeLog();
    EXPECT_EQ(countOf(log, "INFO Add device, device object = 0x"), 1U);
    EXPECT_EQ(countOf(log, "INFO reconnectDevice, dev object = 0x"), 1U);
}

TEST_F(Rescan, WithoutChangeCyclesNothing) {
    startWithBothHubDrivers();
    apply(readOnly({u"VID_0781&PID_5581"}));
    plug(flashDrive());
    plug(keyboard());
    plug(mouse());
    takeLog();
    const std::size_t before = adds.size();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_EQ(adds.size(), before);
    EXPECT_THAT(takeLog(), Not(Contains(StartsWith("INFO Add device"))));
}

TEST_F(Rescan, LogsItsWay) {
    startWithBothHubDrivers();
    takeLog();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_EQ(takeLog(),
              (Lines{"INFO onIoDeviceControl, ioctl code = 2269199", "INFO Release blocked devices resources",
                     "INFO rescanDevices driverName = \\Driver\\USBHUB",
                     "INFO Get device to reconnect, driver name = \\Driver\\USBHUB",
                     "INFO rescanDevices driverName = \\Driver\\USBHUB3",
                     "INFO Get device to reconnect, driver name = \\Driver\\USBHUB3"}));
}

TEST_F(Rescan, WithoutTheOldHubDriverDoesNothing) {
    control_ = &start(); // USBHUB3 alone, as on every modern machine
    apply(Policy{});
    plug(flashDrive());
    apply(allowing({u"*"}));
    takeLog();
    EXPECT_EQ(rescan(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
    EXPECT_EQ(takeLog(),
              (Lines{"INFO onIoDeviceControl, ioctl code = 2269199", "INFO Release blocked devices resources",
                     "INFO rescanDevices driverName = \\Driver\\USBHUB",
                     "INFO Get device to reconnect, driver name = \\Driver\\USBHUB",
                     "ERROR Failed to enumerate driver devices, status = 0xc0000034",
                     "ERROR Failed to get devices to reconnect, status = 0xc0000034"}));
}

TEST_F(Rescan, WithoutTheNewHubDriverCyclesNoDeviceOfTheOldOneEither) {
    options.hubDrivers = {u"USBHUB"};
    control_ = &start();
    apply(Policy{});
    plug(flashDrive());
    apply(allowing({u"*"}));
    takeLog();
    EXPECT_EQ(rescan(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(addsOf("stick"), 1U);
    const Lines log = takeLog();
    EXPECT_EQ(countOf(log, "INFO Add device"), 1U) << "it was found, but the rescan ends before any port is cycled";
    EXPECT_EQ(log.back(), "ERROR Failed to get devices to reconnect, status = 0xc0000034");
}

TEST_F(Rescan, FunctionsOfACompositeDeviceCycleItOnce) {
    startWithBothHubDrivers();
    Policy keysToo = allowing({u"*"});
    keysToo.blocked = asText(u"Class_03");
    apply(keysToo);
    plug(keyboard());
    EXPECT_EQ(filterOf("keyboard keys").mode, 2U);
    keysToo.allowed = asStrings({});
    apply(keysToo);
    takeLog();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    const Lines log = takeLog();
    EXPECT_EQ(countOf(log, "INFO reconnectDevice, dev object = 0x"), 1U);
    EXPECT_THAT(log, Contains("INFO Get device to reconnect, driver name = \\Driver\\usbccgp"));
    EXPECT_EQ(addsOf("keyboard"), 2U);
    EXPECT_EQ(addsOf("keyboard keys"), 2U);
    EXPECT_EQ(deviceNode("keyboard keys").problemCode(), 29U);
    EXPECT_EQ(deviceNode("keyboard consumer").problemCode(), 29U);
}

TEST_F(Rescan, OfTwoCompositeDevicesTheOneWithAChangeIsCycled) {
    startWithBothHubDrivers();
    sim::DeviceDescription second =
        sim::usbKeyboard("second", {0x04D9, 0x1603, 0x0310, u"Holtek", u"Other Keyboard", u"77"});
    Policy policy = allowing({u"*"});
    policy.blocked = asText(u"Class_03");
    apply(policy);
    plug(keyboard());
    plug(second);
    policy.allowed = asStrings({u"VID_046D*"});
    apply(policy);
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_EQ(addsOf("keyboard"), 1U);
    EXPECT_TRUE(deviceNode("keyboard keys").started());
    EXPECT_EQ(addsOf("second"), 2U);
    EXPECT_EQ(deviceNode("second keys").problemCode(), 29U);
    policy.allowed = asStrings({u"VID_04D9*"});
    apply(policy);
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_EQ(addsOf("keyboard"), 2U);
    EXPECT_EQ(deviceNode("keyboard keys").problemCode(), 29U);
    EXPECT_TRUE(deviceNode("second keys").started());
}

TEST_F(Rescan, ADeviceBehindAnInnerHubHasItsOwnPortCycled) {
    startWithBothHubDrivers();
    sim::DeviceNode &hub = plug(sim::usbHub("hub", {0x05E3, 0x0610, 0x9226, u"GenesysLogic", u"USB2.1 Hub", {}}));
    apply(allowing({u"*"}));
    plug(flashDrive(), &hub);
    apply(Policy{});
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_EQ(addsOf("hub"), 1U);
    EXPECT_EQ(addsOf("stick"), 2U);
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
}

TEST_F(Rescan, ADeviceWithoutFilterThatIsBlockedByItsIdIsRecordedAndCycled) {
    startWithBothHubDrivers();
    apply(Policy{});
    sim::DeviceDescription bluetooth =
        sim::usbBluetoothAdapter("bluetooth", {0x8087, 0x0026, 0x0002, {}, u"Bluetooth", {}});
    plug(bluetooth); // class Bluetooth: no filter, though Class_e0 is a blocked id
    takeLog();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    const Lines log = takeLog();
    EXPECT_EQ(countOf(log, "INFO Add blocked device, device object = 0x"), 1U);
    EXPECT_EQ(countOf(log, "INFO Add device, device object = 0x"), 1U);
    EXPECT_EQ(countOf(log, "INFO reconnectDevice, dev object = 0x"), 1U);
    EXPECT_TRUE(deviceNode("bluetooth").started()) << "no filter, so nothing keeps it from running";
}

TEST_F(Rescan, ADeviceWithoutFilterThatTheListsDoNotNameIsLeftAlone) {
    startWithBothHubDrivers();
    Policy policy;
    policy.blocked = asText(u"Class_08");
    apply(policy);
    plug(sim::usbBluetoothAdapter("bluetooth", {0x8087, 0x0026, 0x0002, {}, u"Bluetooth", {}}));
    takeLog();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_THAT(takeLog(), Not(Contains(StartsWith("INFO Add"))));
}

TEST_F(Rescan, EmptiesTheRegisterFirst) {
    startWithBothHubDrivers();
    apply(Policy{});
    plug(sim::usbBluetoothAdapter("bluetooth", {0x8087, 0x0026, 0x0002, {}, u"Bluetooth", {}}));
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    Policy nothing;
    nothing.blocked = {};
    apply(nothing);
    unplug("bluetooth");
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    unload(); // what the register still held would be a leak
}

TEST_F(Rescan, APortThatCannotBeCycledDoesNotKeepTheOthersFromIt) {
    startWithBothHubDrivers();
    apply(allowing({u"*"}));
    plug(flashDrive());
    plug(otherFlashDrive());
    apply(Policy{});
    takeLog();
    failCall("FsRtlIssueDeviceIoControl", 2, STATUS_DEVICE_BUSY); // the first such call is this test's own request
    EXPECT_EQ(rescan(), STATUS_DEVICE_BUSY);
    endFailures();
    EXPECT_EQ(addsOf("stick") + addsOf("other stick"), 3U) << "one of them was cycled";
    EXPECT_THAT(takeLog(), Contains("ERROR Failed to reconnect device, status = 0x80000011"));
    EXPECT_EQ(rescan(), STATUS_SUCCESS) << "the next one does the rest";
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
    EXPECT_EQ(deviceNode("other stick").problemCode(), 29U);
}

TEST_F(Rescan, RunsAtShutdown) {
    startWithBothHubDrivers();
    apply(allowing({u"*"}));
    plug(flashDrive());
    apply(Policy{});
    takeLog();
    sim::sendShutdown();
    machine().settle();
    EXPECT_THAT(takeLog(), Contains("INFO rescanDevices driverName = \\Driver\\USBHUB3"));
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U);
}

TEST_F(Rescan, DevicesBeforeTheControlDeviceAreCycledAfterwards) {
    options.hubDrivers = {u"USBHUB3", u"USBHUB"};
    load();
    apply(allowing({u"*"}));
    plug(flashDrive());
    EXPECT_EQ(deviceNode("stick").problemCode(), 29U) << "without the control device every filterable one is blocked";
    control_ = &machine().plugControlNode();
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
    EXPECT_TRUE(deviceNode("stick").started());
}

TEST_F(Rescan, EachFailingCallEndsItCleanly) {
    startWithBothHubDrivers();
    apply(allowing({u"*"}));
    plug(flashDrive());
    plug(keyboard());
    plug(sim::usbBluetoothAdapter("bluetooth", {0x8087, 0x0026, 0x0002, {}, u"Bluetooth", {}}));
    setParameter(u"LogLevel", 0);
    sendControlCode(*control_, IOCTL_RELOAD_LOG_SETTINGS);
    failEachCall([this] { rescan(); });
    EXPECT_EQ(rescan(), STATUS_SUCCESS);
}

} // namespace
} // namespace behaviour
