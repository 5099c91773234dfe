#include "device/storage_descriptor.h"

#include "tests/unit/fixture/disk_stand_in.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

constexpr ULONG usualBytes = 2088;

class StorageDescriptors : public KernelTest {
  protected:
    NTSTATUS read() { return descriptor.read(disk.device()); }
    std::string text(ULONG offset) const {
        const ANSI_STRING found = descriptor.text(offset);
        return {found.Buffer, found.Length};
    }
    std::vector<ULONG> sizesAsked() const {
        std::vector<ULONG> sizes;
        for (const StorageQuery &query : disk.queries) {
            sizes.push_back(query.outputBytes);
        }
        return sizes;
    }
    /// A descriptor of that many bytes whose serial number is its last string.
    static DescriptorBytes longOne(std::size_t bytes) {
        DescriptorBytes descriptor;
        descriptor.header().BusType = BusTypeNvme;
        descriptor.header().VendorIdOffset = descriptor.addString(std::string(bytes - 60, 'v'));
        descriptor.header().SerialNumberOffset =
            descriptor.addString(std::string(bytes - descriptor.whole().size() - 1, 's'));
        return descriptor;
    }

    DiskStandIn disk;
    StorageDescriptor descriptor;
};

TEST_F(StorageDescriptors, AreAskedForOnceWithTheStandardQuery) {
    DescriptorBytes given;
    given.header().BusType = BusTypeUsb;
    disk.answerWith(given.whole());
    ASSERT_EQ(read(), STATUS_SUCCESS);
    ASSERT_EQ(disk.queries.size(), 1u);
    const StorageQuery &query = disk.queries[0];
    EXPECT_EQ(query.code, 0x2D1400u);
    EXPECT_EQ(query.inputBytes, 12u);
    EXPECT_EQ(query.outputBytes, usualBytes);
    EXPECT_EQ(query.input.PropertyId, StorageDeviceProperty);
    EXPECT_EQ(query.input.QueryType, PropertyStandardQuery);
    EXPECT_EQ(query.input.AdditionalParameters[0], 0);
    EXPECT_EQ(descriptor.header().BusType, BusTypeUsb);
}

TEST_F(StorageDescriptors, ThatComeLaterAreWaitedFor) {
    disk.pends = true;
    DescriptorBytes given;
    given.header().BusType = BusTypeSata;
    disk.answerWith(given.whole());
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(descriptor.header().BusType, BusTypeSata);
    disk.answerInTurn({{STATUS_DEVICE_NOT_READY, {}}});
    EXPECT_EQ(read(), STATUS_DEVICE_NOT_READY);
}

