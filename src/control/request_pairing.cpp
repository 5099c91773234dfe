#include "control/request_pairing.h"

#include "log/log.h"
#include "myrtelhaven_service.h"
#include "support/framework_guards.h"

namespace {

bool hasNoRequests(WDFQUEUE queue) {
    return (WdfIoQueueGetState(queue, nullptr, nullptr) & WdfIoQueueNoRequests) != 0;
}

ULONG controlCodeOf(WDFREQUEST request) {
    WDF_REQUEST_PARAMETERS parameters;
    WDF_REQUEST_PARAMETERS_INIT(&parameters);
    WdfRequestGetParameters(request, &parameters);
    return parameters.Parameters.DeviceIoControl.IoControlCode;
}

/// The two requests that a pass holds. Whatever is still held when the pass ends goes back to its queue. A service
/// request that a further retrieve overwrites in its slot is neither completed nor put back; kept so on purpose.
struct HeldRequests {
    WDFREQUEST service = nullptr;
    WDFREQUEST internal = nullptr;
};

void complete(WDFREQUEST &request, NTSTATUS status, ULONG_PTR information) {
    WdfRequestCompleteWithInformation(request, status, information);
    request = nullptr;
}

/// The service request's output buffer; on failure completes the request and gives it up.
template<typename Output>
NTSTATUS retrieveServiceBuffer(HeldRequests &held, size_t least, Output *&buffer) {
    void *memory = nullptr;
    const NTSTATUS status = WdfRequestRetrieveOutputBuffer(held.service, least, &memory, nullptr);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve the output buffer for I/O requests, status = 0x", hex(status));
        complete(held.service, status, 0);
        return status;
    }
    buffer = static_cast<Output *>(memory);
    return STATUS_SUCCESS;
}

void notifyService(HeldRequests &held, const ServiceMessage &message) {
    if (message.mode == 0) { // nothing decided, nothing to tell; the service request stays in its slot
        complete(held.internal, STATUS_SUCCESS, 0);
        return;
    }
    NotificationInfo *info = nullptr;
    if (!NT_SUCCESS(retrieveServiceBuffer(held, sizeof(NotificationInfo), info))) {
        return;
    }
    info->mode = message.mode;
    RtlCopyMemory(info->description, message.description, sizeof(info->description));
    RtlCopyMemory(info->identity, message.identity, sizeof(info->identity));
    complete(held.internal, STATUS_SUCCESS, 0);
    complete(held.service, STATUS_SUCCESS, sizeof(NotificationInfo));
}

void askService(const ControlDevice &control, HeldRequests &held, const ServiceMessage &message) {
    UCHAR *shown = nullptr;
    if (!NT_SUCCESS(retrieveServiceBuffer(held, MYRTELHAVEN_CALLBACK_BYTES, shown))) {
        return;
    }
    const auto requestId = reinterpret_cast<ULONG_PTR>(held.internal);
    RtlCopyMemory(shown, &message, MYRTELHAVEN_CALLBACK_BYTES);
    RtlCopyMemory(shown, &requestId, sizeof(requestId));
    if (message.mode != 0) { // decided already: shown, not asked
        complete(held.internal, STATUS_SUCCESS, 0);
    } else {
        const NTSTATUS status = WdfRequestForwardToIoQueue(held.internal, control.m_pendingQueue);
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to requeue an I/O request to one of the calling driver's I/O queues m_pendingQueue, "
                      L"status = 0x",
                      hex(status));
            complete(held.internal, status, 0);
        }
        held.internal = nullptr; // forwarded: somebody else may complete it any time
    }
    complete(held.service, STATUS_SUCCESS, MYRTELHAVEN_CALLBACK_BYTES);
}

void pairRequests(const ControlDevice &control, HeldRequests &held) {
    void *memory = nullptr;
    const NTSTATUS status = WdfRequestRetrieveInputBuffer(held.internal, sizeof(ServiceMessage), &memory, nullptr);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve the input buffer for I/O requests, status = 0x", hex(status));
        complete(held.internal, status, 0);
        return;
    }
    const auto &message = *static_cast<const ServiceMessage *>(memory);
    const ULONG code = controlCodeOf(held.service);
    LOG_INFO(L"fetchRequestsAndProcess ioctl code = ", decimal(code));
    switch (code) {
    case IOCTL_WAIT_NOTIFICATION:
        notifyService(held, message);
        break;
    case IOCTL_WAIT_CALLBACK:
        askService(control, held, message);
        break;
    default:
        complete(held.service, STATUS_SUCCESS, 0);
        break;
    }
}

