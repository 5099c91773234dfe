#include "user_request.h"

#include "simulator/kernel/io.h"
#include "simulator/kernel/irp_table.h"
#include "simulator/kernel/thread.h"

#include <algorithm>
#include <utility>

namespace races {

namespace {

/// The calling thread is one of that process meanwhile.
class InProcess {
  public:
    explicit InProcess(unsigned processId) : before_(std::exchange(sim::currentThread().processId, processId)) {}
    ~InProcess() { sim::currentThread().processId = before_; }
    InProcess(const InProcess &) = delete;
    InProcess &operator=(const InProcess &) = delete;

  private:
    const unsigned before_;
};

PIRP userIrp(PDEVICE_OBJECT top, UCHAR majorFunction, FILE_OBJECT &file) {
    PIRP irp = sim::allocateIrp(top->StackSize, nullptr);
    irp->RequestorMode = UserMode;
    sim::setIrpThread(irp);
    PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = majorFunction;
    location->FileObject = &file;
    return irp;
}

} // namespace

ServiceHandle::ServiceHandle(PDEVICE_OBJECT anyDeviceOfStack, unsigned processId) : processId_(processId) {
    file_.DeviceObject = sim::topOfStack(anyDeviceOfStack);
    status_ = send(IRP_MJ_CREATE);
}

ServiceHandle::~ServiceHandle() {
    if (isOpen()) {
        send(IRP_MJ_CLEANUP);
        send(IRP_MJ_CLOSE);
    }
}

NTSTATUS ServiceHandle::send(UCHAR majorFunction) {
    const InProcess inside(processId_);
    PIRP irp = userIrp(file_.DeviceObject, majorFunction, file_);
    const NTSTATUS status = sim::sendAndWait(file_.DeviceObject, irp);
    sim::freeIrp(irp);
    return status;
}

UserRequest::UserRequest(ServiceHandle &handle, std::uint32_t code, std::vector<std::uint8_t> input,
                         std::size_t outputBytes)
    : buffer_(std::max(input.size(), outputBytes)) {
    std::copy(input.begin(), input.end(), buffer_.begin());
    const InProcess inside(handle.processId());
    PDEVICE_OBJECT top = handle.file().DeviceObject;
    irp_ = userIrp(top, IRP_MJ_DEVICE_CONTROL, handle.file());
    irp_->AssociatedIrp.SystemBuffer = buffer_.data();
    auto &parameters = IoGetNextIrpStackLocation(irp_)->Parameters.DeviceIoControl;
    parameters.IoControlCode = code;
    parameters.InputBufferLength = static_cast<ULONG>(input.size());
    parameters.OutputBufferLength = static_cast<ULONG>(outputBytes);
    IoSetCompletionRoutine(irp_, cameBack, this, TRUE, TRUE, TRUE);
    IofCallDriver(top, irp_);
}

UserRequest::~UserRequest() {
    await();
    sim::freeIrp(irp_);
}

void UserRequest::cancel() {
    sim::cancelIrp(irp_);
}

bool UserRequest::isBack() const {
    const std::lock_guard lock(mutex_);
    return back_;
}

void UserRequest::await() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return back_; });
}

NTSTATUS UserRequest::cameBack(PDEVICE_OBJECT, PIRP, PVOID context) {
    auto &self = *static_cast<UserRequest *>(context);
    const std::lock_guard lock(self.mutex_);
    self.back_ = true;
    self.changed_.notify_all();
    return STATUS_MORE_PROCESSING_REQUIRED;
}

} // namespace races
