#include "file_object.h"

#include "../kernel/kernel.h"
#include "../kernel/thread.h"
#include "device.h"
#include "io_package.h"
#include "irp_dispatch.h"
#include "queue.h"

namespace sim::framework {

FileObject::FileObject(Device &device, PFILE_OBJECT wdmFile)
    : Object(device.client(), objectType, nullptr), device(device), wdmFile(wdmFile) {}

void FileObject::opened(NTSTATUS status) {
    if (!NT_SUCCESS(status)) {
        closed();
    }
}

void FileObject::closed() {
    device.removeFileObject(*this);
    remove();
}

namespace {

bool usesFileObjects(const Device &device) {
    const auto &config = device.settings.fileObject;
    return config && (config->FileObjectClass & ~WdfFileObjectCanBeOptional) != WdfFileObjectNotRequired;
}

/// Whether cleanup and close go on to the lower driver.
bool forwardsCleanup(const Device &device) {
    const auto &config = device.settings.fileObject;
    const WDF_TRI_STATE choice = config ? config->AutoForwardCleanupClose : WdfUseDefault;
    return choice == WdfTrue || (choice == WdfUseDefault && device.filter());
}

NTSTATUS finish(Device &device, PIRP irp) {
    return forwardsCleanup(device) ? forwardIrp(device, irp) : completeIrp(irp, STATUS_SUCCESS, 0);
}

/// Makes the framework's file object for an open. Null when memory is short.
FileObject *makeFileObject(Device &device, PFILE_OBJECT wdmFile) {
    if (kernel().faults.shouldFail("file object")) {
        return nullptr;
    }
    auto *file = new FileObject(device, wdmFile);
    const auto &attributes = device.settings.fileObjectAttributes;
    file->addContext(attributes ? &*attributes : nullptr);
    if (!NT_SUCCESS(file->adopt(device))) {
        file->abandon();
        return nullptr;
    }
    device.addFileObject(*file);
    return file;
}

/// No create callback: the lower driver decides, or everybody may open.
NTSTATUS createWithoutCallback(Device &device, PIRP irp, FileObject *file) {
    NTSTATUS status = STATUS_SUCCESS;
    ULONG_PTR information = 0;
    if (device.filter()) {
        status = forwardIrpAndWait(device, irp);
        information = irp->IoStatus.Information;
    }
    if (file) {
        file->opened(status);
    }
    return completeIrp(irp, status, information);
}

} // namespace

// learn.microsoft.com: EVT_WDF_DEVICE_FILE_CREATE; framework source: the callback runs in the caller's thread and the
// dispatch routine returns STATUS_PENDING even when the request was completed inside
NTSTATUS dispatchCreate(Device &device, PIRP irp) {
    if (!usesFileObjects(device)) {
        return device.filter() ? forwardIrp(device, irp) : completeIrp(irp, STATUS_SUCCESS, 0);
    }
    const PFILE_OBJECT wdmFile = IoGetCurrentIrpStackLocation(irp)->FileObject;
    if (!wdmFile) {
        return completeIrp(irp, STATUS_DEVICE_CONFIGURATION_ERROR, 0);
    }
    if (device.removing) {
        return completeIrp(irp, STATUS_INVALID_DEVICE_STATE, 0);
    }
    FileObject *file = makeFileObject(device, wdmFile);
    if (!file) {
        return completeIrp(irp, STATUS_INSUFFICIENT_RESOURCES, 0);
    }
    if (!device.settings.fileObject->EvtDeviceFileCreate) {
        return createWithoutCallback(device, irp, file);
    }
    KeEnterCriticalRegion();
    const NTSTATUS status = presentAsRequest(*device.general, irp, file);
    KeLeaveCriticalRegion();
    return status;
}

// learn.microsoft.com: EVT_WDF_FILE_CLEANUP; framework source: requests of the file that wait in queues are cancelled
NTSTATUS dispatchCleanup(Device &device, PIRP irp) {
    const PFILE_OBJECT wdmFile = IoGetCurrentIrpStackLocation(irp)->FileObject;
    const FileObject *file = device.fileObject(wdmFile);
    if (file && device.settings.fileObject->EvtFileCleanup) {
        CallbackContract contract("EvtFileCleanup");
        device.settings.fileObject->EvtFileCleanup(static_cast<WDFFILEOBJECT>(file->handle()));
    }
    if (currentThread().irql == PASSIVE_LEVEL) {
        device.io->flushFileObject(wdmFile);
    }
    return finish(device, irp);
}

// learn.microsoft.com: EVT_WDF_FILE_CLOSE
NTSTATUS dispatchClose(Device &device, PIRP irp) {
    FileObject *file = device.fileObject(IoGetCurrentIrpStackLocation(irp)->FileObject);
    if (file) {
        if (device.settings.fileObject->EvtFileClose) {
            CallbackContract contract("EvtFileClose");
            device.settings.fileObject->EvtFileClose(static_cast<WDFFILEOBJECT>(file->handle()));
        }
        file->closed();
    }
    return finish(device, irp);
}

} // namespace sim::framework
