#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_test.h"

namespace behaviour {
namespace {

constexpr std::size_t largestCounted = 0xFFFF;
constexpr std::size_t propertySizes[] = {0,      1,       2,       3,       4,       5,      255,
                                         256,    0x7FFE,  0x7FFF,  0x8000,  0xFFFC,  0xFFFD, 0xFFFE,
                                         0xFFFF, 0x10000, 0x10001, 0x10002, 0x1FFFE, 0x20000};

/// Ids and other properties of any length, with and without an end of their own.
class OddProperties : public DriverTest {
  protected:
    OddProperties() {
        apply(allowing({u"VID_0781&PID_5581"}));
        setParameter(u"LogLevel", 0);
        start();
    }
    sim::DeviceNode &plugWith(const char *property, std::vector<std::uint8_t> data) {
        sim::DeviceDescription device = flashDrive();
        device.children.clear();
        device.rawProperties[property].data = std::move(data);
        unplug(device.name);
        adds.clear();
        return plug(device);
    }
    /// `text`, repeated to `size` bytes: it ends anywhere, and without a NUL.
    static std::vector<std::uint8_t> filled(std::size_t size, std::u16string_view text) {
        const std::vector<std::uint8_t> pattern = bytesOf(text);
        std::vector<std::uint8_t> data(size);
        for (std::size_t at = 0; at < size; ++at) {
            data[at] = pattern[at % pattern.size()];
        }
        return data;
    }
};

TEST_F(OddProperties, HardwareIdsAreJudgedWhenTheyCanBeCounted) {
    for (const std::size_t size : propertySizes) {
        for (const std::u16string_view text : {u"x", u"USB\\VID_1&PID_2&REV_3"}) {
            SCOPED_TRACE(size);
            const sim::DeviceNode &node = plugWith("HardwareId", filled(size, text));
            EXPECT_FALSE(node.started());
            EXPECT_EQ(node.problemCode(), size <= largestCounted ? 29U : 31U);
        }
    }
}

TEST_F(OddProperties, EachOfManyHardwareIdsCounts) {
    const std::u16string_view others(u"USB\\VID_1&PID_2\0", 16);
    for (const std::size_t size : {0x7FE0, 0xFFA0}) {
        std::vector<std::uint8_t> ids = filled(size, others);
        const std::vector<std::uint8_t> last = bytesOf(u"USB\\VID_0781&PID_5581"); // without a NUL
        ids.insert(ids.end(), last.begin(), last.end());
        EXPECT_TRUE(plugWith("HardwareId", ids).started());
        ids.push_back(u'x'); // half a character
        EXPECT_TRUE(plugWith("HardwareId", ids).started());
    }
}

TEST_F(OddProperties, CompatibleIdsAreJudgedWhenTheyCanBeCounted) {
    apply({});
    for (const std::size_t size : propertySizes) {
        SCOPED_TRACE(size);
        const sim::DeviceNode &node = plugWith("CompatibleIds", filled(size, u"x"));
        EXPECT_EQ(node.started(), size <= largestCounted) << "what is in no list runs";
        EXPECT_EQ(node.problemCode(), size <= largestCounted ? 0U : 31U);
    }
    const std::u16string_view idAndEnd(u"USB\\Class_08\0", 13);
    for (const std::size_t size : propertySizes) {
        SCOPED_TRACE(size);
        if (size >= 2 * idAndEnd.size() - 2) {
            EXPECT_EQ(plugWith("CompatibleIds", filled(size, idAndEnd)).problemCode(),
                      size <= largestCounted ? 29U : 31U);
        }
    }
}

TEST_F(OddProperties, EmptyStringsInAListOfIdsEndNothing) {
    const std::u16string_view lists[] = {{u"\0\0USB\\VID_0781&PID_5581\0\0", 25},
                                         {u"a\0\0\0USB\\VID_0781&PID_5581", 25},
                                         {u"USB\\VID_0781&PID_5581\0\0b", 24},
                                         {u"USB\\VID_0781&PID_5581\0\0\0\0\0\0\0", 28}};
    for (const std::u16string_view list : lists) {
        EXPECT_TRUE(plugWith("HardwareId", bytesOf(list)).started());
    }
    apply({});
    const std::u16string_view blocked[] = {{u"\0\0USB\\Class_08\0\0", 16}, {u"a\0\0\0USB\\Class_08", 16}};
    for (const std::u16string_view list : blocked) {
        EXPECT_EQ(plugWith("CompatibleIds", bytesOf(list)).problemCode(), 29U);
    }
}

TEST_F(OddProperties, AnIdThatLeavesNoRoomForTheSerialNumberMatchesNothing) {
    apply(allowing({u"*"}));
    const std::size_t behind = 2 * std::u16string_view(u"\\A20054F50D478A23").size();
    for (const std::size_t size : {largestCounted - 1 - behind - 2, largestCounted - 1 - behind}) {
        EXPECT_TRUE(plugWith("HardwareId", filled(size, u"x")).started()) << size;
    }
    for (const std::size_t size : {largestCounted - 1 - behind + 2, largestCounted - 1, largestCounted}) {
        EXPECT_EQ(plugWith("HardwareId", filled(size, u"x")).problemCode(), 29U) << size;
    }
}

TEST_F(OddProperties, AnEnumeratorThatIsNotWhollyUsbIsAnother) {
    for (const std::size_t size : propertySizes) {
        SCOPED_TRACE(size);
        const sim::DeviceNode &node = plugWith("EnumeratorName", filled(size, u"USB"));
        EXPECT_FALSE(addOf("stick").attached);
        EXPECT_TRUE(node.started());
    }
    for (const std::size_t size : {6, 7}) { // no NUL, and half a character more
        plugWith("EnumeratorName", filled(size, u"USB"));
        EXPECT_TRUE(addOf("stick").attached) << size;
    }
}

TEST_F(OddProperties, AClassThatCannotBeCountedKeepsAnotherBusDeviceFromStarting) {
    for (const std::size_t size : propertySizes) {
        SCOPED_TRACE(size);
        sim::DeviceDescription device = flashDrive();
        device.children.clear();
        device.enumerator = u"SD";
        device.rawProperties["ClassGuid"].data = filled(size, u"{");
        unplug(device.name);
        EXPECT_EQ(plug(device).problemCode(), size <= largestCounted ? 0U : 31U);
    }
}

TEST_F(OddProperties, WhatOnlyDescribesADeviceDecidesNothing) {
    for (const char *property : {"Service", "BusReportedDeviceDesc", "InstanceId", "DeviceDesc", "FriendlyName",
                                 "Manufacturer", "MatchingDeviceId", "ClassGuid"}) {
        for (const std::size_t size : propertySizes) {
            SCOPED_TRACE(std::string(property) + ", " + std::to_string(size));
            EXPECT_TRUE(plugWith(property, filled(size, u"x")).started());
            EXPECT_EQ(filterOf("stick").ruleType, 2U);
        }
    }
}

TEST_F(OddProperties, TheTextsOfTheMessageAreCutToTheirFields) {
    for (const std::size_t size : propertySizes) {
        SCOPED_TRACE(size);
        plugWith("BusReportedDeviceDesc", filled(size, u"x"));
        std::u16string field(100, u'\0');
        std::memcpy(field.data(), filterOf("stick").message.data() + 1074, 200);
        const std::size_t shown = size <= largestCounted ? std::min<std::size_t>(size / 2, 99) : 0;
        EXPECT_EQ(field, std::u16string(shown, u'x') + std::u16string(100 - shown, u'\0'));
    }
}

} // namespace
} // namespace behaviour
