#include "service_process.h"

#include "simulator/kernel/io.h"
#include "simulator/kernel/thread.h"

#include <utility>

namespace behaviour {

NTSTATUS ServiceProcess::send(UCHAR majorFunction, FILE_OBJECT &file) {
    const unsigned before = std::exchange(sim::currentThread().processId, processId_);
    PDEVICE_OBJECT top = sim::topOfStack(file.DeviceObject);
    PIRP irp = sim::allocateIrp(top->StackSize, nullptr);
    irp->RequestorMode = UserMode;
    sim::setIrpThread(irp);
    PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = majorFunction;
    location->FileObject = &file;
    const NTSTATUS status = sim::sendAndWait(top, irp);
    sim::freeIrp(irp);
    sim::currentThread().processId = before;
    return status;
}

NTSTATUS ServiceProcess::open(PDEVICE_OBJECT anyDeviceOfStack) {
    auto file = std::make_unique<FILE_OBJECT>();
    file->DeviceObject = anyDeviceOfStack;
    const NTSTATUS status = send(IRP_MJ_CREATE, *file);
    if (NT_SUCCESS(status)) {
        handles_.push_back(std::move(file));
    }
    return status;
}

void ServiceProcess::close() {
    send(IRP_MJ_CLEANUP, *handles_.back());
    send(IRP_MJ_CLOSE, *handles_.back());
    handles_.pop_back();
}

} // namespace behaviour
