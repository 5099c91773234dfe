#pragma once

#include "../../simulator/machine/device_description.h"
#include "../reg/reg_file.h"
#include "expectation.h"
#include "process_actions.h"
#include "value_parser.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace cli {

/// Changes to the registry, in file order.
using RegistryChanges = std::vector<RegOperation>;

/// A file below \SystemRoot\Temp; without bytes it is removed.
struct TempFile {
    std::string name;
    std::optional<std::string> bytes;
};

/// Which platform calls fail. Without a routine the calls of all routines are counted together.
struct FaultPlanned {
    std::string routine;
    std::uint64_t nth = 1;
    bool allAfter = false;
    std::optional<NTSTATUS> status;
};
using Faults = std::vector<FaultPlanned>;

struct ScenarioDevice {
    sim::DeviceDescription description;
    std::string parent; ///< a device's path, "root", "pci" or empty for the machine's USB root hub
    std::vector<DeviceExpectation> expectations;
    Location where;
};

// What a step does.
struct LoadDriver {};
struct UnloadDriver {};
struct StartControlNode {};
struct PlugDevices {
    std::vector<std::string> names; ///< empty: every device of the file that is not there yet
};
struct UnplugDevices {
    std::vector<std::string> names;
};
struct ReplugDevices {
    std::vector<std::string> names;
};
struct ChangeRegistry {
    RegistryChanges changes;
};
struct ChangeFiles {
    std::vector<TempFile> files;
};
struct SetClock {
    std::int64_t localTime = 0; ///< 100-nanosecond units since 1601
};
struct AdvanceClock {
    std::int64_t units = 0; ///< 100-nanosecond units
};
struct PlanFaults {
    Faults faults; ///< empty: calls succeed again
};
struct SetVolume {
    enum class State { mounted, unmounted, full } state = State::mounted;
};
struct SetLogWorkers {
    bool paused = false;
};
struct ChangePower {
    enum class To { sleep, wake, shutDown } to = To::sleep;
};
/// A program's request to a disk.
struct UseDisk {
    enum class Kind { read, write, control } kind = Kind::read;
    std::string disk;
    std::uint64_t offset = 0;
    std::size_t length = 0;         ///< to read, or of the control request's output
    std::vector<std::uint8_t> data; ///< to write, or the control request's input
    std::uint32_t code = 0;
    bool waits = true;
};
struct AwaitDisk {
    std::string disk;
};
/// A program saves to the volume on a disk.
struct SaveToVolume {
    std::string disk;
    std::uint64_t offset = 0;
    std::vector<std::uint8_t> data;
};
struct WriteBack {
    std::string disk;
};
struct MountMedium {
    std::string disk;
};
/// Somebody handles the medium; what is left out stays.
struct ChangeMedium {
    std::string disk;
    std::optional<bool> present;
    std::optional<bool> writeProtected;
    std::optional<bool> stalled;
};
struct OnlyExpect {};

using Action =
    std::variant<LoadDriver, UnloadDriver, StartControlNode, PlugDevices, UnplugDevices, ReplugDevices, ChangeRegistry,
                 ChangeFiles, SetClock, AdvanceClock, PlanFaults, SetVolume, SetLogWorkers, ChangePower, ProcessAction,
                 UseDisk, AwaitDisk, SaveToVolume, WriteBack, MountMedium, ChangeMedium, OnlyExpect>;

struct Step {
    std::string title; ///< e.g. "plug stick"
    Action action = OnlyExpect();
    Faults faults; ///< during this step only
    StepExpectations expectations;
    Location where;
};

/// A machine and what happens to it, as one file describes it.
struct Scenario {
    std::string name;
    std::string file;
    std::optional<std::int64_t> localTime; ///< of the clock at the start; 100-nanosecond units since 1601
    std::int64_t bias = 0;                 ///< UTC minus local time, 100-nanosecond units
    std::vector<std::u16string> hubDrivers{u"USBHUB3"};
    std::vector<std::u16string> services;        ///< ordinary drivers for foreign filters
    std::vector<std::u16string> missingRoutines; ///< kernel routines that an older system lacks
    bool installed = false;                      ///< the class filter lists name the driver from the start
    bool logInOrder = true;
    RegistryChanges registry;
    std::vector<TempFile> files;
    std::vector<ScenarioDevice> devices;
    std::vector<Step> steps;
};

} // namespace cli
