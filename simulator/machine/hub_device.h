#pragma once

#include "action_queue.h"
#include "function_device.h"
#include "machine.h"

#include <functional>

namespace sim::machine {

/// The hub driver's own device of one hub. Answers the user requests of hubs for the devices on its ports.
class HubDevice final : public FunctionDevice {
  public:
    using CyclePort = std::function<void(PDEVICE_OBJECT physicalDevice)>;

    HubDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, std::uint32_t ports, HubStatuses statuses,
              CyclePort cyclePort);

    std::uint32_t ports() const { return ports_; }

  private:
    NTSTATUS deviceControl(PIRP irp, PIO_STACK_LOCATION location) override;
    NTSTATUS answer(PIRP irp, PIO_STACK_LOCATION location);
    bool answersLater(PIRP irp, PIO_STACK_LOCATION location) const;
    NTSTATUS connectionInformation(PIRP irp, PIO_STACK_LOCATION location);
    NTSTATUS descriptorFromConnection(PIRP irp, PIO_STACK_LOCATION location);
    NTSTATUS cyclePort(PIRP irp, PIO_STACK_LOCATION location);

    const std::uint32_t ports_;
    const HubStatuses statuses_;
    const CyclePort cyclePort_;
    ActionQueue wire_; ///< completes what the device answers later
};

} // namespace sim::machine
