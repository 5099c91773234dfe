#include "simulated_device.h"

#include "../kernel/io.h"

namespace sim::machine {

namespace {

struct Extension {
    SimulatedDevice *device;
};

} // namespace

void SimulatedDevice::create(PDRIVER_OBJECT driver, ULONG deviceType, ULONG characteristics, std::u16string_view name) {
    object_ = createDevice(driver, sizeof(Extension), deviceType, characteristics, name);
    static_cast<Extension *>(object_->DeviceExtension)->device = this;
}

void SimulatedDevice::madeWhole() {
    whole_.store(true, std::memory_order_release);
    whole_.notify_all();
}

NTSTATUS SimulatedDevice::dispatch(PDEVICE_OBJECT device, PIRP irp) {
    SimulatedDevice &self = *static_cast<Extension *>(device->DeviceExtension)->device;
    self.whole_.wait(false, std::memory_order_acquire);
    if (!self.removeLock_.enter()) {
        return complete(irp, STATUS_NO_SUCH_DEVICE, 0);
    }
    const NTSTATUS status = self.handle(irp, IoGetCurrentIrpStackLocation(irp));
    self.removeLock_.leave();
    return status;
}

NTSTATUS SimulatedDevice::complete(PIRP irp, NTSTATUS status, ULONG_PTR information) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

NTSTATUS SimulatedDevice::completeAsIs(PIRP irp) {
    const NTSTATUS status = irp->IoStatus.Status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

} // namespace sim::machine
