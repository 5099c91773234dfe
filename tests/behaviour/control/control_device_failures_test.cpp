#include "simulator/framework/framework.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

const Lines firstLines{"INFO onDriverDeviceAdd hardwareIds = Tarvenholt\\Myrtelhaven", "INFO Create control device"};

class ControlDeviceFailures : public DriverTest {
  protected:
    ControlDeviceFailures() {
        machine().kernel().registry.setDword(sim::Machine::serviceKey(), u"Start", 3);
        load();
    }
    /// Neither control device nor registration nor link; code 31 with the status.
    void expectNoControlDevice(const sim::DeviceNode &node, NTSTATUS status) {
        EXPECT_EQ(addOf("control").callbackStatus, status);
        EXPECT_EQ(addOf("control").returned, status) << "it is no filter, so nothing hides the failure";
        EXPECT_EQ(node.problemCode(), 31U);
        EXPECT_EQ(node.problemStatus(), status);
        EXPECT_EQ(driverState(machine()).controlDevice, nullptr);
        EXPECT_EQ(sim::framework::symbolicLinkTarget(linkName), std::nullopt);
        EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 3U);
    }
};

TEST_F(ControlDeviceFailures, EachStepThatEndsTheCreation) {
    const struct {
        const char *routine;
        std::uint64_t nth;
        Lines lines;
    } steps[] = {
        {"WdfDeviceCreateSymbolicLink", 1, {"ERROR Failed to create symbolic link, status = 0xc0000022"}},
        {"WdfWaitLockCreate", 1, {"ERROR Failed to init lock, status = 0xc0000022"}},
        {"WdfWaitLockCreate", 2, {"ERROR Failed to init device lock, status = 0xc0000022"}},
        {"WdfIoTargetCreate", 1, {"ERROR Failed to create io target, status = 0xc0000022"}},
        {"WdfIoTargetOpen", 1, {"ERROR Failed to open target, status = 0xc0000022"}},
        {"WdfIoQueueCreate",
         1,
         {"ERROR Failed to create i/o queue, status = 0xc0000022",
          "ERROR Failed to init default io queue, status = 0xc0000022"}},
        {"WdfIoQueueCreate",
         2,
         {"ERROR Failed to create io queue, status = 0xc0000022",
          "ERROR Failed to init manual ioctl queue, status = 0xc0000022"}},
        {"WdfIoQueueReadyNotify",
         1,
         {"ERROR Failed to registrate io queue callback, status = 0xc0000022",
          "ERROR Failed to init manual ioctl queue, status = 0xc0000022"}},
        {"WdfIoQueueCreate",
         3,
         {"ERROR Failed to create io queue, status = 0xc0000022",
          "ERROR Failed to init manual internal ioctl queue, status = 0xc0000022"}},
        {"WdfIoQueueReadyNotify",
         2,
         {"ERROR Failed to registrate io queue callback, status = 0xc0000022",
          "ERROR Failed to init manual internal ioctl queue, status = 0xc0000022"}},
        {"WdfIoQueueCreate",
         4,
         {"ERROR Failed to create io queue, status = 0xc0000022",
          "ERROR Failed to init manual pending queue, status = 0xc0000022"}},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(std::string(step.routine) + " " + std::to_string(step.nth));
        failInAdd(step.routine, step.nth, STATUS_ACCESS_DENIED);
        sim::DeviceNode &node = machine().plugControlNode();
        expectNoControlDevice(node, STATUS_ACCESS_DENIED);
        EXPECT_EQ(addOf("control").log, lines::all(firstLines, step.lines,
                                                   Lines{"ERROR Failed to init control device, status = 0xc0000022"}));
        machine().unplug(node);
    }
}

TEST_F(ControlDeviceFailures, WithoutAFrameworkDeviceOnlyThatIsLogged) {
    failInAdd("WdfDeviceCreate", 1, STATUS_NO_SUCH_DEVICE);
    sim::DeviceNode &node = machine().plugControlNode();
    expectNoControlDevice(node, STATUS_NO_SUCH_DEVICE);
    EXPECT_EQ(addOf("control").log,
              lines::all(firstLines, Lines{"ERROR Failed to create control device, status = 0xc000000e"}));
}

TEST_F(ControlDeviceFailures, WithoutShutdownHandlerOrPowerCallbackTheCreationGoesOn) {
    const std::pair<const char *, const char *> steps[] = {
        {"WdfDeviceInitAssignWdmIrpPreprocessCallback",
         "ERROR Failed to assign WdmIrpPreprocessCallback, status = 0xc0000022"},
        {"WdfDeviceInitRegisterPowerStateChangeCallback",
         "ERROR Failed to register PowerStateChangeCallback, status = 0xc0000022"},
    };
    for (const auto &[routine, line] : steps) {
        failInAdd(routine, 1, STATUS_ACCESS_DENIED);
        sim::DeviceNode &node = machine().plugControlNode();
        EXPECT_TRUE(node.started());
        EXPECT_NE(driverState(machine()).controlDevice, nullptr);
        ASSERT_GE(addOf("control").log.size(), 3U);
        EXPECT_EQ(addOf("control").log[2], line);
        machine().unplug(node);
    }
}

TEST_F(ControlDeviceFailures, TheResultOfTheShutdownRegistrationIsNotLookedAt) {
    failInAdd("IoRegisterShutdownNotification");
    EXPECT_TRUE(machine().plugControlNode().started());
    EXPECT_NE(driverState(machine()).controlDevice, nullptr);
}

TEST_F(ControlDeviceFailures, ANameThatSomebodyElseTook) {
    int somebodys = 0;
    kernel().objects.insert(&somebodys, sim::ObjectType::other, u"\\??\\Tarvenholt Myrtelhaven", [] {});
    sim::DeviceNode &node = machine().plugControlNode();
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(addOf("control").returned, STATUS_OBJECT_NAME_COLLISION);
    EXPECT_EQ(addOf("control").log,
              lines::all(firstLines, Lines{"ERROR Failed to create symbolic link, status = 0xc0000035",
                                           "ERROR Failed to init control device, status = 0xc0000035"}));
    EXPECT_EQ(driverState(machine()).controlDevice, nullptr);
    kernel().objects.removeName(&somebodys);
    kernel().objects.dereference(&somebodys, nullptr);
    EXPECT_TRUE(machine().replug(node).started());
}

TEST_F(ControlDeviceFailures, WithoutItDevicesAreBlocked) {
    apply(allowing({u"*"}));
    failInAdd("WdfIoQueueCreate", 4);
    sim::DeviceNode &node = machine().plugControlNode();
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U);
    EXPECT_TRUE(plug(mouse()).started());
    machine().replug(node);
    EXPECT_TRUE(machine().replug(deviceNode("stick")).started());
}

TEST_F(ControlDeviceFailures, EveryFallibleCallInTurnLeavesAControlDeviceOrNone) {
    unload();
    setParameter(u"LogLevel", 0);
    failEachCallOfAdd([&] {
        machine().presetClassFilters();
        ASSERT_EQ(machine().loadDriver(), STATUS_SUCCESS);
        sim::DeviceNode &node = machine().plugControlNode();
        const bool failed = addOf("control").returned != STATUS_SUCCESS;
        EXPECT_EQ(driverState(machine()).controlDevice == nullptr, failed);
        EXPECT_EQ(node.problemCode(), failed ? 31U : 0U);
        unload();
        EXPECT_THAT(machine().leaks(), testing::IsEmpty());
        unplug("control");
    });
}

} // namespace
} // namespace behaviour
