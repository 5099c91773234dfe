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

PendingIo::PendingIo(std::shared_ptr<DeviceFile> file, TransferRequest request, std::shared_ptr<Bell> bell)
    : transfer_(std::move(request)), file_(std::move(file)), bell_(std::move(bell)),
      output_(transfer_->isWrite ? transfer_->data : std::vector<std::uint8_t>(transfer_->length, untouched)) {}

std::shared_ptr<PendingIo> PendingIo::send(std::shared_ptr<DeviceFile> file, ControlRequest request, PETHREAD thread,
                                           std::shared_ptr<Bell> bell) {
    auto io = std::make_shared<PendingIo>(std::move(file), std::move(request), std::move(bell));
    io->begin(thread, io->file_ != nullptr && io->file_->allows(io->request_.code));
    return io;
}

std::shared_ptr<PendingIo> PendingIo::send(std::shared_ptr<DeviceFile> file, TransferRequest request, PETHREAD thread,
                                           std::shared_ptr<Bell> bell) {
    auto io = std::make_shared<PendingIo>(std::move(file), std::move(request), std::move(bell));
    io->begin(thread, io->file_ != nullptr && io->file_->allowsTransfer(io->transfer_->isWrite));
    return io;
}

void PendingIo::begin(PETHREAD thread, bool allowed) {
    if (file_ == nullptr) {
        refuse(STATUS_INVALID_HANDLE);
    } else if (!allowed) {
        refuse(STATUS_ACCESS_DENIED);
    } else if (!file_->requestStarts()) {
        refuse(STATUS_INVALID_HANDLE);
    } else {
        start(thread);
    }
}

void PendingIo::refuse(NTSTATUS status) {
    status_ = status;
    showBack();
}

void PendingIo::start(PETHREAD thread) {
    const TopOfStack held(file_->device());
    const PDEVICE_OBJECT top = held.get();
    const UCHAR transfer = transfer_ && transfer_->isWrite ? IRP_MJ_WRITE : IRP_MJ_READ;
    irp_ = allocateUserIrp(top, transfer_ ? transfer : IRP_MJ_DEVICE_CONTROL, file_->object(), thread);
    const PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp_);
    if (transfer_) {
        describeTransfer(top, location);
    } else {
        describeControl(location);
    }
    irpUsers_ = 1;
    self_ = shared_from_this();
    IoSetCompletionRoutine(irp_, cameBack, this, TRUE, TRUE, TRUE);
    const InProcess inside(file_->processId());
    IofCallDriver(top, irp_);
}

// learn.microsoft.com: "Methods for Accessing Data Buffers"
void PendingIo::describeTransfer(PDEVICE_OBJECT top, PIO_STACK_LOCATION location) {
    const auto length = static_cast<ULONG>(output_.size());
    LARGE_INTEGER offset{};
    offset.QuadPart = static_cast<LONGLONG>(transfer_->offset);
    if (transfer_->isWrite) {
        location->Parameters.Write.Length = length;
        location->Parameters.Write.ByteOffset = offset;
    } else {
        location->Parameters.Read.Length = length;
        location->Parameters.Read.ByteOffset = offset;
    }
    if ((top->Flags & DO_BUFFERED_IO) != 0) {
        notSimulated(transfer_->isWrite ? "WriteFile" : "ReadFile", "buffered I/O", nullptr);
    }
    irp_->UserBuffer = output_.data();
    if ((top->Flags & DO_DIRECT_IO) != 0 && length != 0) {
        describeMemory();
    }
}

// learn.microsoft.com: "Buffer Descriptions for I/O Control Codes"
void PendingIo::describeControl(PIO_STACK_LOCATION location) {
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
            describeMemory();
        }
        break;
    }
}

void PendingIo::describeMemory() {
    memory_.Size = sizeof(memory_);
    memory_.MappedSystemVa = output_.data();
    memory_.StartVa = output_.data();
    memory_.ByteCount = static_cast<ULONG>(output_.size());
    irp_->MdlAddress = &memory_;
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
    const auto mistake = transfer_ ? countTransferred() : copyAnswer();
    freeIrp(irp_);
    file_->requestEnds();
    showBack();
    if (mistake) {
        bugCheck(mistake->rule, "IofCompleteRequest",
                 "the " + name() + " was completed with Information " + std::to_string(information_) + mistake->message,
                 nullptr);
    }
}

std::string PendingIo::name() const {
    if (!transfer_) {
        return "request with control code " + hex(request_.code);
    }
    return std::string(transfer_->isWrite ? "write at " : "read at ") + std::to_string(transfer_->offset);
}

/// The bytes are in the caller's buffer already; the driver only says how many.
std::optional<PendingIo::Mistake> PendingIo::countTransferred() {
    if (NT_ERROR(status_)) {
        return std::nullopt;
    }
    if (information_ > output_.size()) {
        return Mistake{"io information", ", its caller's buffer has " + std::to_string(output_.size()) + " bytes"};
    }
    copied_ = transfer_->isWrite ? 0 : information_;
    return std::nullopt;
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
