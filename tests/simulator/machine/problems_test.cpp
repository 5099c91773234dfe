#include "test_driver.h"

#include "simulator/kernel/kernel.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/usb_device.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace sim::machinetest {
namespace {

using Names = std::vector<std::u16string>;

const UsbIdentity someStick{0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"S1"};

struct Problems : testing::Test {
    TestDriver driver;
    Machine machine{driver.options()};

    void SetUp() override {
        machine.rootHub();
        machine.presetClassFilters();
    }
    bool saw(const std::string &event) const {
        const auto events = driver.events();
        return std::find(events.begin(), events.end(), event) != events.end();
    }
};

const char *const stick = "USB\\VID_0781&PID_5581\\S1";

TEST_F(Problems, AMissingServiceStopsEveryDeviceOfTheClass) {
    Registry &registry = machine.kernel().registry;
    registry.setMultiString(Machine::classKey(machine::setup::usb.guid), u"LowerFilters",
                            {u"TarvenholtMyrtelhavenDriver", u"NotThere"});
    DeviceNode &node = machine.plug(usbFlashDrive("stick", someStick));
    EXPECT_EQ(node.problemCode(), 19U);
    EXPECT_EQ(node.problemStatus(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_FALSE(node.started());
    EXPECT_FALSE(node.everStarted());
    EXPECT_FALSE(saw(std::string("add ") + stick));
    EXPECT_TRUE(node.children().empty());
}

TEST_F(Problems, SoDoesTheDriversOwnNameWithoutItsService) {
    machine.kernel().registry.deleteKey(Machine::serviceKey());
    EXPECT_EQ(machine.plug(usbFlashDrive("stick", someStick)).problemCode(), 19U);
}

TEST_F(Problems, ADisabledServiceIsCode32) {
    machine.kernel().registry.setDword(Machine::serviceKey(), u"Start", 4);
    EXPECT_EQ(machine.plug(usbFlashDrive("stick", someStick)).problemCode(), 32U);
}

TEST_F(Problems, AFailedLoadIsCode39) {
    driver.entryStatus = STATUS_INSUFFICIENT_RESOURCES;
    DeviceNode &node = machine.plug(usbFlashDrive("stick", someStick));
    EXPECT_EQ(node.problemCode(), 39U);
    EXPECT_EQ(node.problemStatus(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_FALSE(machine.driverLoaded());
}

TEST_F(Problems, ARawAddFailureTearsTheStackDown) {
    driver.addStatus = STATUS_UNSUCCESSFUL;
    DeviceDescription description = usbFlashDrive("stick", someStick);
    description.lowerFilters = {u"Below"};
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(node.problemStatus(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(node.stack(), (Names{u"\\Driver\\USBHUB3"}));
    EXPECT_EQ(node.physicalDevice()->AttachedDevice, nullptr);
    EXPECT_FALSE(node.everStarted());
}

TEST_F(Problems, AFailedStartIsCode10) {
    DeviceDescription description = usbFlashDrive("stick", someStick);
    description.startFailure = STATUS_DEVICE_NOT_READY;
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(node.problemCode(), 10U);
    EXPECT_EQ(node.problemStatus(), STATUS_DEVICE_NOT_READY);
    EXPECT_TRUE(saw(std::string("start ") + stick));
    EXPECT_TRUE(saw(std::string("remove ") + stick));
    EXPECT_FALSE(saw(std::string("surprise ") + stick));
}

TEST_F(Problems, ADisabledDeviceStartsOnceAndIsTakenApart) {
    driver.deviceState = PNP_DEVICE_DISABLED | PNP_DEVICE_DONT_DISPLAY_IN_UI;
    DeviceDescription description = usbFlashDrive("stick", someStick);
    driver.clear();
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_TRUE(node.everStarted());
    EXPECT_FALSE(node.started());
    EXPECT_TRUE(node.hidden());
    EXPECT_TRUE(node.children().empty());
    EXPECT_EQ(node.stack(), (Names{u"\\Driver\\USBHUB3"}));
    ASSERT_NE(node.physicalDevice(), nullptr);
    EXPECT_EQ(machine.find("stick disk"), nullptr);
    std::vector<std::string> mine;
    for (const std::string &event : driver.events()) {
        if (event.find(stick) != std::string::npos) {
            mine.push_back(event.substr(0, event.find(' ')));
        }
    }
    EXPECT_EQ(mine, (std::vector<std::string>{"add", "start", "capabilities", "state", "surprise", "remove"}));
}

TEST_F(Problems, ReplugGivesADisabledDeviceItsChildrenBack) {
    driver.deviceState = PNP_DEVICE_DISABLED;
    DeviceNode &node = machine.plug(usbFlashDrive("stick", someStick));
    PDEVICE_OBJECT before = node.physicalDevice();
    ObReferenceObject(before);
    driver.deviceState = 0;
    DeviceNode &again = machine.replug(node);
    EXPECT_TRUE(again.started());
    EXPECT_EQ(again.problemCode(), 0U);
    EXPECT_NE(again.physicalDevice(), before);
    EXPECT_NE(machine.find("stick disk"), nullptr);
    ObDereferenceObject(before);
}

TEST_F(Problems, TheOtherStatesHaveTheirCodes) {
    driver.deviceState = PNP_DEVICE_FAILED;
    EXPECT_EQ(machine.plug(usbFlashDrive("failed", {1, 1, 1, u"", u"", u"A"})).problemCode(), 43U);
    driver.deviceState = PNP_DEVICE_REMOVED;
    EXPECT_EQ(machine.plug(usbFlashDrive("removed", {1, 1, 1, u"", u"", u"B"})).problemCode(), 24U);
    driver.deviceState = PNP_DEVICE_DONT_DISPLAY_IN_UI;
    DeviceNode &hidden = machine.plug(usbFlashDrive("hidden", {1, 1, 1, u"", u"", u"C"}));
    EXPECT_TRUE(hidden.started());
    EXPECT_TRUE(hidden.hidden());
}

TEST_F(Problems, AnInvalidatedStateIsAskedForLater) {
    DeviceNode &node = machine.plug(usbFlashDrive("stick", someStick));
    driver.deviceState = PNP_DEVICE_DISABLED;
    machine.kernel().invalidateDeviceState(node.physicalDevice());
    EXPECT_TRUE(node.started());
    machine.settle();
    EXPECT_FALSE(node.started());
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_EQ(machine.find("stick disk"), nullptr);
}

TEST_F(Problems, InvalidatingADeviceThatHasNotStartedDoesNothing) {
    driver.onAdd = [this](PDEVICE_OBJECT physical) { machine.kernel().invalidateDeviceState(physical); };
    driver.clear();
    machine.plug(usbVendorDevice("vendor", {1, 1}));
    const auto events = driver.events();
    EXPECT_EQ(std::count_if(events.begin(), events.end(), [](const auto &one) { return one.starts_with("state"); }), 1);
}

TEST_F(Problems, NothingCanBePluggedBelowADisabledHub) {
    driver.deviceState = PNP_DEVICE_DISABLED;
    DeviceNode &hub = machine.plug(usbHub("hub", {0x05E3, 0x0608}));
    EXPECT_THROW(machine.plug(usbFlashDrive("stick", someStick), &hub), std::logic_error);
}

using ProblemsDeathTest = Problems;

TEST_F(ProblemsDeathTest, AStackObjectMustBeInitialized) {
    driver.clearsInitializing = false;
    EXPECT_DEATH(machine.plug(usbFlashDrive("stick", someStick)), "DO_DEVICE_INITIALIZING");
}

TEST_F(ProblemsDeathTest, AFilterMustLeaveTheStack) {
    DeviceNode &node = machine.plug(usbFlashDrive("stick", someStick));
    driver.leavesStackOnRemove = false;
    EXPECT_DEATH(machine.unplug(node), "stays in the stack");
    driver.leavesStackOnRemove = true;
}

} // namespace
} // namespace sim::machinetest
