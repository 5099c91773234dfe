#include "standard_devices.h"

#include "services.h"
#include "setup_classes.h"

namespace sim::machine {

namespace {

DeviceDescription fixedDevice(std::string name, std::u16string instanceId, std::vector<std::u16string> hardwareIds,
                              const SetupClass &setupClass, std::u16string service, std::u16string description) {
    DeviceDescription device;
    device.name = std::move(name);
    device.instanceId = std::move(instanceId);
    device.hardwareIds = std::move(hardwareIds);
    device.classGuid = std::u16string(setupClass.guid);
    device.service = std::move(service);
    device.description = std::move(description);
    device.removable = false;
    return device;
}

} // namespace

std::vector<DeviceDescription> hostControllerPath() {
    DeviceDescription hal =
        fixedDevice("acpi-hal", u"ROOT\\ACPI_HAL\\0000", {u"acpiapic"}, setup::computer, u"ACPI_HAL", u"ACPI-based PC");
    DeviceDescription acpi = fixedDevice("acpi", u"ACPI_HAL\\PNP0C08\\0", {u"ACPI_HAL\\PNP0C08", u"*PNP0C08"},
                                         setup::system, u"ACPI", u"Microsoft ACPI-Compliant System");
    DeviceDescription pci =
        fixedDevice("pci", u"ACPI\\PNP0A08\\0", {u"ACPI\\VEN_PNP&DEV_0A08", u"ACPI\\PNP0A08", u"*PNP0A08"},
                    setup::system, u"pci", u"PCI Express Root Complex");
    DeviceDescription controller =
        fixedDevice("host-controller", u"PCI\\VEN_8086&DEV_9D2F&SUBSYS_72708086&REV_21\\3&11583659&0&A0",
                    {u"PCI\\VEN_8086&DEV_9D2F&SUBSYS_72708086&REV_21", u"PCI\\VEN_8086&DEV_9D2F&SUBSYS_72708086",
                     u"PCI\\VEN_8086&DEV_9D2F&CC_0C0330", u"PCI\\VEN_8086&DEV_9D2F&CC_0C03"},
                    setup::usb, u"USBXHCI", u"USB xHCI Compliant Host Controller");
    controller.compatibleIds = {u"PCI\\VEN_8086&DEV_9D2F&REV_21",
                                u"PCI\\VEN_8086&DEV_9D2F",
                                u"PCI\\VEN_8086&CC_0C0330",
                                u"PCI\\VEN_8086&CC_0C03",
                                u"PCI\\VEN_8086",
                                u"PCI\\CC_0C0330",
                                u"PCI\\CC_0C03"};
    controller.manufacturer = u"Generic USB xHCI Host Controller";
    controller.matchingDeviceId = u"PCI\\CC_0C0330";
    controller.address = 0x00140000; // device 20, function 0
    return {hal, acpi, pci, controller};
}

DeviceDescription rootHubDescription(std::u16string_view hubDriver) {
    DeviceDescription hub = fixedDevice(
        "root-hub", u"USB\\ROOT_HUB30\\4&b9eb813&0&0",
        {u"USB\\ROOT_HUB30&VID8086&PID9D2F&REV0021", u"USB\\ROOT_HUB30&VID8086&PID9D2F", u"USB\\ROOT_HUB30"},
        setup::usb, std::u16string(hubDriver), u"USB Root Hub (USB 3.0)");
    hub.manufacturer = u"(Standard USB HUBs)";
    hub.matchingDeviceId = u"USB\\ROOT_HUB30";
    hub.address = 0;
    return hub;
}

DeviceDescription controlNodeDescription() {
    DeviceDescription node = fixedDevice("control", u"ROOT\\SYSTEM\\0000", {u"Tarvenholt\\Myrtelhaven"}, setup::system,
                                         std::u16string(driverService), u"Tarvenholt Myrtelhaven");
    node.manufacturer = u"Tarvenholt";
    node.matchingDeviceId = u"tarvenholt\\myrtelhaven";
    return node;
}

} // namespace sim::machine
