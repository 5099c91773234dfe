#pragma once

#include "simulator/process/user_process.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/disks.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {

/// Control codes that programs send to disks.
inline constexpr std::uint32_t isWritableCode = 0x70024;
inline constexpr std::uint32_t geometryCode = 0x70000;
inline constexpr std::uint32_t lengthCode = 0x7405C;
inline constexpr std::uint32_t manageDataSetCode = 0x2D9404;

/// A machine with disks, and a program that reads and writes them behind the file systems' back.
class StorageTest : public DriverTest {
  protected:
    using Handle = sim::UserProcess::Handle;

    /// The driver started, with the default policy unless told otherwise.
    void startWith(const Policy &policy = {});
    sim::DeviceNode &plugBelowRoot(sim::DeviceDescription device) {
        return plug(std::move(device), &machine().rootNode());
    }

    Handle openDisk(std::string_view disk);
    NTSTATUS read(Handle handle, std::uint64_t offset = 0, std::size_t bytes = 512);
    NTSTATUS write(Handle handle, std::uint64_t offset = 0, std::size_t bytes = 512);
    NTSTATUS control(Handle handle, std::uint32_t code, std::size_t outputBytes = 0,
                     std::vector<std::uint8_t> input = {});

    /// The top of the disk's stack: the driver's filter, if it has one.
    PDEVICE_OBJECT filterOn(std::string_view disk);

    /// Tries to read and write the disk in many ways.
    void expectWritable(std::string_view disk);
    void expectReadOnly(std::string_view disk);
    /// Plug and Play was told of the failure: the disk does not start.
    void expectCode31(std::string_view disk, NTSTATUS status);
    /// The disk works, and the driver is not in its stack.
    void expectUnfiltered(std::string_view disk);
    void expectDisabled(std::string_view disk);

    void TearDown() override;

    sim::UserProcess user{300};
};

} // namespace behaviour
