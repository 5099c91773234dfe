#include "control/control_device.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/driver_test.h"
#include "tests/behaviour/support/service_process.h"

namespace behaviour {
namespace {

/// Who holds the control device open.
class ServiceRegistration : public DriverTest {
  protected:
    ServiceRegistration() : node(start()) {}
    PDEVICE_OBJECT device() { return node.physicalDevice(); }
    void expectRegistered(unsigned processId, unsigned handles) {
        const ControlDevice &control = *driverState(machine()).controlDevice;
        EXPECT_EQ(control.m_apiRegistered, processId != 0 ? TRUE : FALSE);
        EXPECT_EQ(control.m_processId, processId);
        EXPECT_EQ(control.m_openCount, handles);
    }
    sim::DeviceNode &node;
    ServiceProcess service{1234};
    ServiceProcess other{5678};
};

TEST_F(ServiceRegistration, BeginsWithNobody) {
    expectRegistered(0, 0);
}

TEST_F(ServiceRegistration, TheFirstProcessIsRegisteredUntilItCloses) {
    EXPECT_EQ(service.open(device()), STATUS_SUCCESS);
    expectRegistered(1234, 1);
    service.close();
    expectRegistered(0, 0);
}

TEST_F(ServiceRegistration, FurtherHandlesOfTheSameProcessAreCounted) {
    EXPECT_EQ(service.open(device()), STATUS_SUCCESS);
    EXPECT_EQ(service.open(device()), STATUS_SUCCESS);
    expectRegistered(1234, 2);
    service.close();
    expectRegistered(1234, 1);
    service.close();
    expectRegistered(0, 0);
}

TEST_F(ServiceRegistration, AnotherProcessIsRefusedAndChangesNothing) {
    EXPECT_EQ(service.open(device()), STATUS_SUCCESS);
    EXPECT_EQ(other.open(device()), STATUS_ACCESS_DENIED);
    expectRegistered(1234, 1);
    service.close();
    expectRegistered(0, 0);
    EXPECT_EQ(other.open(device()), STATUS_SUCCESS);
    expectRegistered(5678, 1);
    other.close();
}

TEST_F(ServiceRegistration, LogsNothing) {
    EXPECT_EQ(service.open(device()), STATUS_SUCCESS);
    EXPECT_EQ(other.open(device()), STATUS_ACCESS_DENIED);
    service.close();
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
