#pragma once

#include "simulator/machine/machine.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fuzz {

/// The machine that all inputs of a process share, with the driver loaded once: libFuzzer keeps pointers into the
/// module's counters, so that it can't be unloaded. The policy filters everything of the usual classes and allows
/// nothing, unless an input says otherwise.
sim::Machine &machine();

/// Writes a value of the service's Parameters key, or takes it away when there is no type.
void setParameter(const std::u16string &name, std::optional<std::uint32_t> type, std::vector<std::uint8_t> data);
/// Whether the driver logs: the level is read again, as its service has it done.
void setLogging(bool on);
/// The policy that machine() begins with.
void setUsualPolicy();

/// What became of one device.
struct Outcome {
    bool added = false; ///< the driver was asked
    NTSTATUS returned = 0;
    bool hasFilter = false;
    std::uint32_t filterable = 0;
    std::uint32_t mode = 0;
    bool started = false;
    std::uint32_t problem = 0;
};

/// Plugs the device, looks at it and takes it away. Stops the process when the driver keeps anything of it.
/// The rule lists are the usual ones afterwards.
Outcome plugAndUnplug(const sim::DeviceDescription &device);

/// Stops the process, as a finding, unless the condition holds.
void require(bool condition, const char *what);

/// Any bytes, at most `most` of them.
std::vector<std::uint8_t> bytes(FuzzedDataProvider &data, std::size_t most);

} // namespace fuzz
