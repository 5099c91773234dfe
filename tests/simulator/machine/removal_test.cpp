#include "test_driver.h"

#include "simulator/kernel/internals.h"
#include "simulator/kernel/kernel.h"
#include "simulator/machine/usb_device.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace sim::machinetest {
namespace {

struct Removal : testing::Test {
    TestDriver driver;
    Machine machine{driver.options()};

    void SetUp() override { machine.presetClassFilters(); }

    std::vector<std::string> leaving() const {
        std::vector<std::string> result;
        for (const std::string &event : driver.events()) {
            if (event.starts_with("surprise") || event.starts_with("remove") || event.starts_with("query-remove")) {
                result.push_back(event);
            }
        }
        return result;
    }
};

TEST_F(Removal, ChildrenGoBeforeTheirParents) {
    DeviceNode &hub = machine.plug(usbHub("hub", {0x05E3, 0x0608, 0x8536, u"", u"", u"HUB"}));
    machine.plug(usbVendorDevice("first", {1, 1, 1, u"", u"", u"A"}), &hub);
    machine.plug(usbVendorDevice("second", {1, 1, 1, u"", u"", u"B"}), &hub);
    driver.clear();
    machine.unplug(hub);
    EXPECT_EQ(leaving(),
              (std::vector<std::string>{"surprise USB\\VID_0001&PID_0001\\B", "remove USB\\VID_0001&PID_0001\\B",
                                        "surprise USB\\VID_0001&PID_0001\\A", "remove USB\\VID_0001&PID_0001\\A",
                                        "surprise USB\\VID_05E3&PID_0608\\HUB", "remove USB\\VID_05E3&PID_0608\\HUB"}));
}

TEST_F(Removal, AHubsPortCycleBringsBackWhatIsBelow) {
    DeviceNode &hub = machine.plug(usbHub("hub", {0x05E3, 0x0608, 0x8536, u"", u"", u"HUB"}));
    machine.plug(usbVendorDevice("first", {1, 1, 1, u"", u"", u"A"}), &hub);
    DeviceNode &second = machine.plug(usbVendorDevice("second", {1, 1, 1, u"", u"", u"B"}), &hub);
    machine.unplug(second);
    DeviceNode &again = machine.replug(hub);
    ASSERT_EQ(again.children().size(), 1U);
    EXPECT_EQ(again.children()[0]->description().name, "first");
    EXPECT_TRUE(again.children()[0]->started());
}

TEST_F(Removal, UnplugTwiceIsHarmless) {
    DeviceNode &node = machine.plug(usbVendorDevice("vendor", {1, 1}));
    machine.unplug(node);
    machine.unplug(node);
    EXPECT_THROW(machine.replug(node), std::logic_error);
}

TEST_F(Removal, AnOpenHandlePostponesIt) {
    DeviceNode &node = machine.plug(usbVendorDevice("vendor", {1, 1, 1, u"", u"", u"A"}));
    PDEVICE_OBJECT old = node.physicalDevice();
    ++old->ReferenceCount;
    driver.clear();
    DeviceNode &again = machine.replug(node);
    EXPECT_EQ(leaving(), (std::vector<std::string>{"surprise USB\\VID_0001&PID_0001\\A"}));
    EXPECT_TRUE(again.started());
    EXPECT_NE(again.physicalDevice(), old);
    EXPECT_NE(old->DeviceObjectExtension->DeviceNode, nullptr);
    machine.settle();
    EXPECT_EQ(leaving().size(), 1U);
    --old->ReferenceCount;
    machine.settle();
    EXPECT_EQ(leaving().back(), "remove USB\\VID_0001&PID_0001\\A");
    EXPECT_TRUE(again.started());
}

TEST_F(Removal, ADisabledDeviceInUseIsFinishedWhenItIsPulledOut) {
    machine.rootHub();
    driver.deviceState = PNP_DEVICE_DISABLED;
    PDEVICE_OBJECT device = nullptr;
    driver.onAdd = [&](PDEVICE_OBJECT physical) {
        device = physical;
        ++physical->ReferenceCount;
    };
    DeviceNode &node = machine.plug(usbVendorDevice("vendor", {1, 1, 1, u"", u"", u"A"}));
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_EQ(node.stack().size(), 3U); // the removal waits for the handle
    machine.unplug(node);
    EXPECT_EQ(machine.find("vendor"), nullptr);
    driver.clear();
    --device->ReferenceCount;
    machine.settle();
    EXPECT_EQ(leaving(), (std::vector<std::string>{"remove USB\\VID_0001&PID_0001\\A"}));
}

TEST_F(Removal, UnloadRemovesOrderlyAndCallsUnload) {
    machine.plug(usbVendorDevice("vendor", {1, 1, 1, u"", u"", u"A"}));
    machine.plug(usbBluetoothAdapter("bluetooth", {2, 2, 1, u"", u"", u"B"}), &machine.hostController());
    driver.clear();
    machine.unloadDriver();
    const auto events = leaving();
    ASSERT_GE(events.size(), 2U);
    EXPECT_EQ(events[0], "query-remove USB\\VID_0001&PID_0001\\A");
    EXPECT_EQ(events[1], "remove USB\\VID_0001&PID_0001\\A");
    const auto all = driver.events();
    EXPECT_EQ(all[all.size() - 2], "unload");
    EXPECT_EQ(all.back(), "unmapped");
    EXPECT_FALSE(machine.driverLoaded());
    EXPECT_EQ(machine.find("vendor"), nullptr);
    EXPECT_TRUE(machine.leaks().empty());
}

TEST_F(Removal, AnOpenHandleKeepsTheDriverLoaded) {
    DeviceNode &node = machine.plug(usbVendorDevice("vendor", {1, 1, 1, u"", u"", u"A"}));
    PDEVICE_OBJECT device = node.physicalDevice();
    ++device->ReferenceCount;
    EXPECT_FALSE(machine.unloadDriver());
    EXPECT_TRUE(machine.driverLoaded());
    --device->ReferenceCount;
    machine.unloadDriver();
    EXPECT_FALSE(machine.driverLoaded());
}

TEST_F(Removal, AForgottenReferenceIsALeak) {
    DeviceNode &node = machine.plug(usbVendorDevice("vendor", {1, 1, 1, u"", u"", u"A"}));
    PDEVICE_OBJECT device = node.physicalDevice();
    ObReferenceObject(device);
    machine.unloadDriver();
    const auto leaks = machine.leaks();
    ASSERT_EQ(leaks.size(), 1U);
    EXPECT_NE(leaks[0].find("device"), std::string::npos) << leaks[0];
    ObDereferenceObject(device);
    EXPECT_TRUE(machine.leaks().empty());
}

TEST_F(Removal, ADriverObjectInUseKeepsTheImageMapped) {
    machine.loadDriver();
    PDRIVER_OBJECT object = machine.driverObject();
    ObReferenceObject(object);
    machine.unloadDriver();
    EXPECT_EQ(driver.events().back(), "unload");
    ObDereferenceObject(object);
    machine.settle();
    EXPECT_EQ(driver.events().back(), "unmapped");
}

} // namespace
} // namespace sim::machinetest
