// The storage descriptor, as a filter's device-add routine asks the port driver for it.

#include "disk_fixture.h"

namespace sim::machinetest {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::string textAt(const Bytes &bytes, ULONG offset) {
    std::string text;
    for (std::size_t at = offset; offset != 0 && at < bytes.size() && bytes[at] != 0; ++at) {
        text.push_back(static_cast<char>(bytes[at]));
    }
    return text;
}

struct StorageQueries : DiskTest {
    NTSTATUS status = STATUS_PENDING;
    Bytes answer;

    /// Plugs the disk; its filter asks during the add, in a buffer of that size. What came is in `answer`.
    STORAGE_DEVICE_DESCRIPTOR ask(const DiskDescription &says, std::size_t room = 4096,
                                  STORAGE_PROPERTY_QUERY query = {}, ULONG input = sizeof(STORAGE_PROPERTY_QUERY)) {
        driver.onAdd = [&](PDEVICE_OBJECT physical) {
            if (physical->AttachedDevice->DeviceType != FILE_DEVICE_DISK) {
                return; // not the disk
            }
            answer.assign(room, 0xCC);
            ULONG_PTR information = 0;
            status = FsRtlIssueDeviceIoControl(physical, IOCTL_STORAGE_QUERY_PROPERTY, 0, &query, input, answer.data(),
                                               static_cast<ULONG>(room), &information);
            answer.resize(information);
        };
        plugStick(says);
        driver.onAdd = {};
        STORAGE_DEVICE_DESCRIPTOR descriptor{};
        std::copy_n(answer.begin(), std::min(answer.size(), sizeof(descriptor)),
                    reinterpret_cast<std::uint8_t *>(&descriptor));
        return descriptor;
    }
    static DiskDescription usual() {
        DiskDescription says;
        says.vendor = "SanDisk ";
        says.product = "Ultra           ";
        says.revision = "1.00";
        says.serial = "A200";
        return says;
    }
};

TEST_F(StorageQueries, AreAnsweredWhileTheStackIsBuilt) {
    DiskDescription says = usual();
    says.removableMedia = true;
    const STORAGE_DEVICE_DESCRIPTOR descriptor = ask(says);
    EXPECT_EQ(status, STATUS_SUCCESS);
    EXPECT_EQ(descriptor.Version, sizeof(descriptor));
    EXPECT_EQ(descriptor.Size, answer.size());
    EXPECT_EQ(descriptor.BusType, BusTypeUsb);
    EXPECT_TRUE(descriptor.RemovableMedia);
    EXPECT_EQ(textAt(answer, descriptor.VendorIdOffset), "SanDisk ");
    EXPECT_EQ(textAt(answer, descriptor.ProductIdOffset), "Ultra           ");
    EXPECT_EQ(textAt(answer, descriptor.ProductRevisionOffset), "1.00");
    EXPECT_EQ(textAt(answer, descriptor.SerialNumberOffset), "A200");
}

TEST_F(StorageQueries, AreAnsweredLaterToo) {
    DiskDescription says = usual();
    says.answersLater = true;
    EXPECT_EQ(ask(says).Size, answer.size());
    EXPECT_EQ(status, STATUS_SUCCESS);
}

TEST_F(StorageQueries, StringsThatTheDiskDoesNotSayHaveNoOffset) {
    const STORAGE_DEVICE_DESCRIPTOR descriptor = ask(DiskDescription());
    EXPECT_EQ(descriptor.VendorIdOffset, 0U);
    EXPECT_EQ(descriptor.ProductIdOffset, 0U);
    EXPECT_EQ(descriptor.ProductRevisionOffset, 0U);
    EXPECT_EQ(descriptor.SerialNumberOffset, 0U);
    EXPECT_EQ(descriptor.Size, sizeof(descriptor));
}

TEST_F(StorageQueries, InAShortBufferGiveWhatFitsAndTheFullSize) {
    DiskDescription says = usual();
    says.serial = std::string(3000, 'S');
    const STORAGE_DEVICE_DESCRIPTOR descriptor = ask(says, 2088);
    EXPECT_EQ(status, STATUS_SUCCESS);
    EXPECT_EQ(answer.size(), 2088U);
    EXPECT_GT(descriptor.Size, 3000U);
}

TEST_F(StorageQueries, InAShortBufferMayBeAWarningInstead) {
    DiskDescription says = usual();
    says.storageAnswer.shortBuffer = STATUS_BUFFER_OVERFLOW;
    const STORAGE_DEVICE_DESCRIPTOR descriptor = ask(says, 8);
    EXPECT_EQ(status, STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(answer.size(), 8U);
    EXPECT_GT(descriptor.Size, sizeof(descriptor));
}

TEST_F(StorageQueries, NeedRoomForTheHeader) {
    ask(usual(), 7);
    EXPECT_EQ(status, STATUS_BUFFER_TOO_SMALL);
}

TEST_F(StorageQueries, NeedAWholeQuestion) {
    ask(usual(), 4096, {}, sizeof(STORAGE_PROPERTY_QUERY) - 1);
    EXPECT_EQ(status, STATUS_INFO_LENGTH_MISMATCH);
}

TEST_F(StorageQueries, MayOnlyAskWhetherTheAnswerExists) {
    ask(usual(), 0);
    EXPECT_EQ(status, STATUS_SUCCESS);
    machine.unplug(*machine.find("stick"));
    STORAGE_PROPERTY_QUERY query{};
    query.QueryType = PropertyExistsQuery;
    ask(usual(), 64, query);
    EXPECT_EQ(status, STATUS_SUCCESS);
    EXPECT_TRUE(answer.empty());
}

TEST_F(StorageQueries, AreForTheDeviceProperty) {
    STORAGE_PROPERTY_QUERY query{};
    const ULONG uniqueId = 3; // of the properties that other drivers ask for
    std::memcpy(&query, &uniqueId, sizeof(uniqueId));
    ask(usual(), 64, query);
    EXPECT_EQ(status, STATUS_NOT_SUPPORTED);
}

TEST_F(StorageQueries, MayFail) {
    DiskDescription says = usual();
    says.storageAnswer.failure = STATUS_INVALID_DEVICE_REQUEST;
    ask(says);
    EXPECT_EQ(status, STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_TRUE(answer.empty());
}

TEST_F(StorageQueries, MayLie) {
    DiskDescription says = usual();
    StorageAnswer &lies = says.storageAnswer;
    lies.size = 0xFFFFFFFF;
    lies.version = 1;
    lies.vendorOffset = 0;
    lies.productOffset = 0xFFFFFFFF;
    lies.revisionOffset = 5000;
    lies.terminated = false;
    const STORAGE_DEVICE_DESCRIPTOR descriptor = ask(says);
    EXPECT_EQ(descriptor.Size, 0xFFFFFFFFU);
    EXPECT_EQ(descriptor.Version, 1U);
    EXPECT_EQ(descriptor.VendorIdOffset, 0U);
    EXPECT_EQ(descriptor.ProductIdOffset, 0xFFFFFFFFU);
    EXPECT_EQ(descriptor.ProductRevisionOffset, 5000U);
    EXPECT_EQ(descriptor.SerialNumberOffset + 4, answer.size()); // "A200" without its NUL
    EXPECT_EQ(answer.back(), '0');
}

TEST_F(StorageQueries, MayBeShortOrAnythingAtAll) {
    DiskDescription says = usual();
    says.storageAnswer.shortenTo = 20;
    EXPECT_GT(ask(says).Size, 40U);
    EXPECT_EQ(status, STATUS_SUCCESS);
    EXPECT_EQ(answer.size(), 20U);
    machine.unplug(*machine.find("stick"));
    says.storageAnswer.replace = Bytes{1, 2, 3};
    ask(says);
    EXPECT_EQ(answer, (Bytes{1, 2, 3}));
}

} // namespace
} // namespace sim::machinetest
