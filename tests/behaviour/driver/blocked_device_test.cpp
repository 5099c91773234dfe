#include "simulator/framework/framework.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

/// A blocked device starts, says that it is disabled, and is taken down again.
class BlockedDevice : public DriverTest {
  protected:
    BlockedDevice() {
        apply({});
        start();
    }
    void nodeChanged(sim::DeviceNode &node) override {
        if (node.description().name == "board" && node.started()) {
            wasSeenStarted = true;
        }
    }
    bool wasSeenStarted = false;
};

TEST_F(BlockedDevice, IsDisabledAndHiddenOnceItsStackHasStarted) {
    sim::DeviceNode &node = plug(vendorBoard());
    EXPECT_EQ(addOf("board").returned, STATUS_SUCCESS) << "the add itself succeeds";
    EXPECT_TRUE(addOf("board").attached);
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_TRUE(node.hidden());
    EXPECT_TRUE(node.everStarted());
    EXPECT_FALSE(node.started());
    EXPECT_FALSE(wasSeenStarted) << "it never ran for anybody";
}

TEST_F(BlockedDevice, LosesItsWholeStackAndTheFilterWithIt) {
    const std::size_t objects = sim::framework::leaks().size();
    sim::DeviceNode &node = plug(vendorBoard());
    EXPECT_EQ(node.stack(), std::vector<std::u16string>{u"\\Driver\\USBHUB3"});
    EXPECT_EQ(node.physicalDevice()->AttachedDevice, nullptr);
    EXPECT_EQ(sim::framework::leaks().size(), objects);
}

TEST_F(BlockedDevice, TakesNoMemoryWhileItIsDisabled) {
    sim::DeviceNode &node = plug(vendorBoard());
    const std::size_t blocks = kernel().pool.blocksInUse();
    machine().replug(node);
    EXPECT_EQ(deviceNode("board").problemCode(), 29U);
    EXPECT_EQ(kernel().pool.blocksInUse(), blocks);
}

TEST_F(BlockedDevice, HasNoDevicesBelow) {
    plug(flashDrive());
    EXPECT_EQ(machine().find("stick disk"), nullptr);
    EXPECT_FALSE(wasAdded("stick disk"));
}

TEST_F(BlockedDevice, ComesBackAllowedAfterAChangeOfPolicy) {
    sim::DeviceNode &node = plug(flashDrive());
    apply(allowing({u"VID_0781*"}));
    EXPECT_EQ(node.problemCode(), 29U) << "a change alone enables nothing";
    sim::DeviceNode &again = machine().replug(node);
    EXPECT_TRUE(again.started());
    EXPECT_FALSE(again.hidden());
    EXPECT_NE(machine().find("stick disk"), nullptr);
}

TEST_F(BlockedDevice, AnAllowedDeviceIsBlockedAtItsNextAdd) {
    apply(allowing({u"VID_0781*"}));
    sim::DeviceNode &node = plug(flashDrive());
    EXPECT_TRUE(node.started());
    apply({});
    EXPECT_TRUE(node.started());
    EXPECT_EQ(machine().replug(node).problemCode(), 29U);
}

TEST_F(BlockedDevice, AFunctionIsBlockedAndItsSiblingsAreNot) {
    sim::DeviceDescription device = keyboard();
    device.children[1].compatibleIds = {u"USB\\Class_ff&SubClass_00&Prot_00", u"USB\\Class_ff&SubClass_00",
                                        u"USB\\Class_ff"};
    EXPECT_TRUE(plug(device).started());
    EXPECT_TRUE(deviceNode("keyboard keys").started());
    EXPECT_EQ(deviceNode("keyboard consumer").problemCode(), 29U);
}

TEST_F(BlockedDevice, ACompositeDeviceItselfIsNeverBlocked) {
    apply({asText(u"COMPOSITE DevClass_00 Class_03"), {}, {}});
    EXPECT_TRUE(plug(keyboard()).started());
    EXPECT_EQ(filterOf("keyboard").filterable, 0U);
    EXPECT_EQ(filterOf("keyboard").ruleType, 1U);
    EXPECT_EQ(deviceNode("keyboard keys").problemCode(), 29U);
}

TEST_F(BlockedDevice, IsBlockedBelowNoHubToo) {
    sim::DeviceDescription device = flashDrive();
    device.busDriver = u"tsusbhub";
    sim::DeviceNode &node = plug(device, &machine().rootNode());
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_EQ(filterOf("stick").ruleType, 3U);
}

} // namespace
} // namespace behaviour
