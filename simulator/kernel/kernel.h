#pragma once

#include "clock.h"
#include "device_properties.h"
#include "faults.h"
#include "files.h"
#include "object.h"
#include "pool.h"
#include "registry.h"
#include "trace.h"
#include "workers.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sim {

struct Internals;

/// All state of one simulated kernel. One exists at a time; simulated routines reach it through kernel().
struct Kernel {
    explicit Kernel(std::filesystem::path systemRoot, bool keepFiles);
    ~Kernel();
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;

    Pool pool;
    Clock clock;
    FaultPlan faults;
    Registry registry;
    ObjectManager objects;
    FileSystem files;
    Trace trace;
    std::unique_ptr<Internals> internals; ///< what the routine families keep for themselves
    WorkQueue workers;                    ///< last: its threads end before anything else goes

    /// Looked up by MmGetSystemRoutineAddress before the exports; an entry of null hides a routine.
    std::map<std::u16string, void *> systemRoutines;

    /// Answers property and interface queries; set by the machine. Not owned. Without one those routines stop the run.
    DevicePropertyProvider *deviceProperties = nullptr;
    /// IoInvalidateDeviceState: the machine asks the device's stack for its state again. Unset: nothing happens.
    std::function<void(PDEVICE_OBJECT physicalDevice)> invalidateDeviceState;
    /// Runs something in a thread of the system's own, soon; set by the machine. Unset: the caller does it itself.
    std::function<void(std::function<void()> action)> runLater;
    /// The last reference to a file object on a device is gone; set by the machine, whose removals may wait for that.
    std::function<void()> deviceFileClosed;

    /// False: string comparisons at APC_LEVEL only print a warning.
    bool stopOnComparisonAtApcLevel = true;

    /// Everything a driver left behind: pool, handles, references, IRPs, work items, locks, framework objects.
    std::vector<std::string> leaks() const;
};

/// The machine's kernel; stops the process when there is none.
Kernel &kernel();

} // namespace sim
