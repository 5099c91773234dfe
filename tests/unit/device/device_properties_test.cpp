#include "device/device_properties.h"

#include "device/property_reader.h"
#include "tests/unit/fixture/property_source.h"

#include <devpkey.h>

namespace unit {
namespace {

using namespace std::string_literals;

class DeviceProperties : public DeviceWithProperties {
  protected:
    NTSTATUS readHardwareIds() { return getDeviceProperty(device, DevicePropertyHardwareID, out); }
    NTSTATUS readService() { return getDevicePropertyData(device, DEVPKEY_Device_Service, out); }

    KString out;
};

TEST_F(DeviceProperties, ListsKeepTheirInnerNulsAndLoseTheLastOnes) {
    properties.hardwareIds = list({u"USB\\VID_1&REV_2", u"USB\\VID_1"});
    ASSERT_EQ(readHardwareIds(), STATUS_SUCCESS);
    EXPECT_EQ(utf8(out), "USB\\VID_1&REV_2\0USB\\VID_1"s);
    EXPECT_EQ(out.maximumLength(), properties.hardwareIds->size());
}

TEST_F(DeviceProperties, TextLosesItsNul) {
    properties.service = text(u"usbccgp");
    ASSERT_EQ(readService(), STATUS_SUCCESS);
    EXPECT_EQ(utf8(out), "usbccgp");
}

TEST_F(DeviceProperties, ListOfNulsOnlyIsEmpty) {
    properties.hardwareIds = bytesOf(std::u16string(2, u'\0'));
    ASSERT_EQ(readHardwareIds(), STATUS_SUCCESS);
    EXPECT_TRUE(out.empty());
}

TEST_F(DeviceProperties, ReplaceWhatTheStringHeld) {
    ASSERT_EQ(out.copyFrom(literal(L"something longer than that")), STATUS_SUCCESS);
    properties.service = text(u"disk");
    ASSERT_EQ(readService(), STATUS_SUCCESS);
    EXPECT_EQ(utf8(out), "disk");
}

TEST_F(DeviceProperties, PropertyThatIsEmptyIsSuccessAndLeavesTheStringUntouched) {
    ASSERT_EQ(out.copyFrom(literal(L"before")), STATUS_SUCCESS);
    properties.hardwareIds = std::vector<std::uint8_t>();
    properties.service = std::vector<std::uint8_t>();
    EXPECT_EQ(readHardwareIds(), STATUS_SUCCESS);
    EXPECT_EQ(readService(), STATUS_SUCCESS);
    EXPECT_EQ(utf8(out), "before");
}

TEST_F(DeviceProperties, AbsentPropertyIsReportedAndLeavesTheStringUntouched) {
    ASSERT_EQ(out.copyFrom(literal(L"before")), STATUS_SUCCESS);
    EXPECT_EQ(readHardwareIds(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(readService(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(utf8(out), "before");
}

TEST_F(DeviceProperties, StatusOfTheFirstQuestionIsReturnedUnchanged) {
    properties.hardwareIds = list({u"USB\\VID_1"});
    kernel.faults.failNamed("IoGetDeviceProperty", 1, STATUS_DELETE_PENDING, false);
    kernel.faults.arm(true);
    EXPECT_EQ(readHardwareIds(), STATUS_DELETE_PENDING);
}

TEST_F(DeviceProperties, StatusOfTheSecondQuestionIsReturnedUnchanged) {
    properties.service = text(u"usbccgp");
    kernel.faults.failNamed("IoGetDevicePropertyData", 2, STATUS_DELETE_PENDING, false);
    kernel.faults.arm(true);
    EXPECT_EQ(readService(), STATUS_DELETE_PENDING);
}

TEST_F(DeviceProperties, NothingIsLeftBehindWhateverFails) {
    properties.hardwareIds = list({u"USB\\VID_1"});
    failEachCall([&] { return readHardwareIds(); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(status, failed ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS);
                     out.release();
                     EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
                 });
}

TEST_F(DeviceProperties, PropertyTooLongForACountedStringFails) {
    properties.hardwareIds = bytesOf(std::u16string(0x8000 + 4, u'x'));
    EXPECT_EQ(readHardwareIds(), STATUS_BUFFER_TOO_SMALL);
    EXPECT_TRUE(out.empty());
}

class PropertyReader : public KernelTest {};

TEST_F(PropertyReader, AsksForTheSizeWithoutABuffer) {
    KString out;
    bool asked = false;
    EXPECT_EQ(readProperty(out,
                           [&](ULONG size, PVOID buffer, PULONG needed) {
                               asked = size == 0 && buffer == nullptr && needed != nullptr;
                               return STATUS_INVALID_PARAMETER_2;
                           }),
              STATUS_INVALID_PARAMETER_2);
    EXPECT_TRUE(asked);
}

TEST_F(PropertyReader, KeepsToTheRoomWhenTheSecondAnswerClaimsMore) {
    KString out;
    EXPECT_EQ(readProperty(out,
                           [](ULONG size, PVOID buffer, PULONG needed) {
                               if (size == 0) {
                                   *needed = 4;
                                   return STATUS_BUFFER_TOO_SMALL;
                               }
                               std::memcpy(buffer, u"ab", 4);
                               *needed = 400;
                               return STATUS_SUCCESS;
                           }),
              STATUS_SUCCESS);
    EXPECT_EQ(utf8(out), "ab");
}

} // namespace
} // namespace unit
