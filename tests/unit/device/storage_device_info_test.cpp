#include "device/storage_device_info.h"

#include "tests/unit/fixture/disk_stand_in.h"
#include "tests/unit/fixture/log_test.h"

namespace unit {
namespace {

class StorageDeviceInfos : public LogTest {
  protected:
    NTSTATUS get() { return getStorageDeviceInfo(disk.device(), info); }

    DescriptorBytes given;
    DiskStandIn disk;
    StorageDeviceInfo info;
};

TEST_F(StorageDeviceInfos, HoldWhatTheDescriptorSays) {
    given.header().BusType = BusTypeUsb;
    given.header().RemovableMedia = TRUE;
    given.header().VendorIdOffset = given.addString("SanDisk ");
    given.header().ProductIdOffset = given.addString("Ultra           ");
    given.header().ProductRevisionOffset = given.addString("1.00");
    given.header().SerialNumberOffset = given.addString("A20054F50D478A23");
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    EXPECT_EQ(info.busType, 7u);
    EXPECT_TRUE(info.removable);
    EXPECT_EQ(utf8(info.vendorId), "SanDisk ");
    EXPECT_EQ(utf8(info.productId), "Ultra           ");
    EXPECT_EQ(utf8(info.productRevision), "1.00");
    EXPECT_EQ(utf8(info.serialNumber), "A20054F50D478A23");
}

TEST_F(StorageDeviceInfos, TellTheOffsetsInTheLog) {
    given.header().VendorIdOffset = 40;
    given.header().ProductIdOffset = 49;
    given.header().ProductRevisionOffset = 0;
    given.header().SerialNumberOffset = 0xFFFFFFFF;
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    EXPECT_EQ(takeLines(),
              std::vector<std::string>{
                  "DEBUG ProductIdOffset=49 ProductRevisionOffset=0 SerialNumberOffset=4294967295 VendorIdOffset=40"});
}

TEST_F(StorageDeviceInfos, WithoutOffsetsHaveNoStrings) {
    given.addString("never mentioned");
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    for (const KString *text : {&info.vendorId, &info.productId, &info.productRevision, &info.serialNumber}) {
        EXPECT_TRUE(text->empty());
        EXPECT_EQ(text->buffer(), nullptr);
    }
}

TEST_F(StorageDeviceInfos, AreReadInTheSystemsCodePage) {
    given.header().ProductIdOffset = given.addString("\x80 \xE4\xDF\x99 \x81");
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    EXPECT_EQ(sim::view(info.productId), u"\u20AC \u00E4\u00DF\u2122 \u0081");
}

TEST_F(StorageDeviceInfos, AnyValueButZeroMeansRemovableMedia) {
    given.header().RemovableMedia = 0x80;
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    EXPECT_TRUE(info.removable);
    given.header().RemovableMedia = 0;
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    EXPECT_FALSE(info.removable);
}

TEST_F(StorageDeviceInfos, AnUnknownBusTypeIsTakenAsItStands) {
    for (const ULONG busType : {0x7AU, 0x10007U, 0xFFFFFFFFU}) {
        std::memcpy(&given.header().BusType, &busType, sizeof busType);
        disk.answerWith(given.whole());
        ASSERT_EQ(get(), STATUS_SUCCESS);
        EXPECT_EQ(info.busType, busType);
    }
}

TEST_F(StorageDeviceInfos, AFailureLeavesNothingFilledAndLogsNothing) {
    info.busType = BusTypeUsb;
    info.removable = true;
    disk.answerInTurn({{STATUS_DEVICE_NOT_CONNECTED, {}}});
    EXPECT_EQ(get(), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(info.busType, 0u);
    EXPECT_FALSE(info.removable);
    EXPECT_TRUE(info.serialNumber.empty());
    EXPECT_TRUE(takeLines().empty());
}

TEST_F(StorageDeviceInfos, TheLongestStringIsCutAndNeverWraps) {
    given.header().SerialNumberOffset = given.add(std::string(0xF000, 's'));
    disk.answerWith(given.whole());
    ASSERT_EQ(get(), STATUS_SUCCESS);
    EXPECT_EQ(info.serialNumber.length(), 32766 * 2);
    EXPECT_EQ(utf8(info.serialNumber), std::string(32766, 's'));
}

TEST_F(StorageDeviceInfos, AStringWithoutMemoryStaysEmptyAndTheOthersAreThere) {
    setLogLevel(0);
    given.header().VendorIdOffset = given.addString("vendor");
    given.header().ProductIdOffset = given.addString("product");
    given.header().ProductRevisionOffset = given.addString("revision");
    given.header().SerialNumberOffset = given.addString("serial");
    disk.answerWith(given.whole());
    // The descriptor first, then the strings in this order.
    const std::vector<std::pair<std::uint64_t, KString StorageDeviceInfo::*>> order = {
        {2, &StorageDeviceInfo::productId},
        {3, &StorageDeviceInfo::productRevision},
        {4, &StorageDeviceInfo::serialNumber},
        {5, &StorageDeviceInfo::vendorId}};
    for (const auto &[nth, missing] : order) {
        StorageDeviceInfo fresh;
        EXPECT_EQ(whileFailing("ExAllocatePool2", nth, [&] { return getStorageDeviceInfo(disk.device(), fresh); }),
                  STATUS_SUCCESS);
        for (const auto &[other, text] : order) {
            EXPECT_EQ((fresh.*text).empty(), text == missing) << other;
        }
    }
}

} // namespace
} // namespace unit
