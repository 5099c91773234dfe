#include "simulator/framework/framework.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

/// The framework hides a filter's failed add from Plug and Play; the driver tells it all the same where a device must
/// not work without its filter.
class FailedAdd : public DriverTest {
  protected:
    FailedAdd() {
        apply({});
        start();
    }
    void expectCode31(const sim::DeviceNode &node, NTSTATUS status) {
        const Add &add = addOf(node.description().name);
        EXPECT_EQ(add.callbackStatus, status);
        EXPECT_EQ(add.returned, status);
        EXPECT_FALSE(add.attached);
        EXPECT_EQ(node.problemCode(), 31U);
        EXPECT_EQ(node.problemStatus(), status);
        EXPECT_FALSE(node.everStarted());
        EXPECT_EQ(node.stack(), std::vector<std::u16string>{u"\\Driver\\USBHUB3"});
    }
};

TEST_F(FailedAdd, AUsbDeviceThatCannotBeJudgedDoesNotStart) {
    sim::DeviceDescription device = mouse();
    device.rawProperties["CompatibleIds"] = {STATUS_ACCESS_DENIED, {}, 0};
    expectCode31(plug(device), STATUS_ACCESS_DENIED);
    EXPECT_EQ(addOf("mouse").log, lines::all(lines::created(idsOf(device)), lines::searched({"\\Driver\\USBHUB3"}),
                                             Lines{"ERROR Failed to process rules, status = 0xc0000022"}));
}

TEST_F(FailedAdd, AUsbDeviceWithoutAFrameworkDeviceDoesNotStart) {
    failInAdd("WdfDeviceCreate", 1, STATUS_NO_SUCH_DEVICE);
    expectCode31(plug(mouse()), STATUS_NO_SUCH_DEVICE);
    EXPECT_EQ(addOf("mouse").log,
              lines::all(lines::created(idsOf(mouse())), Lines{"ERROR Failed to create device, status = 0xc000000e"}));
}

TEST_F(FailedAdd, AUsbDeviceWhoseIdsCannotBeKeptDoesNotStart) {
    unload();
    setParameter(u"LogLevel", 2);
    start();
    failInAdd("ExAllocatePool2", 3); // the ids, the enumerator, the copy of the ids
    expectCode31(plug(mouse()), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(addOf("mouse").log, Lines{"ERROR Failed to hardware id init, status = 0xc000009a"});
}

TEST_F(FailedAdd, TheFailureConcernsThatDeviceAlone) {
    failInAdd("WdfDeviceCreate");
    expectCode31(plug(mouse()), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_TRUE(plug(keyboard()).started());
    EXPECT_EQ(addOf("keyboard").returned, STATUS_SUCCESS);
}

TEST_F(FailedAdd, TheSameDeviceStartsWhenNothingFailsAnyMore) {
    failInAdd("WdfDeviceCreate");
    sim::DeviceNode &node = plug(mouse());
    expectCode31(node, STATUS_INSUFFICIENT_RESOURCES);
    sim::DeviceNode &again = machine().replug(node);
    EXPECT_TRUE(again.started());
    EXPECT_EQ(addOf("mouse").returned, STATUS_SUCCESS);
    EXPECT_TRUE(addOf("mouse").attached);
}

TEST_F(FailedAdd, ADeviceOfAnotherBusIsNotConcerned) {
    sim::DeviceDescription device;
    device.name = "touch pad";
    device.instanceId = u"ACPI\\ELAN0001\\1";
    device.hardwareIds = {u"ACPI\\ELAN0001"};
    device.classGuid = u"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}";
    device.service = u"hidi2c";
    failInAdd("WdfDeviceCreate");
    EXPECT_TRUE(plug(device, &machine().rootNode()).started());
    EXPECT_EQ(addOf("touch pad").returned, STATUS_SUCCESS);
}

TEST_F(FailedAdd, LeavesNothingOfTheFilterBehind) {
    sim::DeviceDescription device = mouse();
    device.rawProperties["CompatibleIds"] = {STATUS_ACCESS_DENIED, {}, 0};
    const std::size_t objects = sim::framework::leaks().size();
    const std::size_t blocks = kernel().pool.blocksInUse();
    plug(device);
    EXPECT_EQ(sim::framework::leaks().size(), objects);
    EXPECT_EQ(kernel().pool.blocksInUse(), blocks);
}

} // namespace
} // namespace behaviour
