#pragma once

#include <ntifs.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace sim {

/// What the I/O manager keeps for one device object besides the structure itself.
struct DeviceState {
    bool deletePending = false;         ///< IoDeleteDevice was called
    bool deleted = false;               ///< and took effect: off the driver's list, the creator's reference gone
    std::vector<std::uint8_t> security; ///< self-relative; empty: no descriptor
};

/// The I/O database: device lists, attachments and shutdown registrations change only under its lock.
class DeviceTable {
  public:
    std::recursive_mutex mutex;
    std::map<PDEVICE_OBJECT, DeviceState> devices;
    std::vector<PDEVICE_OBJECT> shutdownList; ///< in order of registration, one entry per registration
};

/// Stops the run unless `device` is a live device object.
void requireDevice(const void *device, const char *routine, const void *callSite);

} // namespace sim
