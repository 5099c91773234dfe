#pragma once

#include "simulated_device.h"

namespace sim::machine {

/// A device object attached above a physical device: what filters and function drivers have in common.
class AttachedDevice : public SimulatedDevice {
  protected:
    /// Creates the object and puts it on top of the stack of `physicalDevice`.
    AttachedDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, ULONG deviceType,
                   std::u16string_view name = {});

    NTSTATUS passOn(PIRP irp);
    /// Sends a copy down and waits until the lower drivers have completed it; the caller then completes the IRP.
    NTSTATUS passOnAndWait(PIRP irp);
    /// IRP_MN_REMOVE_DEVICE: passes it down, leaves the stack, deletes the object.
    NTSTATUS remove(PIRP irp);

    PDEVICE_OBJECT lower_ = nullptr;
};

/// A filter that passes everything on, as other makers' filters do for all this machine cares.
class PassThroughFilter final : public AttachedDevice {
  public:
    PassThroughFilter(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice);

  private:
    NTSTATUS handle(PIRP irp, PIO_STACK_LOCATION location) override;
};

} // namespace sim::machine
