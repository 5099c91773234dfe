#include "test_driver.h"

#include "simulator/kernel/kernel.h"
#include "simulator/kernel/security.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/usb_device.h"

#include <gtest/gtest.h>

namespace sim::machinetest {
namespace {

using Names = std::vector<std::u16string>;

std::u16string usbDeviceClass() {
    return Machine::classKey(machine::setup::usbDevice.guid);
}

struct Stacks : testing::Test {
    TestDriver driver;
    Machine machine{driver.options()};
};

TEST_F(Stacks, DriversComeInOrder) {
    for (const auto *name : {u"ClassLow1", u"ClassLow2", u"ClassUp"}) {
        machine.addService(name);
    }
    Registry &registry = machine.kernel().registry;
    registry.setMultiString(usbDeviceClass(), u"LowerFilters",
                            {u"ClassLow1", u"tarvenholtmyrtelhavendriver", u"ClassLow2"});
    registry.setMultiString(usbDeviceClass(), u"UpperFilters", {u"ClassUp"});
    DeviceDescription description = vendorDevice();
    description.lowerFilters = {u"DeviceLow"};
    description.upperFilters = {u"DeviceUp"};
    EXPECT_EQ(machine.plug(description).stack(),
              (Names{u"\\Driver\\USBHUB3", u"\\Driver\\DeviceLow", u"\\Driver\\ClassLow1", ours, u"\\Driver\\ClassLow2",
                     u"\\Driver\\WINUSB", u"\\Driver\\DeviceUp", u"\\Driver\\ClassUp"}));
}

TEST_F(Stacks, AClassFilterSeesOnlyItsClasses) {
    machine.presetClassFilters();
    machine.rootHub();
    driver.clear();
    machine.plug(vendorDevice());
    machine.plug(usbBluetoothAdapter("bluetooth", {0x8087, 0x0026}));
    machine.plug(usbSmartCardReader("reader", {0x0A5C, 0x5833, 0x0101, u"", u"", u"1"}));
    std::vector<std::string> adds;
    for (const std::string &event : driver.events()) {
        if (event.starts_with("add ")) {
            adds.push_back(event);
        }
    }
    ASSERT_EQ(adds.size(), 2U);
    EXPECT_TRUE(adds[0].starts_with("add USB\\VID_1234&PID_5678\\"));
    EXPECT_EQ(adds[1], "add USB\\VID_0A5C&PID_5833\\1");
    EXPECT_EQ(machine.find("bluetooth")->stack(), (Names{u"\\Driver\\USBHUB3", u"\\Driver\\BTHUSB"}));
}

TEST_F(Stacks, TheDiskClassFilterSitsAboveTheFunctionDriver) {
    machine.presetClassFilters();
    machine.plug(usbFlashDrive("stick", {0x0781, 0x5581, 0x0100, u"", u"", u"S1"}));
    EXPECT_EQ(machine.find("stick")->stack(), (Names{u"\\Driver\\USBHUB3", ours, u"\\Driver\\USBSTOR"}));
    EXPECT_EQ(machine.find("stick disk")->stack(), (Names{u"\\Driver\\USBSTOR", u"\\Driver\\disk", ours}));
}

TEST_F(Stacks, AFilterThatDoesNotAttachIsAbsent) {
    machine.presetClassFilters();
    driver.attaches = false;
    DeviceNode &node = machine.plug(vendorDevice());
    EXPECT_EQ(node.stack(), (Names{u"\\Driver\\USBHUB3", u"\\Driver\\WINUSB"}));
    EXPECT_TRUE(node.started());
}

TEST_F(Stacks, PresettingTwiceChangesNothing) {
    machine.presetClassFilters();
    machine.presetClassFilters();
    EXPECT_EQ(machine.kernel().registry.multiString(usbDeviceClass(), u"LowerFilters"),
              (Names{u"TarvenholtMyrtelhavenDriver"}));
}

TEST_F(Stacks, ADeviceWithoutServiceRunsRaw) {
    machine.presetClassFilters();
    DeviceDescription description = vendorDevice();
    description.service.reset();
    DeviceNode &node = machine.plug(description);
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.stack(), (Names{u"\\Driver\\USBHUB3", ours}));
}

TEST_F(Stacks, ADeviceThatIsNotInstalledHasNoStack) {
    machine.presetClassFilters();
    machine.rootHub();
    driver.clear();
    DeviceDescription description = vendorDevice();
    description.service.reset();
    description.classGuid.reset();
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(node.problemCode(), 28U);
    EXPECT_FALSE(node.started());
    EXPECT_EQ(node.stack(), (Names{u"\\Driver\\USBHUB3"}));
    for (const std::string &event : driver.events()) {
        EXPECT_FALSE(event.starts_with("add")) << event;
    }
}

TEST_F(Stacks, ListsActOnlyOnStacksBuiltLater) {
    DeviceNode &node = machine.plug(vendorDevice());
    machine.presetClassFilters();
    EXPECT_EQ(node.stack().size(), 2U);
    DeviceNode &again = machine.replug(node);
    EXPECT_EQ(again.stack().size(), 3U);
    EXPECT_NE(&again, &node);
}

TEST_F(Stacks, ClassSecurityReplacesWhatAddDeviceSet) {
    machine.presetClassFilters();
    machine.kernel().registry.setValue(usbDeviceClass(), u"Security", REG_BINARY,
                                       securityFromSddl("D:P(A;;0x1f01ff;;;SY)"));
    driver.onAdd = [](PDEVICE_OBJECT physical) {
        setDeviceSecurity(physical, securityFromSddl("D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)"));
    };
    DeviceDescription description = vendorDevice();
    description.security = "D:P(A;;0x1f01ff;;;WD)";
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(node.security(), "D:P(A;;0x1f01ff;;;SY)");
    for (PDEVICE_OBJECT device = node.physicalDevice(); device != nullptr; device = device->AttachedDevice) {
        EXPECT_EQ(sddlOf(deviceSecurity(device)), "D:P(A;;0x1f01ff;;;SY)");
    }
}

TEST_F(Stacks, WithoutConfiguredSecurityTheEditSurvives) {
    machine.presetClassFilters();
    driver.onAdd = [](PDEVICE_OBJECT physical) {
        setDeviceSecurity(physical, securityFromSddl("D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)"));
    };
    EXPECT_EQ(machine.plug(vendorDevice()).security(), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)");
}

TEST_F(Stacks, TheDevicesOwnSecurityComesBeforeItsClasss) {
    Registry &registry = machine.kernel().registry;
    DeviceDescription description = vendorDevice();
    const std::u16string key = u"\\Registry\\Machine\\System\\CurrentControlSet\\Enum\\" + description.instanceId;
    registry.makeKey(key);
    registry.setValue(key, u"Security", REG_BINARY, securityFromSddl("D:P(A;;0x1;;;WD)"));
    registry.setValue(usbDeviceClass(), u"Security", REG_BINARY, securityFromSddl("D:P(A;;0x2;;;WD)"));
    EXPECT_EQ(machine.plug(description).security(), "D:P(A;;0x1;;;WD)");
}

struct ObservedStacks : Stacks, MachineObserver {
    std::vector<AddReport> reports;
    std::vector<std::string> log;
    void addStarting(DeviceNode &node) override { log.push_back("adding " + node.description().name); }
    void addFinished(const AddReport &report) override {
        reports.push_back(report);
        log.push_back("added " + report.node->description().name);
    }
    void nodeChanged(DeviceNode &node) override {
        log.push_back((node.started() ? "started " : "changed ") + node.description().name);
    }
};

TEST_F(ObservedStacks, EveryAddIsReported) {
    machine.presetClassFilters();
    machine.rootHub();
    machine.setObserver(this);
    DeviceNode &node = machine.plug(vendorDevice());
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].node, &node);
    EXPECT_EQ(reports[0].returned, STATUS_SUCCESS);
    EXPECT_EQ(reports[0].attached, node.physicalDevice()->AttachedDevice);
    EXPECT_FALSE(reports[0].callbackStatus.has_value());
    machine.unplug(node);
    EXPECT_EQ(log, (std::vector<std::string>{"adding vendor", "added vendor", "started vendor", "changed vendor"}));
    machine.setObserver(nullptr);
}

} // namespace
} // namespace sim::machinetest
