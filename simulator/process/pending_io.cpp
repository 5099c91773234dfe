#include "pending_io.h"

#include "../kernel/dispatcher.h"
#include "../kernel/internals.h"
#include "../kernel/io.h"
#include "../kernel/violation.h"
#include "unwritten_bytes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace sim::process {

namespace {

constexpr std::uint8_t untouched = 0xCC;

/// The system buffer of a request's input, and of its output when the two share it; freed with the IRP.
void giveSystemBuffer(PIRP irp, const ControlRequest &request, std::size_t outputBytes) {
    const std::size_t bytes = std::max(request.input.size(), outputBytes);
    if (bytes == 0) {
        return;
    }
    auto *buffer = static_cast<std::uint8_t *>(std::malloc(bytes));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    std::copy(request.input.begin(), request.input.end(), buffer);
    markUnwritten(buffer, request.input.size(), bytes);
    irp->AssociatedIrp.SystemBuffer = buffer;
    const std::lock_guard lock(irpTable().mutex);
    irpTable().irps.at(irp).bufferBytes = static_cast<ULONG>(bytes);
}

} // namespace

PendingIo::PendingIo(std::shared_ptr<DeviceFile> file, ControlRequest request, std::shared_ptr<Bell> bell)
    : request_(std::move(request)), file_(std::move(file)), bell_(std::move(bell)),
      output_(request_.outputBytes, untouched) {}

std::shared_ptr<PendingIo> PendingIo::send(std::shared_ptr<DeviceFile> file, ControlRequest request, PETHREAD thread,
                                           std::shared_ptr<Bell> bell) {
    auto io = std::make_shared<PendingIo>(std::move(file), std::move(request), std::move(bell));
    if (io->file_ == nullptr) {
        io->refuse(STATUS_INVALID_HANDLE);
    } else if (!io->file_->allows(io->request_.code)) {
        io->refuse(STATUS_ACCESS_DENIED);
    } else if (!io->file_->requestStarts()) {
        io->refuse(STATUS_INVALID_HANDLE);
    } else {
        io->start(thread);
    }
    return io;
}

void PendingIo::refuse(NTSTATUS status) {
    status_ = status;
    showBack();
}

// learn.microsoft.com: "Buffer Descriptions for I/O Control Codes"
void PendingIo::start(PETHREAD thread) {
    const PDEVICE_OBJECT top = file_->topOfStack();
    irp_ = allocateUserIrp(top, IRP_MJ_DEVICE_CONTROL, file_->object(), thread);
    const PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp_);
    auto &parameters = location->Parameters.DeviceIoControl;
    parameters.IoControlCode = request_.code;
    parameters.InputBufferLength = static_cast<ULONG>(request_.input.size());
    parameters.OutputBufferLength = static_cast<ULONG>(request_.outputBytes);
    switch (METHOD_FROM_CTL_CODE(request_.code)) {
    case METHOD_BUFFERED:
        giveSystemBuffer(irp_, request_, request_.outputBytes);
        irp_->UserBuffer = output_.data();
        break;
    case METHOD_NEITHER:
        parameters.Type3InputBuffer = const_cast<std::uint8_t *>(request_.input.data());
        irp_->UserBuffer = output_.data();
        break;
    default: // direct I/O: the driver gets at the output, in either direction, through a description of its pages
        giveSystemBuffer(irp_, request_, 0);
        if (!output_.empty()) {
            describeOutput();
        }
        break;
    }
    irpUsers_ = 1;
    self_ = shared_from_this();
    IoSetCompletionRoutine(irp_, cameBack, this, TRUE, TRUE, TRUE);
    const InProcess inside(file_->processId());
    IofCallDriver(top, irp_);
}

void PendingIo::describeOutput() {
    directBuffer_.Size = sizeof directBuffer_;
    directBuffer_.MappedSystemVa = output_.data();
    directBuffer_.StartVa = output_.data();
    directBuffer_.ByteCount = static_cast<ULONG>(output_.size());
    irp_->MdlAddress = &directBuffer_;
}

NTSTATUS PendingIo::cameBack(PDEVICE_OBJECT, PIRP, PVOID context) {
    static_cast<PendingIo *>(context)->userLeaves();
    return STATUS_MORE_PROCESSING_REQUIRED;
}

bool PendingIo::cancel() {
    const std::shared_ptr<PendingIo> keep = shared_from_this();
    int users = irpUsers_.load();
    do {
        if (users == 0) {
            return false;
        }
    } while (!irpUsers_.compare_exchange_weak(users, users + 1));
    cancelIrp(irp_);
    userLeaves();
    return true;
}

void PendingIo::userLeaves() {
    if (irpUsers_.fetch_sub(1) == 1) {
        finish();
    }
}

void PendingIo::finish() {
    const std::shared_ptr<PendingIo> keep = std::move(self_);
    status_ = irp_->IoStatus.Status;
    information_ = irp_->IoStatus.Information;
    const auto mistake = copyAnswer();
    freeIrp(irp_);
    file_->requestEnds();
    showBack();
    if (mistake) {
        bugCheck(mistake->rule, "IofCompleteRequest",
                 "the request with control code " + hex(request_.code) + " was completed with Information " +
                     std::to_string(information_) + mistake->message,
                 nullptr);
    }
}

// learn.microsoft.com: "I/O Status Blocks": exactly Information bytes, warnings too, and nothing of an error.
std::optional<PendingIo::Mistake> PendingIo::copyAnswer() {
    if (METHOD_FROM_CTL_CODE(request_.code) != METHOD_BUFFERED || NT_ERROR(status_) || information_ == 0) {
        return std::nullopt;
    }
    if (information_ > output_.size()) {
        return Mistake{"io information", ", its caller's buffer has " + std::to_string(output_.size()) + " bytes"};
    }
    const auto *buffer = static_cast<const std::uint8_t *>(irp_->AssociatedIrp.SystemBuffer);
    std::memcpy(output_.data(), buffer, information_);
    copied_ = information_;
    if (const auto left = findUnwritten(buffer, std::min(request_.input.size(), information_), information_)) {
        return Mistake{"unwritten output", ", of which the driver never wrote bytes " + std::to_string(left->begin) +
                                               " to " + std::to_string(left->end - 1) +
                                               ": user mode would read the pool's old contents"};
    }
    return std::nullopt;
}

void PendingIo::showBack() {
    {
        const std::lock_guard lock(mutex_);
        back_ = true;
        changed_.notify_all();
    }
    bell_->ring();
}

bool PendingIo::isBack() const {
    const std::lock_guard lock(mutex_);
    return back_;
}

void PendingIo::await() {
    std::unique_lock lock(mutex_);
    waitOrStop(changed_, lock, [this] { return back_; }, "DeviceIoControl", nullptr);
}

std::vector<std::uint8_t> PendingIo::received() const {
    return {output_.begin(), output_.begin() + static_cast<std::ptrdiff_t>(copied_)};
}

} // namespace sim::process
