#include "queue.h"

#include "call.h"
#include "device.h"
#include "file_object.h"
#include "request.h"
#include "request_parameters.h"
#include "table.h"

#include <algorithm>

namespace sim::framework {

NTSTATUS Queue::retrieveNext(Request *&request) {
    Lock lock(mutex_);
    if (config.DispatchType == WdfIoQueueDispatchParallel) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    if (power_ == Power::off) {
        return STATUS_WDF_PAUSED;
    }
    request = takeFirst();
    if (!request) {
        onlyCancelledLeft_ = !queued_.empty();
        return STATUS_NO_MORE_ENTRIES;
    }
    giveToDriver(*request);
    changed_.notify_all();
    return STATUS_SUCCESS;
}

NTSTATUS Queue::find(Request *after, bool any, PFILE_OBJECT file, WDF_REQUEST_PARAMETERS *parameters, Request *&found) {
    Lock lock(mutex_);
    auto next = queued_.begin();
    if (after) {
        next = std::find(queued_.begin(), queued_.end(), after);
        if (next == queued_.end()) {
            return STATUS_NOT_FOUND;
        }
        ++next;
    }
    const auto matches = [&](Request *request) {
        const bool beingCancelled = !__atomic_load_n(&request->irp()->CancelRoutine, __ATOMIC_SEQ_CST);
        return !beingCancelled && (any || IoGetCurrentIrpStackLocation(request->irp())->FileObject == file);
    };
    next = std::find_if(next, queued_.end(), matches);
    if (next == queued_.end()) {
        onlyCancelledLeft_ = !after && any && !queued_.empty();
        return STATUS_NO_MORE_ENTRIES;
    }
    found = *next;
    found->reference();
    if (parameters) {
        fillParameters(*IoGetCurrentIrpStackLocation(found->irp()), *parameters);
    }
    return STATUS_SUCCESS;
}

NTSTATUS Queue::retrieveFound(Request &request) {
    Lock lock(mutex_);
    if (power_ == Power::off) {
        return STATUS_WDF_PAUSED;
    }
    const bool here = std::find(queued_.begin(), queued_.end(), &request) != queued_.end();
    if (!here || !takeFromList(request)) {
        return STATUS_NOT_FOUND;
    }
    giveToDriver(request);
    changed_.notify_all();
    return STATUS_SUCCESS;
}

WDF_IO_QUEUE_STATE Queue::state(ULONG *queued, ULONG *withDriver) const {
    std::unique_lock lock(mutex_);
    if (queued) {
        *queued = static_cast<ULONG>(queued_.size());
    }
    if (withDriver) {
        *withDriver = static_cast<ULONG>(owned_.size());
    }
    ULONG bits = WdfIoQueueDispatchRequests;
    bits |= accepting_ ? WdfIoQueueAcceptRequests : 0;
    bits |= queued_.empty() ? WdfIoQueueNoRequests : 0;
    bits |= owned_.empty() ? WdfIoQueueDriverNoRequests : 0;
    bits |= powerManaged && power_ != Power::on ? WdfIoQueuePnpHeld : 0;
    return static_cast<WDF_IO_QUEUE_STATE>(bits);
}

NTSTATUS Queue::setReadyNotify(PFN_WDF_IO_QUEUE_STATE callback, WDFCONTEXT context) {
    if (!manual()) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    if (deleting()) {
        return STATUS_DELETE_PENDING;
    }
    Lock lock(mutex_);
    // A callback may be taken back only from a stopped queue, and no queue here can be stopped.
    if (!callback || readyCallback_) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    readyCallback_ = callback;
    readyContext_ = context;
    dispatchEvents(lock, true);
    return STATUS_SUCCESS;
}

namespace {

// learn.microsoft.com: WdfIoQueueRetrieveNextRequest
NTSTATUS queueRetrieveNextRequest(PWDF_DRIVER_GLOBALS globals, WDFQUEUE handle, WDFREQUEST *result) {
    const Call call{"WdfIoQueueRetrieveNextRequest", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Queue &queue = call.object<Queue>(handle);
    call.pointer(result, "OutRequest");
    *result = nullptr;
    if (const auto failure = call.injectedFailure(STATUS_NO_MORE_ENTRIES)) { // cancelled just now
        return *failure;
    }
    Request *request = nullptr;
    const NTSTATUS status = queue.retrieveNext(request);
    if (NT_SUCCESS(status)) {
        *result = static_cast<WDFREQUEST>(request->handle());
    }
    return status;
}

// learn.microsoft.com: WdfIoQueueFindRequest
NTSTATUS queueFindRequest(PWDF_DRIVER_GLOBALS globals, WDFQUEUE handle, WDFREQUEST after, WDFFILEOBJECT fileHandle,
                          PWDF_REQUEST_PARAMETERS parameters, WDFREQUEST *result) {
    const Call call{"WdfIoQueueFindRequest", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Queue &queue = call.object<Queue>(handle);
    call.pointer(result, "OutRequest");
    *result = nullptr;
    Request *start = call.optionalObject<Request>(after);
    const FileObject *file = call.optionalObject<FileObject>(fileHandle);
    if (parameters && parameters->Size != sizeof(WDF_REQUEST_PARAMETERS)) {
        return STATUS_INVALID_PARAMETER_4;
    }
    if (!queue.manual()) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    Request *found = nullptr;
    const NTSTATUS status = queue.find(start, !file, file ? file->wdmFile : nullptr, parameters, found);
    if (NT_SUCCESS(status)) {
        *result = static_cast<WDFREQUEST>(found->handle());
    }
    return status;
}

// learn.microsoft.com: WdfIoQueueRetrieveFoundRequest
NTSTATUS queueRetrieveFoundRequest(PWDF_DRIVER_GLOBALS globals, WDFQUEUE handle, WDFREQUEST foundHandle,
                                   WDFREQUEST *result) {
    const Call call{"WdfIoQueueRetrieveFoundRequest", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Queue &queue = call.object<Queue>(handle);
    Request &found = call.object<Request>(foundHandle);
    call.pointer(result, "OutRequest");
    *result = nullptr;
    if (!queue.manual()) {
        call.violation("framework verifier", "the queue is not a manual one");
    }
    if (found.queue != &queue) {
        call.violation("framework verifier", "the request was found in another queue");
    }
    if (const auto failure = call.injectedFailure(STATUS_NOT_FOUND)) { // cancelled just now
        return *failure;
    }
    const NTSTATUS status = queue.retrieveFound(found);
    if (NT_SUCCESS(status)) {
        *result = static_cast<WDFREQUEST>(found.handle());
    }
    return status;
}

} // namespace

void installQueueRetrievalRoutines(FunctionTable &table) {
    table.set(WdfIoQueueRetrieveNextRequestTableIndex, PFN_WDFIOQUEUERETRIEVENEXTREQUEST(queueRetrieveNextRequest));
    table.set(WdfIoQueueFindRequestTableIndex, PFN_WDFIOQUEUEFINDREQUEST(queueFindRequest));
    table.set(WdfIoQueueRetrieveFoundRequestTableIndex, PFN_WDFIOQUEUERETRIEVEFOUNDREQUEST(queueRetrieveFoundRequest));
}

} // namespace sim::framework
