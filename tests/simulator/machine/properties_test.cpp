#include <initguid.h>

#include "test_driver.h"

#include "simulator/kernel/kernel.h"
#include "simulator/kernel/strings.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/usb_device.h"

#include <devpkey.h>
#include <usbiodef.h>

#include <gtest/gtest.h>

#include <cstring>

namespace sim::machinetest {
namespace {

struct Answer {
    NTSTATUS status = 0;
    DEVPROPTYPE type = 0;
    std::vector<std::uint8_t> bytes;
    std::u16string text() const {
        std::u16string result(bytes.size() / 2, u'\0');
        std::memcpy(result.data(), bytes.data(), 2 * result.size());
        return result;
    }
};

Answer registryProperty(DeviceNode &node, DEVICE_REGISTRY_PROPERTY property) {
    Answer answer;
    answer.bytes.resize(1024);
    ULONG bytes = 0;
    answer.status = IoGetDeviceProperty(node.physicalDevice(), property, 1024, answer.bytes.data(), &bytes);
    answer.bytes.resize(NT_SUCCESS(answer.status) ? bytes : 0);
    return answer;
}

Answer keyedProperty(DeviceNode &node, const DEVPROPKEY &key) {
    Answer answer;
    answer.bytes.resize(1024);
    ULONG bytes = 0;
    answer.status = IoGetDevicePropertyData(node.physicalDevice(), &key, LOCALE_NEUTRAL, 0, 1024, answer.bytes.data(),
                                            &bytes, &answer.type);
    answer.bytes.resize(bytes);
    return answer;
}

struct Properties : testing::Test {
    Machine machine;
    DeviceNode &stick = machine.plug(usbFlashDrive("stick", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A200"}));
};

TEST_F(Properties, ListsEndWithTwoNuls) {
    EXPECT_EQ(registryProperty(stick, DevicePropertyHardwareID).text(),
              std::u16string(u"USB\\VID_0781&PID_5581&REV_0100\0USB\\VID_0781&PID_5581\0\0", 54));
    const Answer keyed = keyedProperty(stick, DEVPKEY_Device_HardwareIds);
    EXPECT_EQ(keyed.type, DEVPROP_TYPE_STRING_LIST);
    EXPECT_EQ(keyed.bytes, registryProperty(stick, DevicePropertyHardwareID).bytes);
}

TEST_F(Properties, TextsEndWithOne) {
    using namespace std::string_literals;
    EXPECT_EQ(registryProperty(stick, DevicePropertyEnumeratorName).text(), u"USB\0"s);
    EXPECT_EQ(registryProperty(stick, DevicePropertyClassGuid).text(),
              std::u16string(machine::setup::usb.guid) + u'\0');
    EXPECT_EQ(registryProperty(stick, DevicePropertyClassName).text(), u"USB\0"s);
    EXPECT_EQ(registryProperty(stick, DevicePropertyManufacturer).text(), u"SanDisk\0"s);
    EXPECT_EQ(registryProperty(stick, DevicePropertyDeviceDescription).text(), u"USB Mass Storage Device\0"s);
    EXPECT_EQ(registryProperty(stick, DevicePropertyLocationInformation).text(), u"Port_#0001.Hub_#0000\0"s);
    EXPECT_TRUE(
        registryProperty(stick, DevicePropertyPhysicalDeviceObjectName).text().starts_with(u"\\Device\\USBPDO-"));
}

TEST_F(Properties, KeyedOnesHaveTheirTypes) {
    using namespace std::string_literals;
    const Answer instance = keyedProperty(stick, DEVPKEY_Device_InstanceId);
    EXPECT_EQ(instance.type, DEVPROP_TYPE_STRING);
    EXPECT_EQ(instance.text(), u"USB\\VID_0781&PID_5581\\A200\0"s);
    EXPECT_EQ(keyedProperty(stick, DEVPKEY_Device_Service).text(), u"USBSTOR\0"s);
    EXPECT_EQ(keyedProperty(stick, DEVPKEY_Device_BusReportedDeviceDesc).text(), u"Ultra\0"s);
    EXPECT_EQ(keyedProperty(stick, DEVPKEY_Device_Parent).text(), u"USB\\ROOT_HUB30\\4&b9eb813&0&0\0"s);
    const Answer guid = keyedProperty(stick, DEVPKEY_Device_ClassGuid);
    EXPECT_EQ(guid.type, DEVPROP_TYPE_GUID);
    EXPECT_EQ(guid.bytes.size(), sizeof(GUID));
}

TEST_F(Properties, AbsentOnesAreNotFound) {
    EXPECT_EQ(registryProperty(stick, DevicePropertyFriendlyName).status, STATUS_OBJECT_NAME_NOT_FOUND);
    const Answer answer = keyedProperty(stick, DEVPKEY_Device_MatchingDeviceId);
    EXPECT_EQ(answer.status, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(answer.type, static_cast<DEVPROPTYPE>(DEVPROP_TYPE_EMPTY));
    EXPECT_TRUE(answer.bytes.empty());
    const DEVPROPKEY unknown{{1, 2, 3, {4}}, 5};
    EXPECT_EQ(keyedProperty(stick, unknown).status, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(registryProperty(stick, static_cast<DEVICE_REGISTRY_PROPERTY>(31)).status, STATUS_INVALID_PARAMETER_2);
}

TEST_F(Properties, RawValuesReplaceThem) {
    DeviceDescription description = usbVendorDevice("odd", {1, 2});
    description.rawProperties["HardwareId"].data = {'x', 0};
    description.rawProperties["CompatibleIds"].data = {};
    description.rawProperties["ClassGuid"].failure = STATUS_INSUFFICIENT_RESOURCES;
    description.rawProperties["InstanceId"].data = {1, 2, 3};
    description.rawProperties["InstanceId"].type = 7;
    DeviceNode &odd = machine.plug(description);
    EXPECT_EQ(registryProperty(odd, DevicePropertyHardwareID).bytes, (std::vector<std::uint8_t>{'x', 0}));
    const Answer empty = registryProperty(odd, DevicePropertyCompatibleIDs);
    EXPECT_EQ(empty.status, STATUS_SUCCESS);
    EXPECT_TRUE(empty.bytes.empty());
    EXPECT_EQ(registryProperty(odd, DevicePropertyClassGuid).status, STATUS_INSUFFICIENT_RESOURCES);
    const Answer instance = keyedProperty(odd, DEVPKEY_Device_InstanceId);
    EXPECT_EQ(instance.type, 7U);
    EXPECT_EQ(instance.bytes.size(), 3U);
}

TEST_F(Properties, ADeviceMayHaveNoEnumeratorAndNoIds) {
    DeviceDescription description = usbVendorDevice("bare", {1, 2});
    description.enumerator = u"";
    description.hardwareIds.reset();
    description.compatibleIds.reset();
    DeviceNode &bare = machine.plug(description);
    for (const auto property : {DevicePropertyEnumeratorName, DevicePropertyHardwareID, DevicePropertyCompatibleIDs}) {
        EXPECT_EQ(registryProperty(bare, property).status, STATUS_OBJECT_NAME_NOT_FOUND);
    }
}

TEST_F(Properties, AddressIsThePort) {
    const Answer answer = registryProperty(stick, DevicePropertyAddress);
    ASSERT_EQ(answer.bytes.size(), 4U);
    EXPECT_EQ(answer.bytes[0], 1);
    DeviceDescription failing = usbVendorDevice("failing", {1, 2});
    failing.capabilitiesFailure = STATUS_UNSUCCESSFUL;
    EXPECT_EQ(registryProperty(machine.plug(failing), DevicePropertyAddress).status, STATUS_OBJECT_NAME_NOT_FOUND);
}

std::u16string interfacesOf(PDEVICE_OBJECT device, const GUID &interfaceClass, ULONG flags = 0) {
    PZZWSTR list = nullptr;
    EXPECT_EQ(IoGetDeviceInterfaces(&interfaceClass, device, flags, &list), STATUS_SUCCESS);
    if (list == nullptr) {
        return u"(null)";
    }
    std::u16string first(reinterpret_cast<const char16_t *>(list));
    ExFreePool(list);
    return first;
}

TEST_F(Properties, InterfacesBelongToThePhysicalDevice) {
    EXPECT_EQ(interfacesOf(machine.rootHub().physicalDevice(), GUID_DEVINTERFACE_USB_HUB),
              u"\\??\\USB#ROOT_HUB30#4&b9eb813&0&0#{f18a0e88-c30c-11d0-8815-00a0c906bed8}");
    EXPECT_EQ(interfacesOf(stick.physicalDevice(), GUID_DEVINTERFACE_USB_DEVICE),
              u"\\??\\USB#VID_0781&PID_5581#A200#{a5dcbf10-6530-11d2-901f-00c04fb951ed}");
    EXPECT_EQ(interfacesOf(stick.physicalDevice(), GUID_DEVINTERFACE_USB_HUB), u"");
}

TEST_F(Properties, OfARemovedDeviceAreRefusedAsLongAsItsObjectLives) {
    PDEVICE_OBJECT device = stick.physicalDevice();
    ObReferenceObject(device);
    machine.unplug(stick);
    WCHAR buffer[64];
    ULONG bytes = 0;
    DEVPROPTYPE type = 0;
    EXPECT_EQ(IoGetDeviceProperty(device, DevicePropertyHardwareID, sizeof buffer, buffer, &bytes),
              STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(IoGetDevicePropertyData(device, &DEVPKEY_Device_InstanceId, LOCALE_NEUTRAL, 0, sizeof buffer, buffer,
                                      &bytes, &type),
              STATUS_INVALID_DEVICE_REQUEST);
    ObDereferenceObject(device);
}

TEST(HubInterface, IsEnabledOnlyAfterTheStart) {
    TestDriver driver;
    Machine machine(driver.options());
    machine.presetClassFilters();
    std::vector<std::u16string> duringAdd;
    driver.onAdd = [&](PDEVICE_OBJECT device) { duringAdd.push_back(interfacesOf(device, GUID_DEVINTERFACE_USB_HUB)); };
    DeviceNode &hub = machine.plug(usbHub("hub", {0x05E3, 0x0608}));
    for (const std::u16string &list : duringAdd) {
        EXPECT_EQ(list, u"");
    }
    EXPECT_NE(interfacesOf(hub.physicalDevice(), GUID_DEVINTERFACE_USB_HUB), u"");
}

} // namespace
} // namespace sim::machinetest
