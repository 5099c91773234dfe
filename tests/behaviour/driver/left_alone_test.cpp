#include "simulator/machine/setup_classes.h"
#include "simulator/machine/standard_devices.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"
#include "tests/behaviour/support/service_message.h"

namespace behaviour {
namespace {

/// USB devices that keep the filter and are not judged.
class LeftAlone : public DriverTest {
  protected:
    LeftAlone() {
        apply({asText(u"*"), {}, {}}); // everything is filtered, nothing allowed
        start();
    }
    void expectLeftAlone(const sim::DeviceNode &node) {
        const Add &add = addOf(node.description().name);
        EXPECT_TRUE(node.started());
        EXPECT_TRUE(add.attached);
        EXPECT_EQ(add.returned, STATUS_SUCCESS);
        EXPECT_EQ(add.log, lines::created(idsOf(node.description())));
        ASSERT_TRUE(add.filter);
        EXPECT_EQ(add.filter->filterable, 0U);
        EXPECT_EQ(add.filter->mode, 0U);
        EXPECT_EQ(add.filter->ruleType, 0U);
        EXPECT_TRUE(MessageBytes(add.filter->message).isZero());
    }
    static sim::DeviceDescription withIds(std::vector<std::u16string> ids) {
        sim::DeviceDescription device = mouse();
        device.hardwareIds = std::move(ids);
        return device;
    }
};

TEST_F(LeftAlone, TheRootHub) {
    expectLeftAlone(machine().rootHub());
}

TEST_F(LeftAlone, EveryIdThatBeginsAsARootHubs) {
    expectLeftAlone(plug(withIds({u"USB\\ROOT_HUB"})));
    machine().unplug(deviceNode("mouse"));
    expectLeftAlone(plug(withIds({u"USB\\ROOT_HUB30&VID8086&PID9D2F", u"USB\\VID_046D&PID_C077"})));
    machine().unplug(deviceNode("mouse"));
    expectLeftAlone(plug(withIds({u"ROOT_HUB20"}))); // an id without a bus name is taken whole
}

TEST_F(LeftAlone, ADeviceThatFailedItsReset) {
    sim::DeviceDescription device = withIds({u"USB\\RESET_FAILURE", u"USB\\UNKNOWN"});
    device.usb.reset();
    expectLeftAlone(plug(device));
}

TEST_F(LeftAlone, NeitherAddsToTheTextOfDevicesWithoutAHub) {
    sim::DeviceDescription device = withIds({u"USB\\ROOT_HUB30"});
    device.busDriver = u"tsusbhub";
    plug(device, &machine().rootNode());
    EXPECT_EQ(notUsbHubText(machine()), "");
}

TEST_F(LeftAlone, NothingWithOtherLettersOrOnlyALaterSuchId) {
    const std::vector<std::u16string> lists[] = {
        {u"USB\\root_hub30"},     {u"USB\\Root_Hub"},
        {u"USB\\XROOT_HUB"},      {u"USB\\VID_046D&PID_C077", u"USB\\ROOT_HUB30"},
        {u"USB\\reset_failure"},  {u"usb\\RESET_FAILURE"},
        {u"USB\\RESET_FAILURE2"}, {u"USB\\VID_046D&PID_C077", u"USB\\RESET_FAILURE"},
        {u"RESET_FAILURE"},       {u"USB\\USB\\RESET_FAILURE"},
    };
    for (const auto &ids : lists) {
        SCOPED_TRACE(lines::list(ids));
        sim::DeviceNode &node = plug(withIds(ids));
        EXPECT_EQ(node.problemCode(), 29U);
        EXPECT_EQ(filterOf("mouse").mode, 1U);
        machine().unplug(node);
    }
}

} // namespace
} // namespace behaviour
