#include "device_file.h"

#include "../framework/framework.h"
#include "../kernel/generic_rights.h"
#include "../kernel/io.h"
#include "../kernel/kernel.h"
#include "../kernel/thread.h"

#include <utility>

namespace sim::process {

namespace {

constexpr CSHORT fileType = 5; // recalled: the I/O manager's type number of file objects

/// Rights in a control code, bits 14 and 15.
constexpr ULONG rightsIn(ULONG controlCode) {
    return controlCode >> 14 & 3;
}

} // namespace

InProcess::InProcess(unsigned processId) : before_(std::exchange(currentThread().processId, processId)) {}

InProcess::~InProcess() {
    currentThread().processId = before_;
}

PIRP allocateUserIrp(PDEVICE_OBJECT top, UCHAR majorFunction, FILE_OBJECT &file, PETHREAD thread) {
    const PIRP irp = allocateIrp(top->StackSize, nullptr);
    irp->RequestorMode = UserMode;
    irp->Tail.Overlay.Thread = thread;
    irp->Tail.Overlay.OriginalFileObject = &file;
    const PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = majorFunction;
    location->FileObject = &file;
    return irp;
}

DeviceFile::DeviceFile(PDEVICE_OBJECT device, ACCESS_MASK access, unsigned processId, PETHREAD thread)
    : access_(mapGenericRights(access)), processId_(processId), thread_(thread) {
    object_.Type = fileType;
    object_.Size = sizeof(FILE_OBJECT);
    object_.DeviceObject = device;
    object_.ReadAccess = (access_ & FILE_READ_DATA) != 0;
    object_.WriteAccess = (access_ & FILE_WRITE_DATA) != 0;
}

NTSTATUS DeviceFile::send(UCHAR majorFunction) {
    const InProcess inside(processId_);
    const TopOfStack top(device());
    const PIRP irp = allocateUserIrp(top.get(), majorFunction, object_, thread_);
    const NTSTATUS status = sendAndWait(top.get(), irp);
    freeIrp(irp);
    return status;
}

NTSTATUS DeviceFile::open() {
    if (!deviceOpened(object_.DeviceObject)) {
        return STATUS_NO_SUCH_DEVICE; // recalled: what an open meets while the device is being deleted
    }
    const NTSTATUS status = send(IRP_MJ_CREATE);
    if (!NT_SUCCESS(status)) {
        deviceClosed(object_.DeviceObject);
        return status;
    }
    references_ = 1;
    handleOpen_ = true;
    return status;
}

bool DeviceFile::allows(ULONG controlCode) const {
    const ULONG rights = rightsIn(controlCode);
    return ((rights & FILE_READ_ACCESS) == 0 || object_.ReadAccess) &&
           ((rights & FILE_WRITE_ACCESS) == 0 || object_.WriteAccess);
}

bool DeviceFile::requestStarts() {
    const std::lock_guard lock(mutex_);
    if (!handleOpen_) {
        return false;
    }
    ++references_;
    return true;
}

void DeviceFile::closeHandle() {
    {
        const std::lock_guard lock(mutex_);
        if (!std::exchange(handleOpen_, false)) {
            return;
        }
    }
    send(IRP_MJ_CLEANUP);
    bool last = false;
    {
        const std::lock_guard lock(mutex_);
        last = --references_ == 0;
    }
    if (last) {
        lastReferenceGone();
    }
}

/// The thread that completes the last request may hold a driver's locks: the close goes from another one, later.
void DeviceFile::requestEnds() {
    {
        const std::lock_guard lock(mutex_);
        if (--references_ != 0) {
            return;
        }
    }
    if (const auto &later = kernel().runLater) {
        later([file = shared_from_this()] { file->lastReferenceGone(); });
    } else {
        lastReferenceGone();
    }
}

void DeviceFile::lastReferenceGone() {
    send(IRP_MJ_CLOSE);
    deviceClosed(object_.DeviceObject);
    if (const auto &closed = kernel().deviceFileClosed) {
        closed();
    }
}

NamedObject objectToOpen(std::u16string_view name) {
    constexpr std::u16string_view userPrefix = u"\\\\.\\";
    const std::u16string kernelName = name.starts_with(userPrefix)
                                          ? u"\\??\\" + std::u16string(name.substr(userPrefix.size()))
                                          : std::u16string(name);
    const auto target = framework::symbolicLinkTarget(kernelName);
    return NamedObject(target ? *target : kernelName, true);
}

} // namespace sim::process
