#pragma once

#include "device_description.h"
#include "medium.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim::machine {

/// A device that is physically there, whether or not Plug and Play knows it at the moment: what is below a hub stays
/// plugged while the hub is disabled or its port is cycled. Description and address do not change once it is connected;
/// the rest is guarded by the device tree's lock.
struct Hardware {
    DeviceDescription description;
    std::uint32_t address = noAddress; ///< port number below a hub, interface number below a composite device
    std::shared_ptr<Medium> medium;    ///< of a disk
    Hardware *above = nullptr;         ///< null for the root and for what has been unplugged
    std::vector<std::shared_ptr<Hardware>> below;
};

/// The device with everything that is described below it. Throws std::invalid_argument for a description that
/// contradicts itself.
std::shared_ptr<Hardware> assembleHardware(const DeviceDescription &description);

/// The media that were ever in a machine, by the names of their disks: a stick that is pulled out and plugged in again
/// holds what it held. Thread-safe.
class MediumStore {
  public:
    /// Gives every disk of the hardware its medium.
    void equip(Hardware &hardware);
    std::shared_ptr<Medium> find(const std::string &disk) const;

  private:
    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Medium>> media_;
};

/// Plugs it in: chooses its address. Throws std::invalid_argument when a name or an instance id below `root` is the
/// same, when no port is free, or when the parent has no driver that could report it. Nothing is changed then.
void connectHardware(const std::shared_ptr<Hardware> &hardware, Hardware &parent, const Hardware &root);
/// Pulls it out. Does nothing when that was done before.
void disconnectHardware(Hardware &hardware);

/// The driver that reports what is below a device; empty when there is none.
std::u16string busDriverBelow(const DeviceDescription &parent);
/// The driver that makes a device's physical device object; empty when there can be none.
std::u16string busDriverOf(const DeviceDescription &description, const DeviceDescription &parent);

} // namespace sim::machine
