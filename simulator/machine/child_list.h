#pragma once

#include "physical_device.h"

#include <functional>
#include <mutex>
#include <vector>

namespace sim::machine {

/// The devices that one bus sees, and its answer to IRP_MN_QUERY_DEVICE_RELATIONS. Thread-safe.
class ChildList {
  public:
    void add(PhysicalDevice &device);
    void drop(const PhysicalDevice &device);
    /// The device at an address (port number); null when there is none. The first one found counts.
    PhysicalDevice *at(std::uint32_t address) const;

    /// Adds the bus's devices, each referenced, to what drivers above have put into the IRP already.
    /// learn.microsoft.com: IRP_MN_QUERY_DEVICE_RELATIONS.
    void report(PIRP irp) const;

  private:
    mutable std::mutex mutex_;
    std::vector<PhysicalDevice *> devices_;
};

/// A relations list in pool, as drivers hand it over in an IRP.
PDEVICE_RELATIONS allocateRelations(std::size_t count);
void freeRelations(PDEVICE_RELATIONS relations);

} // namespace sim::machine