/// Takes the next request of both queues. An internal one that is still held, since the service's buffer before was too
/// small for it, stays: overwritten it would never be completed, and the thread that sent it would wait for ever,
/// beyond any time-out.
NTSTATUS retrievePair(const ControlDevice &control, HeldRequests &held) {
    NTSTATUS status = WdfIoQueueRetrieveNextRequest(control.m_ioctlQueue, &held.service);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve the next available I/O request for m_ioctlQueue, status = 0x", hex(status));
        return status;
    }
    if (held.internal != nullptr) {
        return STATUS_SUCCESS;
    }
    status = WdfIoQueueRetrieveNextRequest(control.m_internalIoctlQueue, &held.internal);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve the next available I/O request for m_internalIoctlQueue, status = 0x",
                  hex(status));
    }
    return status;
}

/// A queue goes on counting a request that is being cancelled but gives it to nobody. The pass looks again so often and
/// then ends, lest it keep from running whoever cancels; the queue notifies when another request comes.
constexpr int mostFailuresInARow = 16;

void runPass(const ControlDevice &control, HeldRequests &held) {
    WaitLockGuard hold(control.m_lock);
    int failuresInARow = 0;
    while (!hasNoRequests(control.m_ioctlQueue) && !hasNoRequests(control.m_internalIoctlQueue)) {
        const NTSTATUS status = retrievePair(control, held);
        if (NT_SUCCESS(status)) {
            failuresInARow = 0;
            pairRequests(control, held);
        } else if (status == STATUS_WDF_PAUSED || ++failuresInARow == mostFailuresInARow) {
            break; // paused: power is off and the requests stay; the queue notifies again when it is back
        }
    }
}

void pairOnce(const ControlDevice &control) {
    HeldRequests held;
    runPass(control, held);
    // Outside the lock, and each may notify of its queue before it returns.
    if (held.internal != nullptr) {
        (void)WdfRequestRequeue(held.internal);
    }
    if (held.service != nullptr) {
        (void)WdfRequestRequeue(held.service);
    }
}

} // namespace

/// The framework notifies from within calls that a pass makes while it holds the lock: completing a request of one
/// queue, or forwarding it, delivers the notification that this queue still owes, for instance when power is back and
/// the other queue was looked at first (github.com/microsoft/Windows-Driver-Frameworks: FxIoQueue::
/// DispatchInternalEvents). The wait lock is not recursive. So whoever finds a pass under way, be it its own or another
/// thread's, only asks for one more.
VOID fetchRequestsAndProcess(WDFQUEUE, WDFCONTEXT context) {
    auto &control = *static_cast<ControlDevice *>(context);
    if (__atomic_fetch_add(&control.m_passesWanted, 1, __ATOMIC_ACQ_REL) != 0) {
        return;
    }
    LONG answered = 0;
    do {
        answered = __atomic_load_n(&control.m_passesWanted, __ATOMIC_ACQUIRE);
        pairOnce(control);
    } while (__atomic_sub_fetch(&control.m_passesWanted, answered, __ATOMIC_ACQ_REL) != 0);
}

namespace {

/// The pending request with this id, taken out of its queue.
NTSTATUS takePendingRequest(WDFQUEUE queue, ULONG64 requestId, WDFREQUEST &taken) {
    WDFREQUEST previous = nullptr;
    for (;;) {
        WDFREQUEST found = nullptr;
        const NTSTATUS status = WdfIoQueueFindRequest(queue, previous, nullptr, nullptr, &found);
        if (previous != nullptr) {
            WdfObjectDereference(previous);
        }
        if (!NT_SUCCESS(status)) {
            return status;
        }
        if (reinterpret_cast<ULONG_PTR>(found) == requestId) {
            const NTSTATUS retrieved = WdfIoQueueRetrieveFoundRequest(queue, found, &taken);
            WdfObjectDereference(found);
            return retrieved;
        }
        previous = found;
    }
}

} // namespace

NTSTATUS replyToCallback(const ControlDevice &control, WDFREQUEST replyRequest) {
    void *memory = nullptr;
    NTSTATUS status = WdfRequestRetrieveInputBuffer(replyRequest, sizeof(CallbackReply), &memory, nullptr);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve input buffer, status = 0x", hex(status));
        return status;
    }
    const auto reply = *static_cast<const CallbackReply *>(memory);
    WDFREQUEST pending = nullptr;
    status = takePendingRequest(control.m_pendingQueue, reply.requestId, pending);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to find pending request, status = 0x", hex(status));
        return status;
    }
    status = WdfRequestRetrieveOutputBuffer(pending, sizeof(CallbackReply), &memory, nullptr);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to retrieve output buffer, status = 0x", hex(status));
        WdfRequestComplete(pending, status); // out of every queue now, so nobody else would
        return status;
    }
    static_cast<CallbackReply *>(memory)->answer = reply.answer;
    WdfRequestCompleteWithInformation(pending, STATUS_SUCCESS, sizeof(CallbackReply));
    return STATUS_SUCCESS;
}
