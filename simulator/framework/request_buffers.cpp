#include "request_parameters.h"

#include "call.h"
#include "device.h"
#include "file_object.h"
#include "request.h"
#include "table.h"

namespace sim::framework {

namespace {

enum class Direction { input, output };

struct Buffer {
    NTSTATUS status = STATUS_INVALID_DEVICE_REQUEST;
    void *address = nullptr;
    std::size_t length = 0;
};

/// Buffer of a read or write, by the device's I/O type.
Buffer transferBuffer(const Call &call, const Device &device, PIRP irp, ULONG length) {
    if (device.deviceObject->Flags & DO_DIRECT_IO) {
        notSimulated(call.routine, "buffers of direct I/O", call.site);
    }
    void *address = device.deviceObject->Flags & DO_BUFFERED_IO ? irp->AssociatedIrp.SystemBuffer : irp->UserBuffer;
    return {STATUS_SUCCESS, address, length};
}

Buffer controlBuffer(const Call &call, PIRP irp, Direction direction) {
    const IO_STACK_LOCATION &location = *IoGetCurrentIrpStackLocation(irp);
    const auto &control = location.Parameters.DeviceIoControl;
    const bool input = direction == Direction::input;
    const std::size_t length = input ? control.InputBufferLength : control.OutputBufferLength;
    switch (METHOD_FROM_CTL_CODE(control.IoControlCode)) {
    case METHOD_BUFFERED:
        return {STATUS_SUCCESS, irp->AssociatedIrp.SystemBuffer, length};
    case METHOD_NEITHER:
        if (length > 0 && irp->RequestorMode == UserMode && location.MajorFunction == IRP_MJ_DEVICE_CONTROL) {
            return {};
        }
        return {STATUS_SUCCESS, input ? control.Type3InputBuffer : irp->UserBuffer, length};
    default:
        if (!input) {
            notSimulated(call.routine, "buffers of direct I/O", call.site);
        }
        return {STATUS_SUCCESS, irp->AssociatedIrp.SystemBuffer, length};
    }
}

Buffer findBuffer(const Call &call, const Request &request, Direction direction) {
    const IO_STACK_LOCATION &location = *IoGetCurrentIrpStackLocation(request.irp());
    const bool input = direction == Direction::input;
    switch (location.MajorFunction) {
    case IRP_MJ_READ:
        return input ? Buffer{}
                     : transferBuffer(call, *request.device(), request.irp(), location.Parameters.Read.Length);
    case IRP_MJ_WRITE:
        return input ? transferBuffer(call, *request.device(), request.irp(), location.Parameters.Write.Length)
                     : Buffer{};
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
        return controlBuffer(call, request.irp(), direction);
    default:
        return {};
    }
}

// Framework source: a buffer of no length is too small whatever the minimum; the length handed out is the full one
NTSTATUS retrieveBuffer(const Call &call, WDFREQUEST handle, Direction direction, size_t minimum, PVOID *buffer,
                        size_t *length) {
    call.irqlAtMost(DISPATCH_LEVEL);
    const Request &request = call.object<Request>(handle);
    call.pointer(buffer, "Buffer");
    *buffer = nullptr;
    if (length) {
        *length = 0;
    }
    if (!request.presentable() || !request.irp()) {
        call.violation("request", "the request has no IRP from a queue");
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    const Buffer found = findBuffer(call, request, direction);
    if (!NT_SUCCESS(found.status)) {
        return found.status;
    }
    if (found.length == 0 || found.length < minimum) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    *buffer = found.address;
    if (length) {
        *length = found.length;
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfRequestRetrieveInputBuffer
NTSTATUS retrieveInputBuffer(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, size_t minimum, PVOID *buffer,
                             size_t *length) {
    const Call call{"WdfRequestRetrieveInputBuffer", SIM_CALL_SITE};
    call.client(globals);
    return retrieveBuffer(call, handle, Direction::input, minimum, buffer, length);
}

// learn.microsoft.com: WdfRequestRetrieveOutputBuffer
NTSTATUS retrieveOutputBuffer(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, size_t minimum, PVOID *buffer,
                              size_t *length) {
    const Call call{"WdfRequestRetrieveOutputBuffer", SIM_CALL_SITE};
    call.client(globals);
    return retrieveBuffer(call, handle, Direction::output, minimum, buffer, length);
}

// learn.microsoft.com: WdfRequestGetParameters
VOID requestGetParameters(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, PWDF_REQUEST_PARAMETERS parameters) {
    const Call call{"WdfRequestGetParameters", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    const Request &request = call.object<Request>(handle);
    call.pointer(parameters, "Parameters");
    if (!request.irp()) {
        call.violation("request", "the request has no IRP");
    }
    if (parameters->Size != sizeof(WDF_REQUEST_PARAMETERS)) {
        call.violation("framework structure", "Size of the parameters is " + std::to_string(parameters->Size));
    }
    fillParameters(*IoGetCurrentIrpStackLocation(request.irp()), *parameters);
}

// learn.microsoft.com: WdfRequestGetFileObject
WDFFILEOBJECT requestGetFileObject(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle) {
    const Call call{"WdfRequestGetFileObject", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    const Request &request = call.object<Request>(handle);
    if (!request.presentable() || !request.irp()) {
        return nullptr;
    }
    const FileObject *file = request.device()->fileObject(IoGetCurrentIrpStackLocation(request.irp())->FileObject);
    return file ? static_cast<WDFFILEOBJECT>(file->handle()) : nullptr;
}

} // namespace

void fillParameters(const IO_STACK_LOCATION &location, WDF_REQUEST_PARAMETERS &parameters) {
    parameters = {};
    parameters.Size = sizeof(WDF_REQUEST_PARAMETERS);
    parameters.MinorFunction = location.MinorFunction;
    parameters.Type = static_cast<WDF_REQUEST_TYPE>(location.MajorFunction);
    const auto &from = location.Parameters;
    auto &to = parameters.Parameters;
    switch (location.MajorFunction) {
    case IRP_MJ_CREATE:
        to.Create.SecurityContext = from.Create.SecurityContext;
        to.Create.Options = from.Create.Options;
        to.Create.FileAttributes = from.Create.FileAttributes;
        to.Create.ShareAccess = from.Create.ShareAccess;
        to.Create.EaLength = from.Create.EaLength;
        break;
    case IRP_MJ_READ:
    case IRP_MJ_WRITE:
        to.Read.Length = from.Read.Length;
        to.Read.Key = from.Read.Key;
        to.Read.DeviceOffset = from.Read.ByteOffset.QuadPart;
        break;
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
        to.DeviceIoControl.OutputBufferLength = from.DeviceIoControl.OutputBufferLength;
        to.DeviceIoControl.InputBufferLength = from.DeviceIoControl.InputBufferLength;
        to.DeviceIoControl.IoControlCode = from.DeviceIoControl.IoControlCode;
        // The framework's verifier hides the caller's pointer of METHOD_NEITHER.
        to.DeviceIoControl.Type3InputBuffer = METHOD_FROM_CTL_CODE(from.DeviceIoControl.IoControlCode) == METHOD_NEITHER
                                                  ? nullptr
                                                  : from.DeviceIoControl.Type3InputBuffer;
        break;
    default:
        to.Others.Arg1 = from.Others.Argument1;
        to.Others.Arg2 = from.Others.Argument2;
        to.Others.Arg4 = from.Others.Argument4;
        break;
    }
}

void installRequestBufferRoutines(FunctionTable &table) {
    table.set(WdfRequestRetrieveInputBufferTableIndex, PFN_WDFREQUESTRETRIEVEINPUTBUFFER(retrieveInputBuffer));
    table.set(WdfRequestRetrieveOutputBufferTableIndex, PFN_WDFREQUESTRETRIEVEOUTPUTBUFFER(retrieveOutputBuffer));
    table.set(WdfRequestGetParametersTableIndex, PFN_WDFREQUESTGETPARAMETERS(requestGetParameters));
    table.set(WdfRequestGetFileObjectTableIndex, PFN_WDFREQUESTGETFILEOBJECT(requestGetFileObject));
}

} // namespace sim::framework
