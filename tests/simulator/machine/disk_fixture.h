#pragma once

#include "simulator/machine/storage_codes.h"
#include "simulator/machine/storage_device.h"
#include "simulator/process/user_process.h"
#include "test_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace sim::machinetest {

/// The bytes of a structure.
template<typename Structure>
std::vector<std::uint8_t> bytesOfStructure(const Structure &structure) {
    std::vector<std::uint8_t> bytes(sizeof(structure));
    std::memcpy(bytes.data(), &structure, sizeof(structure));
    return bytes;
}

/// The structure that bytes begin with; the test fails when there are too few.
template<typename Structure>
Structure structureIn(const std::vector<std::uint8_t> &bytes) {
    Structure structure{};
    EXPECT_GE(bytes.size(), sizeof(structure));
    std::memcpy(&structure, bytes.data(), std::min(bytes.size(), sizeof(structure)));
    return structure;
}

/// A flash drive, "stick", with its disk, "stick disk".
inline DeviceDescription flashDrive() {
    return usbFlashDrive("stick", {0x0781, 0x5581, 0x0123, u"SanDisk", u"Ultra", u"A200"});
}

/// A machine whose disks have a filter that passes everything on, and a program that uses them.
struct DiskTest : testing::Test {
    TestDriver driver;
    Machine machine{driver.options()};
    UserProcess user{700};
    UserProcess::Handle handle = 0;

    DiskTest() { machine.presetClassFilters(); }
    ~DiskTest() override {
        user.die();
        machine.unloadDriver();
        EXPECT_THAT(machine.leaks(), testing::IsEmpty());
    }

    /// Plugs a flash drive whose disk says what is given.
    DeviceNode &plugStick(const DiskDescription &says) {
        DeviceDescription description = flashDrive();
        description.children.front().disk = says;
        machine.plug(std::move(description));
        return *machine.find("stick disk");
    }
    DeviceNode &plugStick() { return plugStick(*flashDrive().children.front().disk); }
    void openDisk(DeviceNode &disk) { ASSERT_EQ(user.open(disk.physicalDevice(), handle), STATUS_SUCCESS); }
    Medium &medium() { return machine.medium("stick disk"); }

    NTSTATUS control(ULONG code, std::size_t output = 0, std::vector<std::uint8_t> input = {}) {
        const auto io = user.control(handle, {code, std::move(input), output});
        received = io->received();
        return io->status();
    }
    std::vector<std::uint8_t> received; ///< by the last control request
};

} // namespace sim::machinetest
