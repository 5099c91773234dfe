#pragma once

#include "action_queue.h"
#include "physical_device.h"

#include <functional>

namespace sim::machine {

/// How a request ended.
struct DiskAnswer {
    NTSTATUS status;
    ULONG_PTR information = 0;
};

/// The physical device object of a disk: what the port driver (USBSTOR, UASPSTOR, sdstor, stornvme, storahci) made for
/// a logical unit, and that driver's work for it. The class driver above lets it do its transfers.
class DiskPort final : public PhysicalDevice {
  public:
    DiskPort(PDRIVER_OBJECT driver, std::shared_ptr<Hardware> hardware, std::u16string_view name);

    const DiskDescription &disk() const { return *hardware().description.disk; }
    Medium &medium() const { return *hardware().medium; }

    /// Completes an IRP with what `work` says: at once, or later in another thread, as the disk is made; a transfer
    /// waits while the medium is stalled. `lock` is held until then. Without work, and with
    /// STATUS_DEVICE_DOES_NOT_EXIST, once the disk is gone.
    NTSTATUS serve(PIRP irp, RemoveLock &lock, bool isTransfer, std::function<DiskAnswer()> work);

    /// One read or write of the medium, direct I/O: sectors, and inside the medium.
    DiskAnswer transfer(PIRP irp, const IO_STACK_LOCATION &location);
    /// Whether transfers are possible: a medium is there.
    NTSTATUS readiness() const;

  private:
    NTSTATUS request(PIRP irp, PIO_STACK_LOCATION location) override;
    void disappear() override;
    std::function<DiskAnswer()> control(PIRP irp, PIO_STACK_LOCATION location);
    DiskAnswer queryProperty(PIRP irp, const IO_STACK_LOCATION &location);
    DiskAnswer passThrough(PIRP irp, const IO_STACK_LOCATION &location);
    DiskAnswer manageDataSet(PIRP irp, const IO_STACK_LOCATION &location);

    std::atomic<bool> gone_ = false;
    ActionQueue wire_; ///< completes what the disk answers later
};

} // namespace sim::machine
