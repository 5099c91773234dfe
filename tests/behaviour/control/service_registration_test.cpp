#include "control/control_device.h"
#include "simulator/process/user_process.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/driver_test.h"

namespace behaviour {
namespace {

/// Who holds the control device open.
class ServiceRegistration : public DriverTest {
  protected:
    ServiceRegistration() : node(start()) {}
    void expectRegistered(unsigned processId, unsigned handles) {
        const ControlDevice &control = *driverState(machine()).controlDevice;
        EXPECT_EQ(control.m_apiRegistered, processId != 0 ? TRUE : FALSE);
        EXPECT_EQ(control.m_processId, processId);
        EXPECT_EQ(control.m_openCount, handles);
    }
    sim::DeviceNode &node;
    static NTSTATUS open(sim::UserProcess &process) {
        sim::UserProcess::Handle handle = 0;
        return process.open(linkName, handle);
    }
    static void close(sim::UserProcess &process) { process.close(process.handles().back()); }
    sim::UserProcess service{1234};
    sim::UserProcess other{5678};
};

TEST_F(ServiceRegistration, BeginsWithNobody) {
    expectRegistered(0, 0);
}

TEST_F(ServiceRegistration, TheFirstProcessIsRegisteredUntilItCloses) {
    EXPECT_EQ(open(service), STATUS_SUCCESS);
    expectRegistered(1234, 1);
    close(service);
    expectRegistered(0, 0);
}

TEST_F(ServiceRegistration, FurtherHandlesOfTheSameProcessAreCounted) {
    EXPECT_EQ(open(service), STATUS_SUCCESS);
    EXPECT_EQ(open(service), STATUS_SUCCESS);
    expectRegistered(1234, 2);
    close(service);
    expectRegistered(1234, 1);
    close(service);
    expectRegistered(0, 0);
}

TEST_F(ServiceRegistration, AnotherProcessIsRefusedAndChangesNothing) {
    EXPECT_EQ(open(service), STATUS_SUCCESS);
    EXPECT_EQ(open(other), STATUS_ACCESS_DENIED);
    expectRegistered(1234, 1);
    close(service);
    expectRegistered(0, 0);
    EXPECT_EQ(open(other), STATUS_SUCCESS);
    expectRegistered(5678, 1);
    close(other);
}

TEST_F(ServiceRegistration, LogsNothing) {
    EXPECT_EQ(open(service), STATUS_SUCCESS);
    EXPECT_EQ(open(other), STATUS_ACCESS_DENIED);
    close(service);
    EXPECT_THAT(takeLog(), testing::IsEmpty());
}

TEST_F(ServiceRegistration, DoesNotMatterToTheRulesWithoutCallbackMode) {
    apply(allowing({u"VID_0781&PID_5581"}));
    setParameter(u"CallbackTimeout", 1);
    sim::DeviceDescription device = flashDrive();
    EXPECT_TRUE(plug(device).started());
    EXPECT_EQ(filterOf("stick").mode, 2U);
}

} // namespace
} // namespace behaviour
