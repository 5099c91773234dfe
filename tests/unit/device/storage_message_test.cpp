#include "device/storage_message.h"

#include "support/text.h"
#include "tests/unit/fixture/disk_stand_in.h"
#include "tests/unit/fixture/log_test.h"
#include "tests/unit/fixture/property_table.h"

namespace unit {
namespace {

class StorageMessage : public LogTest {
  protected:
    StorageMessage() {
        setLogLevel(4);
        kernel.deviceProperties = &properties;
        properties.values[disk.device()] = {{"DeviceDesc", u"Disk drive"},
                                            {"InstanceId", u"SCSI\\DISK&VEN_NVME\\5&1&0"}};
    }
    ~StorageMessage() override { kernel.deviceProperties = nullptr; }

    void describe(const std::string &vendor, const std::string &product, const std::string &revision,
                  const std::string &serial) {
        DescriptorBytes given;
        given.header().VendorIdOffset = given.addString(vendor);
        given.header().ProductIdOffset = given.addString(product);
        given.header().ProductRevisionOffset = given.addString(revision);
        given.header().SerialNumberOffset = given.addString(serial);
        disk.answerWith(given.whole());
    }
    NTSTATUS fill() {
        message = {};
        return getDiskInfo(disk.device(), message);
    }
    template<size_t N>
    static std::string text(const WCHAR (&field)[N]) {
        return utf8(fieldText(field, N));
    }

    DiskStandIn disk;
    PropertyTable properties;
    alignas(8) ServiceMessage message{};
};

TEST_F(StorageMessage, HoldsTheDisksOwnWordsAndItsPlace) {
    describe("NVMe", "Samsung SSD 980", "3B4QGXA7", "S649NX0R1");
    ASSERT_EQ(fill(), STATUS_SUCCESS);
    EXPECT_EQ(message.deviceType, 2u);
    EXPECT_EQ(text(message.manufacturer), "NVMe");
    EXPECT_EQ(text(message.deviceName), "Samsung SSD 980");
    EXPECT_EQ(text(message.release), "3B4QGXA7");
    EXPECT_EQ(text(message.serialNumber), "S649NX0R1");
    EXPECT_EQ(text(message.description), "Disk drive");
    EXPECT_EQ(text(message.identity), "SCSI\\DISK&VEN_NVME\\5&1&0");
    EXPECT_EQ(takeLines(),
              std::vector<std::string>{
                  "INFO SerialNumber=S649NX0R1, deviceName=Samsung SSD 980, deviceDescription=Disk drive, "
                  "deviceInstancePath=SCSI\\DISK&VEN_NVME\\5&1&0, vendorId=0, productId=0, ProductRevision=3B4QGXA7"});
}

TEST_F(StorageMessage, WritesNothingElse) {
    describe("v", "p", "r", "s");
    ASSERT_EQ(fill(), STATUS_SUCCESS);
    message.deviceType = 0;
    for (WCHAR *field : {message.manufacturer, message.deviceName, message.release, message.serialNumber,
                         message.description, message.identity}) {
        while (*field != L'\0') {
            *field++ = L'\0';
        }
    }
    const ServiceMessage zero{};
    EXPECT_EQ(std::memcmp(&message, &zero, sizeof(zero)), 0);
}

TEST_F(StorageMessage, TextsOf127CharactersAreKeptAndLongerOnesCut) {
    for (const std::size_t length : {126u, 127u, 128u, 300u}) {
        describe(std::string(length, 'v'), std::string(length, 'p'), std::string(length, 'r'),
                 std::string(length, 's'));
        ASSERT_EQ(fill(), STATUS_SUCCESS);
        const std::size_t kept = std::min<std::size_t>(length, 127);
        EXPECT_EQ(text(message.manufacturer), std::string(kept, 'v'));
        EXPECT_EQ(text(message.deviceName), std::string(kept, 'p'));
        EXPECT_EQ(text(message.release), std::string(kept, 'r'));
        EXPECT_EQ(text(message.serialNumber), std::string(kept, 's'));
        EXPECT_EQ(message.serialNumber[127], L'\0');
        EXPECT_EQ(message.interfaceNumber, 0u);
    }
}

TEST_F(StorageMessage, DescriptionAndPlaceAreCutTo99Characters) {
    describe("v", "p", "r", "s");
    for (const std::size_t length : {98u, 99u, 100u, 200u}) {
        properties.values[disk.device()] = {{"DeviceDesc", std::u16string(length, u'd')},
                                            {"InstanceId", std::u16string(length, u'i')}};
        ASSERT_EQ(fill(), STATUS_SUCCESS);
        const std::size_t kept = std::min<std::size_t>(length, 99);
        EXPECT_EQ(text(message.description), std::string(kept, 'd'));
        EXPECT_EQ(text(message.identity), std::string(kept, 'i'));
        EXPECT_EQ(message.description[99], L'\0');
        EXPECT_EQ(message.identity[99], L'\0');
    }
}

TEST_F(StorageMessage, TheLineShowsTheTextsAsCut) {
    describe("v", "p", "r", std::string(128, 's'));
    properties.values[disk.device()]["DeviceDesc"] = std::u16string(120, u'd');
    ASSERT_EQ(fill(), STATUS_SUCCESS);
    EXPECT_EQ(takeLines().at(0), "INFO SerialNumber=" + std::string(127, 's') +
                                     ", deviceName=p, deviceDescription=" + std::string(99, 'd') +
                                     ", deviceInstancePath=SCSI\\DISK&VEN_NVME\\5&1&0, vendorId=0, productId=0, "
                                     "ProductRevision=r");
}

TEST_F(StorageMessage, AFailedQueryEndsItBeforeAnythingIsFilled) {
    disk.answerInTurn({{STATUS_INVALID_DEVICE_REQUEST, {}}});
    EXPECT_EQ(fill(), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(message.deviceType, 0u);
    EXPECT_EQ(takeLines(), std::vector<std::string>{"ERROR Failed to get disk info, status = 0xc0000010"});
}

TEST_F(StorageMessage, AMissingDescriptionEndsItAfterTheDisksOwnWords) {
    describe("v", "p", "r", "s");
    properties.values[disk.device()].erase("DeviceDesc");
    EXPECT_EQ(fill(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(message.deviceType, 2u);
    EXPECT_EQ(text(message.serialNumber), "s");
    EXPECT_EQ(text(message.identity), "");
    EXPECT_EQ(takeLines(), std::vector<std::string>{"ERROR Failed to get deviceDescription, status = 0xc0000034"});
}

TEST_F(StorageMessage, AMissingInstancePathEndsItAtLast) {
    describe("v", "p", "r", "s");
    properties.values[disk.device()].erase("InstanceId");
    EXPECT_EQ(fill(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(text(message.description), "Disk drive");
    EXPECT_EQ(takeLines(), std::vector<std::string>{"ERROR Failed to get deviceInstancePath, status = 0xc0000034"});
}

} // namespace
} // namespace unit