TEST_F(StorageDescriptors, StatusOfTheStackIsReturnedUnchanged) {
    disk.answerInTurn({{STATUS_INVALID_DEVICE_REQUEST, {}}});
    EXPECT_EQ(read(), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(disk.queries.size(), 1u);
}

TEST_F(StorageDescriptors, LargerThanTheBufferAreReadAgainWhenTheStackTells) {
    DescriptorBytes given = longOne(5000);
    disk.answerWith(given.whole(), STATUS_BUFFER_OVERFLOW);
    ASSERT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(sizesAsked(), (std::vector<ULONG>{usualBytes, 5000}));
    EXPECT_EQ(text(given.header().SerialNumberOffset), std::string(5000 - given.header().SerialNumberOffset - 1, 's'));
}

TEST_F(StorageDescriptors, LargerThanTheBufferAreReadAgainWhenTheStackDoesNotTell) {
    DescriptorBytes given = longOne(2089);
    disk.answerWith(given.whole());
    ASSERT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(sizesAsked(), (std::vector<ULONG>{usualBytes, 2089}));
    EXPECT_EQ(text(given.header().SerialNumberOffset), std::string(2089 - given.header().SerialNumberOffset - 1, 's'));
}

TEST_F(StorageDescriptors, ThatJustFitAreReadOnce) {
    DescriptorBytes given = longOne(usualBytes);
    disk.answerWith(given.whole());
    ASSERT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(sizesAsked(), std::vector<ULONG>{usualBytes});
    EXPECT_EQ(text(given.header().SerialNumberOffset),
              std::string(usualBytes - given.header().SerialNumberOffset - 1, 's'));
}

TEST_F(StorageDescriptors, FailureOfTheSecondReadIsReturnedWhenTheStackSaidThatTheFirstWasShort) {
    DescriptorBytes given = longOne(3000);
    disk.answerInTurn({{STATUS_BUFFER_OVERFLOW, given.whole()}, {STATUS_DEVICE_NOT_CONNECTED, {}}});
    EXPECT_EQ(read(), STATUS_DEVICE_NOT_CONNECTED);
    disk.queries.clear();
    disk.answerInTurn({{STATUS_BUFFER_OVERFLOW, given.whole()}});
    EXPECT_EQ(read(), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(disk.queries.size(), 2u);
}

TEST_F(StorageDescriptors, TheFirstAnswerStandsWhenItSucceededAndTheSecondCannotBeHad) {
    DescriptorBytes given;
    given.header().VendorIdOffset = given.addString("ACME");
    given.add(std::string(3000, 'x'));
    disk.answerInTurn({{STATUS_SUCCESS, given.whole()}, {STATUS_DEVICE_NOT_CONNECTED, {}}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(text(given.header().VendorIdOffset), "ACME");
}

TEST_F(StorageDescriptors, TheFirstAnswerStandsWhenTheSecondHasLess) {
    DescriptorBytes given = longOne(3000);
    disk.answerInTurn({{STATUS_SUCCESS, given.whole()}, {STATUS_SUCCESS, DescriptorBytes().whole()}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(descriptor.header().BusType, BusTypeNvme);
    EXPECT_EQ(text(given.header().VendorIdOffset), std::string(usualBytes - given.header().VendorIdOffset, 'v'));
}

TEST_F(StorageDescriptors, ASecondAnswerOfAnotherSizeIsTakenForWhatItHolds) {
    DescriptorBytes first = longOne(4000);
    DescriptorBytes second = longOne(2500);
    disk.answerInTurn({{STATUS_BUFFER_OVERFLOW, first.whole()}, {STATUS_SUCCESS, second.whole()}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(text(2490), std::string(9, 's'));
    EXPECT_EQ(text(2500), "");
    EXPECT_EQ(text(3999), "");
}

TEST_F(StorageDescriptors, ThatClaimLessThanTheyHoldAreReadOnceAndWhole) {
    DescriptorBytes given;
    const ULONG offset = given.addString("ACME");
    given.header().Size = 8;
    disk.answerInTurn({{STATUS_SUCCESS, given.asTheyAre()}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(disk.queries.size(), 1u);
    EXPECT_EQ(text(offset), "ACME");
}

TEST_F(StorageDescriptors, ThatClaimMoreThanTheyHoldGiveNoMore) {
    DescriptorBytes given;
    const ULONG offset = given.add("ACME");
    given.header().Size = 500;
    disk.answerInTurn({{STATUS_SUCCESS, given.asTheyAre()}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(text(offset), "ACME"); // ends with the bytes, not with the buffer's zeros behind them
    EXPECT_EQ(text(offset + 4), "");
    EXPECT_EQ(text(499), "");
}

TEST_F(StorageDescriptors, ThatClaimAHugeSizeGetABoundedBuffer) {
    for (const ULONG claimed : {0x10001u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        for (const NTSTATUS status : {STATUS_SUCCESS, STATUS_BUFFER_OVERFLOW}) {
            disk.queries.clear();
            DescriptorBytes given;
            given.header().Size = claimed;
            given.header().BusType = BusTypeUsb;
            disk.answerInTurn({{status, given.asTheyAre()}, {STATUS_SUCCESS, given.asTheyAre()}});
            EXPECT_EQ(read(), STATUS_SUCCESS);
            EXPECT_EQ(sizesAsked(), (std::vector<ULONG>{usualBytes, 0x10000}));
            EXPECT_EQ(descriptor.header().BusType, BusTypeUsb);
        }
    }
}

TEST_F(StorageDescriptors, ThatAreTooLongWithoutASizeAreAskedForTheirFixedPart) {
    DescriptorBytes given;
    given.header().Size = 0;
    given.header().BusType = BusTypeUsb;
    disk.answerInTurn({{STATUS_BUFFER_OVERFLOW, given.asTheyAre()}, {STATUS_SUCCESS, given.asTheyAre()}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(sizesAsked(), (std::vector<ULONG>{usualBytes, 40}));
    EXPECT_EQ(descriptor.header().BusType, BusTypeUsb);
}

TEST_F(StorageDescriptors, WhatWasNotReturnedOfTheFixedPartIsZero) {
    DescriptorBytes given;
    given.header().RemovableMedia = 1;
    given.header().BusType = BusTypeNvme;
    given.header().Size = 12;
    std::vector<std::uint8_t> bytes = given.asTheyAre();
    bytes.resize(12);
    disk.answerInTurn({{STATUS_SUCCESS, bytes}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(descriptor.header().RemovableMedia, 1);
    EXPECT_EQ(descriptor.header().VendorIdOffset, 0u);
    EXPECT_EQ(descriptor.header().BusType, BusTypeUnknown);
    disk.answerInTurn({{STATUS_SUCCESS, {}}});
    EXPECT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(descriptor.header().RemovableMedia, 0); // nothing of the answer before
}

TEST_F(StorageDescriptors, TextsEndWithTheirNul) {
    DescriptorBytes given;
    const ULONG vendor = given.addString("ACME");
    const ULONG product = given.addString("Disk 1000");
    const ULONG empty = given.addString("");
    disk.answerWith(given.whole());
    ASSERT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(text(vendor), "ACME");
    EXPECT_EQ(text(product), "Disk 1000");
    EXPECT_EQ(text(empty), "");
    EXPECT_EQ(text(product + 5), "1000");
}

TEST_F(StorageDescriptors, TextsOfOffsetsThatCannotBeAreEmpty) {
    DescriptorBytes given;
    given.addString("ACME");
    const auto bytes = static_cast<ULONG>(given.whole().size());
    disk.answerWith(given.whole());
    ASSERT_EQ(read(), STATUS_SUCCESS);
    for (const ULONG offset : {ULONG{0}, bytes, bytes + 1, usualBytes - 1, usualBytes, 0x80000000u, 0xFFFFFFFFu}) {
        const ANSI_STRING found = descriptor.text(offset);
        EXPECT_EQ(found.Length, 0) << offset;
        EXPECT_EQ(found.Buffer, nullptr) << offset;
    }
    EXPECT_EQ(text(bytes - 2), "E");
    EXPECT_EQ(text(bytes - 1), "");
}

TEST_F(StorageDescriptors, TextsAreCutToWhatACountedStringHolds) {
    DescriptorBytes given;
    const ULONG offset = given.add(std::string(0x10000 - 40, 'x'));
    disk.answerWith(given.whole());
    ASSERT_EQ(read(), STATUS_SUCCESS);
    EXPECT_EQ(sizesAsked(), (std::vector<ULONG>{usualBytes, 0x10000}));
    EXPECT_EQ(text(offset), std::string(32766, 'x'));
}

TEST_F(StorageDescriptors, NothingIsLeftBehindWhateverFails) {
    DescriptorBytes given = longOne(3000);
    disk.answerWith(given.whole(), STATUS_BUFFER_OVERFLOW);
    failEachCall(
        [&] {
            StorageDescriptor own;
            return own.read(disk.device());
        },
        [&](NTSTATUS status, bool failed) {
            EXPECT_EQ(status, failed ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS);
            EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
        });
}

TEST_F(StorageDescriptors, ShortMemoryForAWholeDescriptorLeavesTheFirstAnswer) {
    DescriptorBytes given = longOne(3000);
    disk.answerWith(given.whole());
    for (const char *routine : {"ExAllocatePool2", "IoBuildDeviceIoControlRequest"}) {
        EXPECT_EQ(whileFailing(routine, 2, [&] { return read(); }), STATUS_SUCCESS) << routine;
        EXPECT_EQ(descriptor.header().BusType, BusTypeNvme);
        EXPECT_EQ(text(given.header().SerialNumberOffset), "");
    }
}

} // namespace
} // namespace unit
