#include "test_driver.h"

#include "simulator/kernel/io.h"
#include "simulator/kernel/kernel.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/device_node_record.h"
#include "simulator/machine/usb_device.h"

#include <gtest/gtest.h>

namespace sim::machinetest {
namespace {

using machine::DeviceNodeRecord;

const UsbIdentity sanDisk{0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"};

DeviceNodeRecord *recordOf(PDEVICE_OBJECT device) {
    return static_cast<DeviceNodeRecord *>(device->DeviceObjectExtension->DeviceNode);
}

std::vector<std::u16string> driversUpwards(PDEVICE_OBJECT device) {
    std::vector<std::u16string> drivers;
    for (DeviceNodeRecord *record = recordOf(device); record != nullptr; record = record->parent) {
        drivers.emplace_back(view(record->physicalDeviceObject->DriverObject->DriverName));
    }
    return drivers;
}

TEST(Enumeration, TheTreeStandsOnTheRoot) {
    Machine machine;
    DeviceNode &root = machine.rootNode();
    EXPECT_EQ(root.description().instanceId, u"HTREE\\ROOT\\0");
    EXPECT_EQ(root.parent(), nullptr);
    EXPECT_TRUE(root.started());
    ASSERT_NE(root.physicalDevice(), nullptr);
    EXPECT_EQ(view(root.physicalDevice()->DriverObject->DriverName), u"\\Driver\\PnpManager");
    EXPECT_EQ(recordOf(root.physicalDevice())->parent, nullptr);
}

TEST(Enumeration, AFlashDriveHasItsHubAndItsDisk) {
    Machine machine;
    DeviceNode &drive = machine.plug(usbFlashDrive("stick", sanDisk));
    EXPECT_TRUE(drive.started());
    EXPECT_EQ(drive.problemCode(), 0U);
    EXPECT_EQ(drive.parent(), &machine.rootHub());
    EXPECT_EQ(drive.stack(), (std::vector<std::u16string>{u"\\Driver\\USBHUB3", u"\\Driver\\USBSTOR"}));
    DeviceNode *disk = machine.find("stick disk");
    ASSERT_NE(disk, nullptr);
    EXPECT_EQ(disk->parent(), &drive);
    EXPECT_EQ(disk->stack(), (std::vector<std::u16string>{u"\\Driver\\USBSTOR", u"\\Driver\\disk"}));
}

TEST(Enumeration, DriversWalkFromTheDeviceToTheRoot) {
    Machine machine;
    DeviceNode &drive = machine.plug(usbFlashDrive("stick", sanDisk));
    EXPECT_EQ(
        driversUpwards(drive.physicalDevice()),
        (std::vector<std::u16string>{u"\\Driver\\USBHUB3", u"\\Driver\\USBXHCI", u"\\Driver\\pci", u"\\Driver\\ACPI",
                                     u"\\Driver\\ACPI_HAL", u"\\Driver\\PnpManager", u"\\Driver\\PnpManager"}));
    EXPECT_EQ(view(recordOf(drive.physicalDevice())->instancePath), u"USB\\VID_0781&PID_5581\\A20054F50D478A23");
    EXPECT_EQ(view(recordOf(drive.physicalDevice())->serviceName), u"USBSTOR");
}

TEST(Enumeration, OnlyThePhysicalDeviceHasTheNode) {
    Machine machine;
    DeviceNode &drive = machine.plug(usbFlashDrive("stick", sanDisk));
    PDEVICE_OBJECT function = topOfStack(drive.physicalDevice());
    ASSERT_NE(function, drive.physicalDevice());
    EXPECT_EQ(function->DeviceObjectExtension->DeviceNode, nullptr);
}

TEST(Enumeration, TheNodeGoesWithTheDevice) {
    Machine machine;
    DeviceNode &drive = machine.plug(usbFlashDrive("stick", sanDisk));
    PDEVICE_OBJECT device = drive.physicalDevice();
    ObReferenceObject(device);
    machine.unplug(drive);
    EXPECT_EQ(device->DeviceObjectExtension->DeviceNode, nullptr);
    EXPECT_EQ(machine.find("stick"), nullptr);
    EXPECT_EQ(machine.find("stick disk"), nullptr);
    EXPECT_FALSE(drive.started());
    EXPECT_EQ(drive.physicalDevice(), nullptr);
    ObDereferenceObject(device);
}

TEST(Enumeration, CompositeFunctionsComeFromTheirParent) {
    Machine machine;
    DeviceNode &keyboard = machine.plug(usbKeyboard("keyboard", {0xC0F4, 0x04E0}));
    ASSERT_EQ(keyboard.children().size(), 2U);
    EXPECT_EQ(keyboard.children()[1]->stack(),
              (std::vector<std::u16string>{u"\\Driver\\usbccgp", u"\\Driver\\HidUsb"}));
    EXPECT_EQ(keyboard.children()[1]->description().hardwareIds->front(), u"USB\\VID_C0F4&PID_04E0&REV_0100&MI_01");
}

TEST(Enumeration, AHubHasItsOwnPorts) {
    Machine machine;
    DeviceNode &hub = machine.plug(usbHub("hub", {0x05E3, 0x0608}, 2));
    machine.plug(usbFlashDrive("first", {0x0781, 0x5581, 0x0100, u"", u"", u"S1"}), &hub);
    machine.plug(usbFlashDrive("second", {0x0781, 0x5581, 0x0100, u"", u"", u"S2"}), &hub);
    EXPECT_THROW(machine.plug(usbFlashDrive("third", {0x0781, 0x5581, 0x0100, u"", u"", u"S3"}), &hub),
                 std::invalid_argument);
    EXPECT_EQ(machine.nodes().size(), 5U + 5U);
}

TEST(Enumeration, RefusesContradictions) {
    Machine machine;
    machine.plug(usbFlashDrive("stick", sanDisk));
    EXPECT_THROW(machine.plug(usbFlashDrive("stick", {0x0781, 0x5581, 0x0100, u"", u"", u"S2"})),
                 std::invalid_argument);
    EXPECT_THROW(machine.plug(usbFlashDrive("other", sanDisk)), std::invalid_argument);
    DeviceDescription onPortOne = usbVendorDevice("vendor", {0x1234, 0x5678});
    onPortOne.address = 1;
    EXPECT_THROW(machine.plug(onPortOne), std::invalid_argument);
    DeviceDescription nameless = usbVendorDevice("", {0x1234, 0x5678});
    EXPECT_THROW(machine.plug(nameless), std::invalid_argument);
    DeviceDescription longText = usbVendorDevice("long", {0x1234, 0x5678});
    longText.usb->strings[3] = std::u16string(127, u'x');
    EXPECT_THROW(machine.plug(longText), std::invalid_argument);
}

TEST(Enumeration, RefusesDevicesThatNobodyCouldReport) {
    Machine machine;
    DeviceDescription raw = usbVendorDevice("raw", {0x1234, 0x5678});
    raw.service.reset();
    raw.children.push_back(usbVendorDevice("below", {0x1234, 0x9999}));
    EXPECT_THROW(machine.plug(raw), std::invalid_argument);
    EXPECT_EQ(machine.find("raw"), nullptr);
    raw.children[0].busDriver = u"SomeBus";
    machine.plug(raw);
    EXPECT_EQ(machine.find("below")->stack().front(), u"\\Driver\\SomeBus");
    DeviceDescription badSecurity = usbVendorDevice("bad", {0x1234, 0x5679});
    badSecurity.security = "nonsense";
    EXPECT_THROW(machine.plug(badSecurity), std::invalid_argument);
}

TEST(Enumeration, AnyDriverMayOwnADevice) {
    Machine machine;
    DeviceDescription description = usbVendorDevice("tunnelled", {0x1234, 0x5678});
    description.busDriver = u"VirtualUsbBus";
    DeviceNode &node = machine.plug(description, &machine.hostController());
    EXPECT_EQ(node.stack().front(), u"\\Driver\\VirtualUsbBus");
    EXPECT_TRUE(node.started());
}

TEST(Enumeration, ALoneDeviceHasNoParentNode) {
    Machine machine;
    DeviceDescription description = usbVendorDevice("lone", {0x1234, 0x5678});
    description.hasParent = false;
    DeviceNode &node = machine.plug(description);
    EXPECT_EQ(recordOf(node.physicalDevice())->parent, nullptr);
    machine.unplug(node);
    EXPECT_EQ(machine.find("lone"), nullptr);
}

TEST(Enumeration, ThereIsOneRootHub) {
    Machine machine;
    EXPECT_EQ(&machine.rootHub(), &machine.rootHub());
    EXPECT_EQ(machine.rootHub().parent(), &machine.hostController());
    EXPECT_EQ(machine.rootHub().stack(), (std::vector<std::u16string>{u"\\Driver\\USBXHCI", u"\\Driver\\USBHUB3"}));
    machine.unplug(machine.hostController());
    EXPECT_EQ(machine.find("root-hub"), nullptr);
    EXPECT_TRUE(machine.rootHub().started());
}

TEST(Enumeration, WithoutHubDriversThereIsNoRootHub) {
    MachineOptions options;
    options.hubDrivers.clear();
    Machine machine(std::move(options));
    EXPECT_THROW(machine.rootHub(), std::logic_error);
    EXPECT_TRUE(machine.hostController().started());
    EXPECT_EQ(machine.kernel().objects.find(u"\\Driver\\USBHUB3", true), nullptr);
}

TEST(Enumeration, TheHubDriversAskedForAreLoaded) {
    MachineOptions options;
    options.hubDrivers = {u"USBHUB", u"USBHUB3"};
    Machine machine(std::move(options));
    EXPECT_NE(machine.kernel().objects.find(u"\\Driver\\USBHUB", false), nullptr);
    EXPECT_NE(machine.kernel().objects.find(u"\\Driver\\USBHUB3", false), nullptr);
    EXPECT_EQ(machine.rootHub().stack().back(), u"\\Driver\\USBHUB");
}

TEST(Enumeration, TheHubDriverOwnsHubsAndWhatIsPluggedIntoThem) {
    Machine machine;
    machine.plug(usbKeyboard("keyboard", {0xC0F4, 0x04E0}));
    auto *driver = static_cast<PDRIVER_OBJECT>(machine.kernel().objects.find(u"\\Driver\\USBHUB3", false));
    ULONG count = 0;
    EXPECT_EQ(IoEnumerateDeviceObjectList(driver, nullptr, 0, &count), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 2U); // the root hub's own device and the keyboard; its functions are usbccgp's
}

} // namespace
} // namespace sim::machinetest
