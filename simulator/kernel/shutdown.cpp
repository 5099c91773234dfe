// Shutdown notification.

#include "internals.h"
#include "io.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

namespace sim {

void sendShutdown() {
    DeviceTable &table = kernel().internals->devices;
    std::vector<PDEVICE_OBJECT> devices;
    {
        std::lock_guard lock(table.mutex);
        devices.assign(table.shutdownList.rbegin(), table.shutdownList.rend());
        for (PDEVICE_OBJECT device : devices) {
            kernel().objects.reference(device, nullptr);
        }
    }
    for (PDEVICE_OBJECT device : devices) {
        PIRP irp = allocateIrp(device->StackSize, nullptr);
        setIrpThread(irp);
        IoGetNextIrpStackLocation(irp)->MajorFunction = IRP_MJ_SHUTDOWN;
        sendAndWait(device, irp);
        freeIrp(irp);
        kernel().objects.dereference(device, nullptr);
    }
}

} // namespace sim

using namespace sim;

// learn.microsoft.com: IoRegisterShutdownNotification
extern "C" NTSTATUS IoRegisterShutdownNotification(PDEVICE_OBJECT device) {
    constexpr auto routine = "IoRegisterShutdownNotification";
    requirePassive(routine, SIM_CALL_SITE);
    requireDevice(device, routine, SIM_CALL_SITE);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    DeviceTable &table = kernel().internals->devices;
    std::lock_guard lock(table.mutex);
    table.shutdownList.push_back(device);
    device->Flags |= DO_SHUTDOWN_REGISTERED;
    return STATUS_SUCCESS;
}

// learn.microsoft.com: IoUnregisterShutdownNotification. Takes back every registration of the device.
extern "C" VOID IoUnregisterShutdownNotification(PDEVICE_OBJECT device) {
    constexpr auto routine = "IoUnregisterShutdownNotification";
    requirePassive(routine, SIM_CALL_SITE);
    requireDevice(device, routine, SIM_CALL_SITE);
    DeviceTable &table = kernel().internals->devices;
    std::lock_guard lock(table.mutex);
    std::erase(table.shutdownList, device);
    device->Flags &= ~DO_SHUTDOWN_REGISTERED;
}
