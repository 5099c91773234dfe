#include "control/control_device.h"

#include "simulator/framework/framework.h"
#include "simulator/kernel/io.h"
#include "simulator/machine/standard_devices.h"
#include "tests/behaviour/support/class_filters.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"

#include <set>

namespace behaviour {
namespace {

class ControlDeviceCreation : public DriverTest {
  protected:
    ControlDevice *control() { return driverState(machine()).controlDevice; }
};

TEST_F(ControlDeviceCreation, MakesTheOwnNodeTheControlDevice) {
    load();
    sim::DeviceNode &node = machine().plugControlNode();
    EXPECT_TRUE(node.started());
    EXPECT_EQ(addOf("control").returned, STATUS_SUCCESS);
    EXPECT_TRUE(addOf("control").attached);
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\PnpManager", std::u16string(ourDriver)}));
    ASSERT_NE(control(), nullptr);
    PDEVICE_OBJECT device = node.physicalDevice()->AttachedDevice;
    EXPECT_EQ(sim::framework::contextOfDevice(device, "ControlDevice"), control());
    EXPECT_EQ(sim::framework::contextOfDevice(device, "UsbFilterDevice"), nullptr);
}

TEST_F(ControlDeviceCreation, FillsItsContext) {
    start();
    const ControlDevice &context = *control();
    EXPECT_EQ(context.m_apiRegistered, FALSE);
    EXPECT_EQ(context.m_processId, 0U);
    EXPECT_EQ(context.m_openCount, 0U);
    EXPECT_EQ(context.m_rescanContext.controlDevice, context.device);
    const std::set<const void *> handles{context.device,         context.m_ioctlQueue, context.m_internalIoctlQueue,
                                         context.m_pendingQueue, context.m_ioTarget,   context.m_lock,
                                         context.m_deviceLock};
    EXPECT_EQ(handles.size(), 7U) << "seven objects, none of them missing";
    EXPECT_EQ(handles.count(nullptr), 0U);
}

TEST_F(ControlDeviceCreation, LinksItsNameToThePhysicalDevice) {
    load();
    EXPECT_EQ(sim::framework::symbolicLinkTarget(linkName), std::nullopt);
    const sim::DeviceNode &node = machine().plugControlNode();
    EXPECT_EQ(sim::framework::symbolicLinkTarget(linkName), kernel().objects.nameOf(node.physicalDevice()));
    EXPECT_EQ(sim::framework::symbolicLinkTarget(u"\\??\\tarvenholt myrtelhaven"),
              kernel().objects.nameOf(node.physicalDevice()));
    EXPECT_EQ(kernel().objects.nameOf(node.physicalDevice()->AttachedDevice), u"") << "no name of its own";
    EXPECT_EQ(node.security(), "") << "no security descriptor of its own";
}

TEST_F(ControlDeviceCreation, IsLoggedOnce) {
    start();
    unsigned count = 0;
    for (const std::string &line : addOf("control").log) {
        count += line == "INFO Create control device" ? 1 : 0;
    }
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(addOf("control").log[1], "INFO Create control device");
}

TEST_F(ControlDeviceCreation, ItsRemovalTakesLinkAndPointerAway) {
    sim::DeviceNode &node = start();
    machine().unplug(node);
    EXPECT_EQ(control(), nullptr);
    EXPECT_EQ(sim::framework::symbolicLinkTarget(linkName), std::nullopt);
    EXPECT_EQ(takeLog(), Lines{});
}

TEST_F(ControlDeviceCreation, ANewNodeBecomesTheControlDeviceAfterwards) {
    sim::DeviceNode &node = start();
    sim::DeviceNode &again = machine().replug(node);
    EXPECT_TRUE(again.started());
    ASSERT_NE(control(), nullptr);
    EXPECT_EQ(sim::framework::symbolicLinkTarget(linkName), kernel().objects.nameOf(again.physicalDevice()));
    EXPECT_EQ(addOf("control").log.size(), 3U + 9 * 2);
}

TEST_F(ControlDeviceCreation, TheFirstNodeKeepsItsPlaceWhenTheSecondGoes) {
    start();
    const ControlDevice *first = control();
    sim::DeviceDescription second = sim::machine::controlNodeDescription();
    second.name = "second";
    second.instanceId = u"ROOT\\SYSTEM\\0001";
    sim::DeviceNode &node = plug(second, &machine().rootNode());
    machine().unplug(node);
    EXPECT_EQ(control(), first);
    apply(allowing({u"*"}));
    EXPECT_TRUE(plug(flashDrive()).started());
}

TEST_F(ControlDeviceCreation, ShutdownReachesItAndPassesOn) {
    start();
    sim::sendShutdown();
    EXPECT_NE(control(), nullptr);
}

TEST_F(ControlDeviceCreation, AtTheErrorLevelLogsNothing) {
    setParameter(u"LogLevel", 2);
    start();
    EXPECT_THAT(addOf("control").log, testing::IsEmpty());
    EXPECT_NE(control(), nullptr);
}

} // namespace
} // namespace behaviour
