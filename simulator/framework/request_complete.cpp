#include "request.h"

#include "../kernel/thread.h"
#include "call.h"
#include "device.h"
#include "file_object.h"
#include "queue.h"
#include "table.h"

namespace sim::framework {

namespace {

/// Statuses of the framework's own facility never leave the driver (framework source: completion of a request).
NTSTATUS statusForIoManager(NTSTATUS status) {
    constexpr NTSTATUS frameworkFacility = 0x00200000;
    constexpr NTSTATUS facilityMask = 0x0FFF0000;
    if ((status & facilityMask) != frameworkFacility || NT_SUCCESS(status)) {
        return status;
    }
    switch (status) {
    case STATUS_WDF_PAUSED:
    case STATUS_WDF_BUSY:
        return STATUS_DEVICE_BUSY;
    case STATUS_WDF_INTERNAL_ERROR:
        return STATUS_INTERNAL_ERROR;
    default:
        return STATUS_INVALID_DEVICE_REQUEST;
    }
}

} // namespace

void Request::leaveTree() {
    destroyChildren();
    giveUpBirthReference();
}

void Request::complete(NTSTATUS status, std::optional<ULONG_PTR> information) {
    Queue *source = standing == Standing::withDriver ? queue : nullptr;
    if (source) {
        source->reference();
        source->markFinished(*this);
    }
    beginDeletion();
    disposeTree();
    status = statusForIoManager(status);
    if (opening) {
        opening->opened(status);
    }
    const PIRP irp = irp_;
    irp_ = nullptr;
    irp->IoStatus.Status = status;
    if (information) {
        irp->IoStatus.Information = *information;
    }
    IofCompleteRequest(irp, IO_NO_INCREMENT);
    if (source) {
        source->requestLeft(*this);
        source->dereference("WdfRequestComplete", nullptr);
    }
    leaveTree();
}

void Request::letGo() {
    Queue *source = queue;
    source->reference();
    source->markFinished(*this);
    beginDeletion();
    disposeTree();
    irp_ = nullptr;
    source->requestLeft(*this);
    source->dereference("WdfRequestSend", nullptr);
    leaveTree();
}

namespace {

Request &completable(const Call &call, WDFREQUEST handle) {
    Request &request = call.object<Request>(handle);
    if (!request.presentable()) {
        call.violation("request", "a request that the driver made is not completed by the driver");
    }
    if (request.standing != Request::Standing::withDriver) {
        call.violation("request", request.standing == Request::Standing::finished
                                      ? "the request was completed before"
                                      : "the request is in a queue, not with the driver");
    }
    if (request.flight == Request::Flight::underWay) {
        call.violation("request", "the request is still under way to a target");
    }
    return request;
}

/// How many bytes a user's request has room for. Nothing where the framework's verifier does not look.
std::optional<ULONG_PTR> roomOf(const Request &request) {
    const IO_STACK_LOCATION &location = *IoGetCurrentIrpStackLocation(request.irp());
    if (request.irp()->RequestorMode != UserMode) {
        return std::nullopt;
    }
    switch (location.MajorFunction) {
    case IRP_MJ_READ:
        return location.Parameters.Read.Length;
    case IRP_MJ_WRITE:
        return location.Parameters.Write.Length;
    case IRP_MJ_DEVICE_CONTROL:
        return location.Parameters.DeviceIoControl.OutputBufferLength;
    default:
        return std::nullopt;
    }
}

/// What the I/O manager would stop at later, when nobody knows any more which line of the driver it was.
void checkOutcome(const Call &call, const Request &request, NTSTATUS status, ULONG_PTR information) {
    if (status == STATUS_PENDING) {
        call.violation("request", "the request is completed with STATUS_PENDING");
    }
    const auto room = roomOf(request);
    if (NT_SUCCESS(status) && room && information > *room) {
        call.violation("request", "Information " + std::to_string(information) + " exceeds the request's length " +
                                      std::to_string(*room));
    }
}

// learn.microsoft.com: WdfRequestComplete
VOID requestComplete(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, NTSTATUS status) {
    const Call call{"WdfRequestComplete", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = completable(call, handle);
    checkOutcome(call, request, status, request.irp()->IoStatus.Information);
    request.complete(status);
}

// learn.microsoft.com: WdfRequestCompleteWithInformation
VOID requestCompleteWithInformation(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, NTSTATUS status,
                                    ULONG_PTR information) {
    const Call call{"WdfRequestCompleteWithInformation", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = completable(call, handle);
    checkOutcome(call, request, status, information);
    request.complete(status, information);
}

} // namespace

void installRequestCompletionRoutines(FunctionTable &table) {
    table.set(WdfRequestCompleteTableIndex, PFN_WDFREQUESTCOMPLETE(requestComplete));
    table.set(WdfRequestCompleteWithInformationTableIndex,
              PFN_WDFREQUESTCOMPLETEWITHINFORMATION(requestCompleteWithInformation));
}

} // namespace sim::framework
