// Device control requests that a thread builds, sends and waits for.

#include "events.h"
#include "internals.h"
#include "io.h"
#include "irp_completion.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace sim {

namespace {

struct ControlBuffers {
    PVOID input;
    ULONG inputBytes;
    PVOID output;
    ULONG outputBytes;
};

void checkBuffers(const ControlBuffers &buffers, const char *routine, const void *callSite) {
    const auto check = [&](const void *buffer, ULONG bytes) {
        if (buffer == nullptr && bytes != 0) {
            bugCheck("io buffer", routine, "a null buffer of " + std::to_string(bytes) + " bytes", callSite);
        }
        if (bytes != 0) {
            kernel().pool.checkAccess(buffer, bytes, routine, callSite);
        }
    };
    check(buffers.input, buffers.inputBytes);
    check(buffers.output, buffers.outputBytes);
}

PIRP buildRequest(ULONG code, PDEVICE_OBJECT device, const ControlBuffers &buffers, bool isInternal, PKEVENT event,
                  PIO_STATUS_BLOCK ioStatus, const char *routine, const void *callSite) {
    requireDevice(device, routine, callSite);
    checkBuffers(buffers, routine, callSite);
    const ULONG method = METHOD_FROM_CTL_CODE(code);
    if (method == METHOD_IN_DIRECT || method == METHOD_OUT_DIRECT) {
        notSimulated(routine, "direct I/O, control code " + hex(code), callSite);
    }
    PIRP irp = allocateIrp(device->StackSize, callSite);
    irp->UserEvent = event;
    irp->UserIosb = ioStatus;
    setIrpThread(irp);
    PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = isInternal ? IRP_MJ_INTERNAL_DEVICE_CONTROL : IRP_MJ_DEVICE_CONTROL;
    location->Parameters.DeviceIoControl.OutputBufferLength = buffers.outputBytes;
    location->Parameters.DeviceIoControl.InputBufferLength = buffers.inputBytes;
    location->Parameters.DeviceIoControl.IoControlCode = code;
    const ULONG bufferBytes = method == METHOD_BUFFERED ? std::max(buffers.inputBytes, buffers.outputBytes) : 0;
    if (method == METHOD_NEITHER) {
        location->Parameters.DeviceIoControl.Type3InputBuffer = buffers.input;
        irp->UserBuffer = buffers.output;
    } else if (bufferBytes != 0) {
        irp->AssociatedIrp.SystemBuffer = std::malloc(bufferBytes);
        std::memset(irp->AssociatedIrp.SystemBuffer, 0xCD, bufferBytes);
        if (buffers.inputBytes != 0) {
            std::memcpy(irp->AssociatedIrp.SystemBuffer, buffers.input, buffers.inputBytes);
        }
        irp->UserBuffer = buffers.output;
    }
    std::lock_guard lock(irpTable().mutex);
    IrpState &state = irpTable().irps.at(irp);
    state.thread = &currentThread();
    state.output = buffers.output;
    state.outputBytes = buffers.outputBytes;
    state.bufferBytes = bufferBytes;
    return irp;
}

/// Copies a buffered answer out: exactly as many bytes as the driver reported, which the real system does not clamp.
void copyAnswer(PIRP irp, const IrpState &state) {
    const ULONG_PTR bytes = irp->IoStatus.Information;
    if (state.bufferBytes == 0 || state.output == nullptr || NT_ERROR(irp->IoStatus.Status)) {
        return;
    }
    if (bytes > state.outputBytes) {
        bugCheck("io information", "IofCompleteRequest",
                 "the request was completed with Information " + std::to_string(bytes) + ", its caller's buffer has " +
                     std::to_string(state.outputBytes) + " bytes",
                 state.allocatedAt);
    }
    std::memcpy(state.output, irp->AssociatedIrp.SystemBuffer, bytes);
}

} // namespace

void finishIrp(PIRP irp) {
    IrpState state;
    {
        std::lock_guard lock(irpTable().mutex);
        IrpState &stored = irpTable().irps.at(irp);
        stored.completed = true;
        state = stored;
    }
    if (state.thread == nullptr) {
        return;
    }
    // An error that was never pended shows in IofCallDriver's return value alone: no buffer, no status block, no event.
    const bool answered = irp->PendingReturned || !NT_ERROR(irp->IoStatus.Status);
    PKEVENT event = irp->UserEvent;
    if (answered) {
        copyAnswer(irp, state);
        if (irp->UserIosb != nullptr) {
            *irp->UserIosb = irp->IoStatus;
        }
    }
    freeIrp(irp);
    if (answered && event != nullptr) {
        signalEvent(event);
    }
}

} // namespace sim

using namespace sim;

// learn.microsoft.com: IoBuildDeviceIoControlRequest
extern "C" PIRP IoBuildDeviceIoControlRequest(ULONG code, PDEVICE_OBJECT device, PVOID input, ULONG inputBytes,
                                              PVOID output, ULONG outputBytes, BOOLEAN isInternal, PKEVENT event,
                                              PIO_STATUS_BLOCK ioStatus) {
    constexpr auto routine = "IoBuildDeviceIoControlRequest";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return nullptr;
    }
    return buildRequest(code, device, {input, inputBytes, output, outputBytes}, isInternal != FALSE, event, ioStatus,
                        routine, callSite);
}

// learn.microsoft.com: FsRtlIssueDeviceIoControl. Goes to the very object given, not to the top of its stack.
extern "C" NTSTATUS FsRtlIssueDeviceIoControl(PDEVICE_OBJECT device, ULONG code, UCHAR flags, PVOID input,
                                              ULONG inputBytes, PVOID output, ULONG outputBytes,
                                              PULONG_PTR information) {
    constexpr auto routine = "FsRtlIssueDeviceIoControl";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    if (information == nullptr) {
        bugCheck("argument", routine, "IosbInformation is required", callSite);
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    KEVENT event;
    IO_STATUS_BLOCK ioStatus{};
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    PIRP irp = buildRequest(code, device, {input, inputBytes, output, outputBytes}, false, &event, &ioStatus, routine,
                            callSite);
    IoGetNextIrpStackLocation(irp)->Flags = flags;
    NTSTATUS status = IofCallDriver(device, irp);
    if (status == STATUS_PENDING) {
        requireCompletionApcPossible(&event, routine, callSite);
        awaitEvent(&event);
    }
    if (status == STATUS_PENDING || !NT_ERROR(status)) {
        status = ioStatus.Status;
    }
    *information = ioStatus.Information;
    return status;
}
