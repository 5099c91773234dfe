#include "service_processes.h"

#include "../../simulator/framework/framework.h"
#include "../../simulator/kernel/io.h"
#include "../../simulator/kernel/kernel.h"
#include "../../simulator/kernel/thread.h"

#include <utility>

namespace cli {
namespace {

constexpr std::u16string_view controlDeviceName = u"\\DosDevices\\Tarvenholt Myrtelhaven";

/// The device object that an open of the name reaches; null when there is none.
PDEVICE_OBJECT namedDevice() {
    const auto target = sim::framework::symbolicLinkTarget(controlDeviceName);
    return target ? static_cast<PDEVICE_OBJECT>(sim::kernel().objects.find(*target, true)) : nullptr;
}

} // namespace

NTSTATUS ServiceProcesses::send(UCHAR majorFunction, unsigned processId, FILE_OBJECT &file) {
    const unsigned before = std::exchange(sim::currentThread().processId, processId);
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

NTSTATUS ServiceProcesses::open(unsigned processId) {
    auto file = std::make_unique<FILE_OBJECT>();
    file->DeviceObject = namedDevice();
    if (file->DeviceObject == nullptr) {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    const NTSTATUS status = send(IRP_MJ_CREATE, processId, *file);
    if (NT_SUCCESS(status)) {
        handles_[processId].push_back(std::move(file));
    }
    return status;
}

bool ServiceProcesses::close(unsigned processId) {
    const auto found = handles_.find(processId);
    if (found == handles_.end()) {
        return false;
    }
    FILE_OBJECT &file = *found->second.back();
    send(IRP_MJ_CLEANUP, processId, file);
    send(IRP_MJ_CLOSE, processId, file);
    found->second.pop_back();
    if (found->second.empty()) {
        handles_.erase(found);
    }
    return true;
}

void ServiceProcesses::closeAll() {
    while (!handles_.empty()) {
        close(handles_.begin()->first);
    }
}

} // namespace cli
