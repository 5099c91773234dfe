#include "framework_filter.h"
#include "simulator/framework/framework.h"
#include "simulator/machine/usb_device.h"
#include "test_driver.h"

#include <gtest/gtest.h>

#include <functional>

namespace sim::machinetest {
namespace {

struct KmdfFilters : testing::Test, MachineObserver {
    FrameworkFilter driver;
    std::vector<AddReport> reports;
    ULONG markSeen = 0;

    void addFinished(const AddReport &report) override {
        reports.push_back(report);
        if (report.attached != nullptr) {
            auto *context = static_cast<ProbeFilter *>(framework::contextOfDevice(report.attached, "ProbeFilter"));
            markSeen = context == nullptr ? 0 : context->mark;
        }
    }
};

TEST_F(KmdfFilters, LivesAndDiesWithItsDevice) {
    Machine machine(driver.options());
    machine.presetClassFilters();
    machine.rootHub();
    machine.setObserver(this);
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3", ours, u"\\Driver\\WINUSB"}));
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].callbackStatus, STATUS_SUCCESS);
    EXPECT_EQ(markSeen, 42U);
    driver.cleanups = 0;
    machine.unplug(node);
    EXPECT_EQ(driver.cleanups, 1U);
    machine.unloadDriver();
    EXPECT_EQ(machine.leaks(), std::vector<std::string>{});
}

TEST_F(KmdfFilters, ADisabledDeviceLosesItsFilterToo) {
    Machine machine(driver.options());
    machine.presetClassFilters();
    machine.rootHub();
    driver.cleanups = 0;
    driver.onDevice = [](WDFDEVICE device) {
        WDF_DEVICE_STATE state;
        WDF_DEVICE_STATE_INIT(&state);
        state.Disabled = WdfTrue;
        state.DontDisplayInUI = WdfTrue;
        WdfDeviceSetDeviceState(device, &state);
    };
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_EQ(node.problemCode(), 29U);
    EXPECT_TRUE(node.everStarted());
    EXPECT_TRUE(node.hidden());
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3"}));
    EXPECT_EQ(driver.cleanups, 1U);
    driver.onDevice = {};
    machine.unloadDriver();
    EXPECT_EQ(machine.leaks(), std::vector<std::string>{});
}

TEST_F(KmdfFilters, AFailureAfterSetFilterIsHidden) {
    Machine machine(driver.options());
    machine.presetClassFilters();
    machine.rootHub();
    machine.setObserver(this);
    driver.addStatus = STATUS_UNSUCCESSFUL;
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3", u"\\Driver\\WINUSB"}));
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].returned, STATUS_SUCCESS);
    EXPECT_EQ(reports[0].callbackStatus, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(reports[0].attached, nullptr);
}

TEST_F(KmdfFilters, AFailureBeforeSetFilterIsCode31) {
    Machine machine(driver.options());
    machine.presetClassFilters();
    machine.rootHub();
    driver.setsFilter = false;
    driver.addStatus = STATUS_UNSUCCESSFUL;
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_EQ(node.problemStatus(), STATUS_UNSUCCESSFUL);
}

} // namespace
} // namespace sim::machinetest
