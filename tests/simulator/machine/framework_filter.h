#pragma once

#include "simulator/machine/machine.h"

#include <wdf.h>

#include <functional>
#include <string>

namespace sim::machinetest {

/// What the filter keeps with its framework device.
struct ProbeFilter {
    ULONG mark;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(ProbeFilter, probeFilterOf)

/// A filter made with the framework, linked into the test and bound as the entry stub of a real image does it. Its
/// behaviour is set through the public members before the machine needs it. One at a time.
class FrameworkFilter {
  public:
    FrameworkFilter();
    ~FrameworkFilter();
    FrameworkFilter(const FrameworkFilter &) = delete;
    FrameworkFilter &operator=(const FrameworkFilter &) = delete;

    /// Options of a machine that loads it.
    MachineOptions options() const;

    bool setsFilter = true;                    ///< it declares itself a filter
    NTSTATUS addStatus = STATUS_SUCCESS;       ///< what its device-add callback returns
    std::function<void(WDFDEVICE)> onDevice{}; ///< runs in the callback, after the device was made
    unsigned cleanups = 0;                     ///< of its devices
};

} // namespace sim::machinetest
