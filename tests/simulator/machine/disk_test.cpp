#include "simulator/kernel/kernel.h"
#include "simulator/machine/storage_codes.h"
#include "simulator/process/user_process.h"
#include "test_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace sim::machinetest {
namespace {

using testing::IsEmpty;

/// A control request to one device object, not to the top of its stack.
NTSTATUS askStorage(PDEVICE_OBJECT device, std::vector<std::uint8_t> &output, ULONG_PTR &information) {
    STORAGE_PROPERTY_QUERY query{};
    return FsRtlIssueDeviceIoControl(device, IOCTL_STORAGE_QUERY_PROPERTY, 0, &query, sizeof(query), output.data(),
                                     static_cast<ULONG>(output.size()), &information);
}

std::string textAt(const std::vector<std::uint8_t> &bytes, ULONG offset) {
    return offset == 0 ? "" : std::string(reinterpret_cast<const char *>(bytes.data()) + offset);
}

STORAGE_DEVICE_DESCRIPTOR descriptorIn(const std::vector<std::uint8_t> &bytes) {
    STORAGE_DEVICE_DESCRIPTOR descriptor;
    std::memcpy(&descriptor, bytes.data(), sizeof(descriptor));
    return descriptor;
}

struct Disks : testing::Test {
    TestDriver driver;
    Machine machine{driver.options()};
    UserProcess user{700};
    UserProcess::Handle handle = 0;

    ~Disks() override {
        user.die();
        machine.unloadDriver();
        EXPECT_THAT(machine.leaks(), IsEmpty());
    }

    static DeviceDescription stick() {
        return usbFlashDrive("stick", {0x0781, 0x5581, 0x0123, u"SanDisk", u"Ultra", u"A200"});
    }
    DeviceNode &plugStick(DeviceDescription description = stick()) {
        machine.presetClassFilters();
        machine.plug(std::move(description));
        return *machine.find("stick disk");
    }
    void openDisk(DeviceNode &node) { ASSERT_EQ(user.open(node.physicalDevice(), handle), STATUS_SUCCESS); }
};

TEST_F(Disks, TheirPortAnswersTheStorageQueryWhileTheStackIsBuilt) {
    std::vector<std::uint8_t> answer(2088);
    ULONG_PTR information = 0;
    driver.onAdd = [&](PDEVICE_OBJECT physical) {
        if (physical->AttachedDevice->DriverObject !=
            machine.driverObject()) { // the disk, below whose filter disk.sys is
            EXPECT_EQ(askStorage(physical, answer, information), STATUS_SUCCESS);
        }
    };
    EXPECT_TRUE(plugStick().started());
    const STORAGE_DEVICE_DESCRIPTOR descriptor = descriptorIn(answer);
    EXPECT_EQ(descriptor.Size, information);
    EXPECT_EQ(descriptor.Version, sizeof(descriptor));
    EXPECT_EQ(descriptor.BusType, BusTypeUsb);
    EXPECT_TRUE(descriptor.RemovableMedia);
    EXPECT_EQ(textAt(answer, descriptor.VendorIdOffset), "SanDisk ");
    EXPECT_EQ(textAt(answer, descriptor.ProductIdOffset), "Ultra           ");
    EXPECT_EQ(textAt(answer, descriptor.SerialNumberOffset), "A200");
}

TEST_F(Disks, ReadsAndWritesReachTheMedium) {
    DeviceNode &node = plugStick();
    openDisk(node);
    Medium &medium = machine.medium("stick disk");
    const std::vector<std::uint8_t> before = medium.contents();
    const auto read = user.read(handle, 1024, 512);
    EXPECT_EQ(read->status(), STATUS_SUCCESS);
    EXPECT_EQ(read->received(), medium.contents(1024, 512));
    const std::vector<std::uint8_t> data(512, 0x5A);
    const auto write = user.write(handle, 2048, data);
    EXPECT_EQ(write->status(), STATUS_SUCCESS);
    EXPECT_EQ(write->information(), 512U);
    std::vector<std::uint8_t> expected = before;
    std::copy(data.begin(), data.end(), expected.begin() + 2048);
    EXPECT_EQ(medium.contents(), expected);
    EXPECT_EQ(medium.reads(), 1U);
    EXPECT_EQ(medium.writes(), 1U);
}

} // namespace
} // namespace sim::machinetest
