#include "request_send.h"
#include "table.h"
#include "target_format.h"

namespace sim::framework {

namespace {

/// A request of the library's own for the time of one call.
class TemporaryRequest {
  public:
    explicit TemporaryRequest(Client &client, const void *site) : request_(new Hidden(client, site)) {}
    ~TemporaryRequest() { request_->remove(); }
    TemporaryRequest(const TemporaryRequest &) = delete;
    TemporaryRequest &operator=(const TemporaryRequest &) = delete;
    Request &get() { return *request_; }

  private:
    struct Hidden : Request {
        using Request::Request;
        bool internal() const override { return true; }
    };
    Hidden *request_;
};

// learn.microsoft.com: WDF_MEMORY_DESCRIPTOR
NTSTATUS readDescriptor(const Call &call, const WDF_MEMORY_DESCRIPTOR *descriptor, ControlBuffer &buffer) {
    buffer = {};
    if (!descriptor) {
        return STATUS_SUCCESS;
    }
    switch (descriptor->Type) {
    case WdfMemoryDescriptorTypeBuffer:
        buffer.address = descriptor->u.BufferType.Buffer;
        buffer.length = descriptor->u.BufferType.Length;
        return buffer.address ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER;
    case WdfMemoryDescriptorTypeHandle:
        return partOfMemory(&call.object<Memory>(descriptor->u.HandleType.Memory), descriptor->u.HandleType.Offsets,
                            buffer);
    case WdfMemoryDescriptorTypeMdl:
        notSimulated(call.routine, "memory described by an MDL", call.site);
    default:
        return STATUS_INVALID_PARAMETER;
    }
}

// learn.microsoft.com: WdfIoTargetSendIoctlSynchronously; framework source: the result is the completion status, and
// the number of bytes is told also for a request that failed
NTSTATUS sendControl(const Call &call, PWDF_DRIVER_GLOBALS globals, UCHAR major, WDFIOTARGET targetHandle,
                     WDFREQUEST requestHandle, ULONG code, const WDF_MEMORY_DESCRIPTOR *inputDescriptor,
                     const WDF_MEMORY_DESCRIPTOR *outputDescriptor, const WDF_REQUEST_SEND_OPTIONS *given,
                     ULONG_PTR *bytesReturned) {
    Client &client = call.client(globals);
    call.passive();
    Target &target = call.object<Target>(targetHandle);
    Request *ownRequest = call.optionalObject<Request>(requestHandle);
    if (ownRequest && ownRequest->flight == Request::Flight::underWay) {
        call.violation("request", "the request is under way");
    }
    SendOptions options;
    ControlBuffer input;
    ControlBuffer output;
    NTSTATUS status = readSendOptions(call, given, options);
    if (NT_SUCCESS(status) && options.forget) {
        status = STATUS_INVALID_PARAMETER;
    }
    if (NT_SUCCESS(status)) {
        status = readDescriptor(call, inputDescriptor, input);
    }
    if (NT_SUCCESS(status)) {
        status = readDescriptor(call, outputDescriptor, output);
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    std::optional<TemporaryRequest> temporary;
    Request &request = ownRequest ? *ownRequest : temporary.emplace(client, call.site).get();
    status = formatControl(call, request, target, major, code, input, output);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    options.synchronous = true;
    status = submit(request, target, options);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (bytesReturned) {
        *bytesReturned = request.irp()->IoStatus.Information;
    }
    return request.irp()->IoStatus.Status;
}

// learn.microsoft.com: WdfIoTargetSendIoctlSynchronously
NTSTATUS sendIoctl(PWDF_DRIVER_GLOBALS globals, WDFIOTARGET target, WDFREQUEST request, ULONG code,
                   PWDF_MEMORY_DESCRIPTOR input, PWDF_MEMORY_DESCRIPTOR output, PWDF_REQUEST_SEND_OPTIONS options,
                   PULONG_PTR bytesReturned) {
    const Call call{"WdfIoTargetSendIoctlSynchronously", SIM_CALL_SITE};
    return sendControl(call, globals, IRP_MJ_DEVICE_CONTROL, target, request, code, input, output, options,
                       bytesReturned);
}

// learn.microsoft.com: WdfIoTargetSendInternalIoctlSynchronously
NTSTATUS sendInternalIoctl(PWDF_DRIVER_GLOBALS globals, WDFIOTARGET target, WDFREQUEST request, ULONG code,
                           PWDF_MEMORY_DESCRIPTOR input, PWDF_MEMORY_DESCRIPTOR output,
                           PWDF_REQUEST_SEND_OPTIONS options, PULONG_PTR bytesReturned) {
    const Call call{"WdfIoTargetSendInternalIoctlSynchronously", SIM_CALL_SITE};
    return sendControl(call, globals, IRP_MJ_INTERNAL_DEVICE_CONTROL, target, request, code, input, output, options,
                       bytesReturned);
}

} // namespace

void installTargetIoctlRoutines(FunctionTable &table) {
    table.set(WdfIoTargetSendIoctlSynchronouslyTableIndex, PFN_WDFIOTARGETSENDIOCTLSYNCHRONOUSLY(sendIoctl));
    table.set(WdfIoTargetSendInternalIoctlSynchronouslyTableIndex,
              PFN_WDFIOTARGETSENDIOCTLSYNCHRONOUSLY(sendInternalIoctl));
}

} // namespace sim::framework
