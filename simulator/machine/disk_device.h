#pragma once

#include "disk_port.h"
#include "function_device.h"

namespace sim::machine {

/// The disk class driver's device of one disk, between its port and the filters above. It asks the port for what the
/// real one asks by SCSI requests.
class DiskDevice final : public FunctionDevice {
  public:
    /// `number` is the disk's in "\Device\HarddiskN\DRN" and "\\.\PhysicalDriveN".
    DiskDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice, DiskPort &port, unsigned number);

    unsigned number() const { return number_; }

  private:
    NTSTATUS transfer(PIRP irp, PIO_STACK_LOCATION location) override;
    NTSTATUS deviceControl(PIRP irp, PIO_STACK_LOCATION location) override;
    void startedOrStopped(bool running) override { running_ = running; }
    DiskAnswer answer(PIRP irp, const IO_STACK_LOCATION &location) const;

    DiskPort &port_;
    const unsigned number_;
    std::atomic<bool> running_ = false;
};

} // namespace sim::machine
