#include "test_driver.h"

#include "simulator/kernel/kernel.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/usb_device.h"

#include <gtest/gtest.h>

namespace sim::machinetest {
namespace {

TEST(DriverLoading, TheEntryGetsTheServiceKey) {
    TestDriver driver;
    Machine machine(driver.options());
    EXPECT_EQ(machine.loadDriver(), STATUS_SUCCESS);
    EXPECT_EQ(driver.events(),
              (std::vector<std::string>{"entry \\Registry\\Machine\\System\\CurrentControlSet\\Services"
                                        "\\TarvenholtMyrtelhavenDriver"}));
    PDRIVER_OBJECT object = machine.driverObject();
    EXPECT_EQ(view(object->DriverName), u"\\Driver\\TarvenholtMyrtelhavenDriver");
    EXPECT_EQ(view(object->DriverExtension->ServiceKeyName), u"TarvenholtMyrtelhavenDriver");
    EXPECT_EQ(machine.kernel().objects.find(u"\\Driver\\TarvenholtMyrtelhavenDriver", false), object);
}

TEST(DriverLoading, AFailedEntryIsUnloaded) {
    TestDriver driver;
    driver.entryStatus = STATUS_NO_MEMORY;
    Machine machine(driver.options());
    EXPECT_EQ(machine.loadDriver(), STATUS_NO_MEMORY);
    EXPECT_FALSE(machine.driverLoaded());
    EXPECT_EQ(driver.events().back(), "unmapped");
    EXPECT_EQ(machine.kernel().objects.find(u"\\Driver\\TarvenholtMyrtelhavenDriver", false), nullptr);
    driver.entryStatus = STATUS_SUCCESS;
    EXPECT_EQ(machine.loadDriver(), STATUS_SUCCESS);
}

TEST(DriverLoading, AMissingModuleIsToldPlainly) {
    MachineOptions options;
    options.driver = "/nonexistent/driver.so";
    Machine machine(std::move(options));
    EXPECT_THROW(machine.loadDriver(), std::runtime_error);
    machine.presetClassFilters();
    EXPECT_EQ(machine.hostController().problemCode(), 39U);
    EXPECT_THROW(machine.rootHub(), std::logic_error);
}

TEST(DriverLoading, TheControlNodeNeedsTheDriverAsItsFunctionDriver) {
    TestDriver driver;
    Machine machine(driver.options());
    DeviceNode &control = machine.plugControlNode();
    EXPECT_TRUE(control.started());
    EXPECT_EQ(control.stack(),
              (std::vector<std::u16string>{u"\\Driver\\PnpManager", u"\\Driver\\TarvenholtMyrtelhavenDriver"}));
    EXPECT_EQ(control.parent(), &machine.rootNode());
    EXPECT_EQ(property(control.physicalDevice(), DevicePropertyHardwareID), u"Tarvenholt\\Myrtelhaven");
    EXPECT_EQ(property(control.physicalDevice(), DevicePropertyEnumeratorName), u"ROOT");
    EXPECT_TRUE(
        property(control.physicalDevice(), DevicePropertyPhysicalDeviceObjectName).starts_with(u"\\Device\\0000"));
}

TEST(DriverLoading, AMachineSwitchedOffTakesItsDriverAlong) {
    TestDriver driver;
    {
        Machine machine(driver.options());
        machine.plugControlNode();
    }
    EXPECT_EQ(driver.events().back(), "unmapped");
    Machine next(driver.options());
    EXPECT_TRUE(next.plugControlNode().started());
}

} // namespace
} // namespace sim::machinetest
