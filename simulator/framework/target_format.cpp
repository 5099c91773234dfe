#include "target_format.h"

#include "table.h"

#include <algorithm>
#include <cstring>

namespace sim::framework {

NTSTATUS partOfMemory(Memory *memory, const WDFMEMORY_OFFSET *offsets, ControlBuffer &buffer) {
    buffer = {};
    if (!memory) {
        return STATUS_SUCCESS;
    }
    const std::size_t offset = offsets ? offsets->BufferOffset : 0;
    if (offset > memory->size()) {
        return STATUS_INTEGER_OVERFLOW;
    }
    const std::size_t rest = memory->size() - offset;
    const std::size_t length = offsets && offsets->BufferLength ? offsets->BufferLength : rest;
    if (length > rest) {
        return STATUS_INTEGER_OVERFLOW;
    }
    buffer = {memory, static_cast<std::uint8_t *>(memory->buffer()) + offset, length};
    return STATUS_SUCCESS;
}

namespace {

/// One system buffer for both directions, with the input in it.
void useSystemBuffer(const Call &call, Request &request, const ControlBuffer &input, const ControlBuffer &output) {
    RequestFormat &format = request.format;
    const std::size_t bytes = std::max(input.length, output.length);
    PIRP irp = request.irp();
    if (bytes == 0) {
        irp->AssociatedIrp.SystemBuffer = nullptr;
        irp->UserBuffer = nullptr;
        return;
    }
    format.systemBuffer = std::make_unique<std::uint8_t[]>(bytes);
    if (input.length > 0) {
        kernel().pool.checkAccess(input.address, input.length, call.routine, call.site);
        std::memcpy(format.systemBuffer.get(), input.address, input.length);
    }
    constexpr int unspecified = 0xA5;
    std::memset(format.systemBuffer.get() + input.length, unspecified, bytes - input.length);
    irp->AssociatedIrp.SystemBuffer = format.systemBuffer.get();
    irp->UserBuffer = output.address;
    format.outputAddress = output.address;
    format.outputLength = output.length;
}

} // namespace

// learn.microsoft.com: WdfIoTargetFormatRequestForIoctl
NTSTATUS formatControl(const Call &call, Request &request, const Target &target, UCHAR major, ULONG code,
                       const ControlBuffer &input, const ControlBuffer &output) {
    if (request.presentable()) {
        notSimulated(call.routine, "formatting a request from a queue anew", call.site);
    }
    const CCHAR stackSize = target.stackSize();
    if (stackSize == 0) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    request.releaseFormat();
    request.provideIrp(stackSize);
    const PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(request.irp());
    *location = {};
    location->MajorFunction = major;
    location->Parameters.DeviceIoControl.IoControlCode = code;
    location->Parameters.DeviceIoControl.InputBufferLength = static_cast<ULONG>(input.length);
    location->Parameters.DeviceIoControl.OutputBufferLength = static_cast<ULONG>(output.length);
    switch (METHOD_FROM_CTL_CODE(code)) {
    case METHOD_BUFFERED:
        useSystemBuffer(call, request, input, output);
        break;
    case METHOD_NEITHER:
        location->Parameters.DeviceIoControl.Type3InputBuffer = input.address;
        request.irp()->UserBuffer = output.address;
        break;
    default:
        notSimulated(call.routine, "direct I/O", call.site);
    }
    RequestFormat &format = request.format;
    format.formatted = true;
    format.byTarget = true;
    format.input = input.memory;
    format.output = output.memory;
    for (Memory *memory : {format.input, format.output}) {
        if (memory) {
            memory->reference();
        }
    }
    return STATUS_SUCCESS;
}

namespace {

NTSTATUS formatFromHandles(const Call &call, UCHAR major, WDFIOTARGET targetHandle, WDFREQUEST requestHandle,
                           ULONG code, WDFMEMORY inputHandle, const WDFMEMORY_OFFSET *inputOffset,
                           WDFMEMORY outputHandle, const WDFMEMORY_OFFSET *outputOffset) {
    call.irqlAtMost(DISPATCH_LEVEL);
    const Target &target = call.object<Target>(targetHandle);
    Request &request = call.object<Request>(requestHandle);
    if (request.flight == Request::Flight::underWay) {
        call.violation("request", "the request is under way");
    }
    ControlBuffer input;
    ControlBuffer output;
    NTSTATUS status = partOfMemory(call.optionalObject<Memory>(inputHandle), inputOffset, input);
    if (NT_SUCCESS(status)) {
        status = partOfMemory(call.optionalObject<Memory>(outputHandle), outputOffset, output);
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    return formatControl(call, request, target, major, code, input, output);
}

// learn.microsoft.com: WdfIoTargetFormatRequestForInternalIoctl
NTSTATUS formatForInternalIoctl(PWDF_DRIVER_GLOBALS globals, WDFIOTARGET target, WDFREQUEST request, ULONG code,
                                WDFMEMORY input, PWDFMEMORY_OFFSET inputOffset, WDFMEMORY output,
                                PWDFMEMORY_OFFSET outputOffset) {
    const Call call{"WdfIoTargetFormatRequestForInternalIoctl", SIM_CALL_SITE};
    call.client(globals);
    return formatFromHandles(call, IRP_MJ_INTERNAL_DEVICE_CONTROL, target, request, code, input, inputOffset, output,
                             outputOffset);
}

// learn.microsoft.com: WdfIoTargetFormatRequestForIoctl
NTSTATUS formatForIoctl(PWDF_DRIVER_GLOBALS globals, WDFIOTARGET target, WDFREQUEST request, ULONG code,
                        WDFMEMORY input, PWDFMEMORY_OFFSET inputOffset, WDFMEMORY output,
                        PWDFMEMORY_OFFSET outputOffset) {
    const Call call{"WdfIoTargetFormatRequestForIoctl", SIM_CALL_SITE};
    call.client(globals);
    return formatFromHandles(call, IRP_MJ_DEVICE_CONTROL, target, request, code, input, inputOffset, output,
                             outputOffset);
}

PIRP irpToFormat(const Call &call, Request &request) {
    if (request.flight == Request::Flight::underWay) {
        call.violation("request", "the request is under way");
    }
    if (!request.irp()) {
        call.violation("request", "the request has no IRP: create it with a target");
    }
    return request.irp();
}

/// Everything but the completion fields goes into the next location.
void copyToNext(PIRP irp, const IO_STACK_LOCATION &location) {
    const PIO_STACK_LOCATION next = IoGetNextIrpStackLocation(irp);
    std::memcpy(static_cast<void *>(next), &location, FIELD_OFFSET(IO_STACK_LOCATION, CompletionRoutine));
    next->Control = 0;
    next->CompletionRoutine = nullptr;
    next->Context = nullptr;
}

// learn.microsoft.com: WdfRequestWdmFormatUsingStackLocation
VOID formatUsingStackLocation(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, PIO_STACK_LOCATION location) {
    const Call call{"WdfRequestWdmFormatUsingStackLocation", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = call.object<Request>(handle);
    call.pointer(location, "Stack");
    const PIRP irp = irpToFormat(call, request);
    request.releaseFormat();
    copyToNext(irp, *location);
    request.format.formatted = true;
}

// learn.microsoft.com: WdfRequestFormatRequestUsingCurrentType
VOID formatUsingCurrentType(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle) {
    const Call call{"WdfRequestFormatRequestUsingCurrentType", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = call.object<Request>(handle);
    const PIRP irp = irpToFormat(call, request);
    if (!request.presentable()) {
        call.violation("request", "a request that did not come from a queue has no current type");
    }
    request.releaseFormat();
    copyToNext(irp, *IoGetCurrentIrpStackLocation(irp));
    request.format.formatted = true;
}

using FormatForIoctl = NTSTATUS (*)(PWDF_DRIVER_GLOBALS, WDFIOTARGET, WDFREQUEST, ULONG, WDFMEMORY, PWDFMEMORY_OFFSET,
                                    WDFMEMORY, PWDFMEMORY_OFFSET);

} // namespace

void installTargetFormatRoutines(FunctionTable &table) {
    table.set(WdfIoTargetFormatRequestForInternalIoctlTableIndex,
              PFN_WDFIOTARGETFORMATREQUESTFORINTERNALIOCTL(formatForInternalIoctl));
    table.set(WdfIoTargetFormatRequestForIoctlTableIndex, static_cast<FormatForIoctl>(formatForIoctl));
    table.set(WdfRequestWdmFormatUsingStackLocationTableIndex,
              PFN_WDFREQUESTWDMFORMATUSINGSTACKLOCATION(formatUsingStackLocation));
    table.set(WdfRequestFormatRequestUsingCurrentTypeTableIndex,
              PFN_WDFREQUESTFORMATREQUESTUSINGCURRENTTYPE(formatUsingCurrentType));
}

} // namespace sim::framework
