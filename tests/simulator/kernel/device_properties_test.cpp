#include "kernel_fixture.h"

#include <cstring>
#include <map>

#undef ExFreePool

namespace sim::test {

namespace {

constexpr DEVPROPKEY instanceIdKey = {{0x78c34fc8, 0x104a, 0x4aca, {0x9e, 0xa4, 0x52, 0x4d, 0x52, 0x99, 0x6e, 0x57}},
                                      256};
constexpr GUID hubClass = {0xf18a0e88, 0xc30c, 0x11d0, {0x88, 0x15, 0x00, 0xa0, 0xc9, 0x06, 0xbe, 0xd8}};

std::vector<std::uint8_t> textBytes(std::u16string_view text) {
    std::vector<std::uint8_t> bytes((text.size() + 1) * 2);
    std::memcpy(bytes.data(), text.data(), text.size() * 2);
    return bytes;
}

class FakeProvider : public DevicePropertyProvider {
  public:
    NTSTATUS registryProperty(PDEVICE_OBJECT, DEVICE_REGISTRY_PROPERTY property,
                              std::vector<std::uint8_t> &out) override {
        if (!values.contains(property)) {
            return STATUS_OBJECT_NAME_NOT_FOUND;
        }
        out = values[property];
        return STATUS_SUCCESS;
    }
    NTSTATUS deviceProperty(PDEVICE_OBJECT, const DEVPROPKEY &key, std::vector<std::uint8_t> &out,
                            DEVPROPTYPE &type) override {
        if (key.pid != instanceIdKey.pid) {
            return STATUS_OBJECT_NAME_NOT_FOUND;
        }
        out = textBytes(u"USB\\1");
        type = DEVPROP_TYPE_STRING;
        return STATUS_SUCCESS;
    }
    std::vector<std::u16string> interfaces(PDEVICE_OBJECT, const GUID &interfaceClass, bool enabledOnly) override {
        return interfaceClass == hubClass && !enabledOnly ? std::vector<std::u16string>{u"\\??\\A", u"\\??\\BC"}
                                                          : std::vector<std::u16string>{};
    }
    bool isPhysicalDevice(PDEVICE_OBJECT device) override { return device == physical; }

    PDEVICE_OBJECT physical = nullptr;
    std::map<DEVICE_REGISTRY_PROPERTY, std::vector<std::uint8_t>> values;
};

class DevicePropertiesTest : public KernelTest {
  protected:
    DevicePropertiesTest() {
        PDRIVER_OBJECT driver = createDriverObject(u"Bus");
        physical = createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
        other = createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
        provider.physical = physical;
        provider.values[DevicePropertyEnumeratorName] = textBytes(u"USB");
        provider.values[DevicePropertyFriendlyName] = {};
        kernel.deviceProperties = &provider;
    }

    FakeProvider provider;
    PDEVICE_OBJECT physical;
    PDEVICE_OBJECT other;
    ULONG length = 77;
    WCHAR buffer[16] = {9, 9, 9, 9, 9};
};

TEST_F(DevicePropertiesTest, probeThenRead) {
    EXPECT_EQ(IoGetDeviceProperty(physical, DevicePropertyEnumeratorName, 0, nullptr, &length),
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(IoGetDeviceProperty(physical, DevicePropertyEnumeratorName, 7, buffer, &length), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(buffer[0], 9);
    EXPECT_EQ(IoGetDeviceProperty(physical, DevicePropertyEnumeratorName, 8, buffer, &length), STATUS_SUCCESS);
    EXPECT_EQ(std::u16string_view(reinterpret_cast<char16_t *>(buffer)), u"USB");
}

TEST_F(DevicePropertiesTest, absentAndEmptyValues) {
    EXPECT_EQ(IoGetDeviceProperty(physical, DevicePropertyManufacturer, 0, nullptr, &length),
              STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(IoGetDeviceProperty(physical, DevicePropertyFriendlyName, 0, nullptr, &length), STATUS_SUCCESS);
    EXPECT_EQ(length, 0u);
}

TEST_F(DevicePropertiesTest, onlyEnumeratedPhysicalDevicesHaveProperties) {
    DEVPROPTYPE type = 0;
    EXPECT_EQ(stoppedBy([&] { IoGetDeviceProperty(other, DevicePropertyEnumeratorName, 0, nullptr, &length); }),
              "physical device object");
    EXPECT_EQ(stoppedBy([&] { IoGetDevicePropertyData(other, &instanceIdKey, 0, 0, 0, nullptr, &length, &type); }),
              "physical device object");
    PZZWSTR links = nullptr;
    EXPECT_EQ(IoGetDeviceInterfaces(&hubClass, other, 0, &links), STATUS_INVALID_DEVICE_REQUEST);
}

TEST_F(DevicePropertiesTest, propertyData) {
    DEVPROPTYPE type = 99;
    const auto get = [&](LCID locale, ULONG room) {
        return IoGetDevicePropertyData(physical, &instanceIdKey, locale, 0, room, buffer, &length, &type);
    };
    EXPECT_EQ(get(LOCALE_NEUTRAL, 0), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 12u);
    EXPECT_EQ(type, static_cast<DEVPROPTYPE>(DEVPROP_TYPE_STRING));
    EXPECT_EQ(get(LOCALE_NEUTRAL, 11), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(buffer[0], 9);
    EXPECT_EQ(get(LOCALE_NEUTRAL, 12), STATUS_SUCCESS);
    EXPECT_EQ(get(0x409, 12), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(type, static_cast<DEVPROPTYPE>(DEVPROP_TYPE_EMPTY));
}

TEST_F(DevicePropertiesTest, noInterfaceIsAListOfOneNul) {
    PZZWSTR links = nullptr;
    ASSERT_EQ(IoGetDeviceInterfaces(&hubClass, physical, 0, &links), STATUS_SUCCESS);
    ASSERT_NE(links, nullptr);
    EXPECT_EQ(links[0], 0);
    EXPECT_EQ(kernel.leaks().size(), 1u);
    EXPECT_EQ(stoppedBy([&] { ExFreePoolWithTag(links, 'mine'); }), "pool tag");
    ExFreePool(links);
    ASSERT_EQ(IoGetDeviceInterfaces(&hubClass, physical, 1, &links), STATUS_SUCCESS);
    EXPECT_EQ(std::u16string_view(reinterpret_cast<char16_t *>(links), 13),
              std::u16string_view(u"\\??\\A\0\\??\\BC\0", 13));
    EXPECT_EQ(links[13], 0);
    ExFreePool(links);
}

TEST_F(DevicePropertiesTest, irqlAndFaults) {
    DEVPROPTYPE type = 0;
    EXPECT_EQ(
        stoppedAt(APC_LEVEL, [&] { IoGetDeviceProperty(physical, DevicePropertyEnumeratorName, 0, nullptr, &length); }),
        "irql");
    EXPECT_EQ(stoppedAt(APC_LEVEL,
                        [&] { IoGetDevicePropertyData(physical, &instanceIdKey, 0, 0, 0, nullptr, &length, &type); }),
              "");
    kernel.faults.failNamed("IoGetDeviceProperty", 1, STATUS_INVALID_DEVICE_REQUEST, false);
    kernel.faults.arm(true);
    EXPECT_EQ(IoGetDeviceProperty(physical, DevicePropertyEnumeratorName, 8, buffer, &length),
              STATUS_INVALID_DEVICE_REQUEST);
}

} // namespace

} // namespace sim::test
