#pragma once

#include "attached_device.h"
#include "child_list.h"

namespace sim::machine {

/// The function driver's device of any service that this machine does not know better: it starts, answers creates, and
/// reports the devices below it, so that it serves as a bus driver too (composite parent, USB storage, host
/// controller).
class FunctionDevice : public AttachedDevice {
  public:
    FunctionDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, ULONG deviceType = FILE_DEVICE_UNKNOWN,
                   std::u16string_view name = {});

    ChildList &children() { return children_; }

  protected:
    /// Device control requests, internal ones too. The default refuses them.
    virtual NTSTATUS deviceControl(PIRP irp, PIO_STACK_LOCATION location);

    /// Reads and writes. The default refuses them.
    virtual NTSTATUS transfer(PIRP irp, PIO_STACK_LOCATION location);
    /// The start was successful, or the device is about to be stopped or removed.
    virtual void startedOrStopped(bool) {}

    ChildList children_;

  private:
    NTSTATUS handle(PIRP irp, PIO_STACK_LOCATION location) override;
    NTSTATUS plugAndPlay(PIRP irp, PIO_STACK_LOCATION location);
    NTSTATUS start(PIRP irp);
    NTSTATUS power(PIRP irp, PIO_STACK_LOCATION location);
};

/// The top of every device tree: the object of \Driver\PnpManager that has no driver above and no parent.
class RootDevice final : public SimulatedDevice {
  public:
    explicit RootDevice(PDRIVER_OBJECT driver);

    ChildList &children() { return children_; }

  private:
    NTSTATUS handle(PIRP irp, PIO_STACK_LOCATION location) override;

    ChildList children_;
};

} // namespace sim::machine
