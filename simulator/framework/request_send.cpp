#include "request_send.h"

#include "../kernel/events.h"
#include "../kernel/io.h"
#include "../kernel/kernel.h"
#include "../kernel/thread.h"
#include "call.h"
#include "client.h"
#include "definitions.h"
#include "framework.h"
#include "memory.h"
#include "request.h"
#include "table.h"
#include "target.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <utility>

namespace sim::framework {

namespace {
std::atomic<int> parked = 0; // below zero for a moment when an answer overtakes its sender
}

std::size_t parkedSends() {
    return static_cast<std::size_t>(std::max(0, parked.load()));
}

// Framework source: exactly Information bytes, whatever the status, with no cap at the output's length
void Request::copyBack() {
    const std::size_t bytes = irp_->IoStatus.Information;
    if (!format.systemBuffer || !format.outputAddress || bytes == 0) {
        return;
    }
    if (bytes > format.outputLength) {
        bugCheck("buffer overrun", "WdfRequestSend",
                 "Information " + std::to_string(bytes) + " is copied to an output of " +
                     std::to_string(format.outputLength) + " bytes",
                 callSite);
    }
    std::memcpy(format.outputAddress, format.systemBuffer.get(), bytes);
}

void Request::finishFlight() {
    copyBack();
    if (cancelledByTimer && irp_->IoStatus.Status == STATUS_CANCELLED) {
        irp_->IoStatus.Status = STATUS_IO_TIMEOUT;
    }
    format.formatted = false;
    const bool senderWaits = waited;
    if (wait.exchange(Wait::over) == Wait::parked) {
        --parked;
    }
    target->ended(*this);
    flight = Flight::grounded;
    if (senderWaits) {
        signalEvent(&back); // the sender gives the reference back, so that nothing of the request outlives its wait
    } else {
        dereference("WdfRequestSend", nullptr);
    }
}

void Request::irpUserLeaves() {
    if (irpUsers.fetch_sub(1) == 1) {
        finishFlight();
    }
}

void Request::cancelSent() {
    int users = irpUsers.load();
    do {
        if (users == 0) {
            return;
        }
    } while (!irpUsers.compare_exchange_weak(users, users + 1));
    cancelIrp(irp_);
    irpUserLeaves();
}

NTSTATUS sentIrpCompleted(PDEVICE_OBJECT, PIRP, PVOID context) {
    static_cast<Request *>(context)->irpUserLeaves();
    return STATUS_MORE_PROCESSING_REQUIRED;
}

namespace {

constexpr ULONG knownFlags = WDF_REQUEST_SEND_OPTION_TIMEOUT | WDF_REQUEST_SEND_OPTION_SYNCHRONOUS |
                             WDF_REQUEST_SEND_OPTION_IGNORE_TARGET_STATE | WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET |
                             WDF_REQUEST_SEND_OPTION_IMPERSONATE_CLIENT |
                             WDF_REQUEST_SEND_OPTION_IMPERSONATION_IGNORE_FAILURE;
constexpr ULONG impersonationFlags =
    WDF_REQUEST_SEND_OPTION_IMPERSONATE_CLIENT | WDF_REQUEST_SEND_OPTION_IMPERSONATION_IGNORE_FAILURE;

/// From here on the sender is one of parkedSends(), unless the answer is there already.
void park(Request &request) {
    auto before = Request::Wait::none;
    if (request.wait.compare_exchange_strong(before, Request::Wait::parked)) {
        ++parked;
    }
}

/// Waits for the IRP to come back; after the time-out cancels it and waits without limit.
void awaitReturn(Request &request, const SendOptions &options, bool fromDriverItself) {
    KeEnterCriticalRegion();
    LARGE_INTEGER due{};
    std::optional<Clock::TimedWait> noted;
    if (options.timeout != 0) { // what it is due is settled before anybody can see that it waits, and move the clock
        const std::int64_t now = kernel().clock.now();
        due.QuadPart = options.timeout > 0 ? options.timeout : now - options.timeout;
        noted.emplace(kernel().clock, due.QuadPart);
    }
    if (fromDriverItself) {
        park(request);
    }
    const NTSTATUS status = KeWaitForSingleObject(&request.back, Executive, KernelMode, FALSE, noted ? &due : nullptr);
    if (status == STATUS_TIMEOUT) {
        request.cancelledByTimer = true;
        request.cancelSent();
        KeWaitForSingleObject(&request.back, Executive, KernelMode, FALSE, nullptr);
    }
    KeLeaveCriticalRegion();
}

} // namespace

// learn.microsoft.com: WDF_REQUEST_SEND_OPTIONS
NTSTATUS readSendOptions(const Call &call, const WDF_REQUEST_SEND_OPTIONS *given, SendOptions &options) {
    options = {};
    if (!given) {
        return STATUS_SUCCESS;
    }
    const bool forget = given->Flags & WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET;
    if (given->Size != sizeof(WDF_REQUEST_SEND_OPTIONS) || (given->Flags & ~knownFlags) != 0 ||
        (forget && given->Flags != WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET)) {
        return STATUS_INVALID_PARAMETER;
    }
    if (given->Flags & impersonationFlags) {
        notSimulated(call.routine, "impersonation", call.site);
    }
    options.synchronous = given->Flags & WDF_REQUEST_SEND_OPTION_SYNCHRONOUS;
    options.forget = forget;
    options.timeout = given->Flags & WDF_REQUEST_SEND_OPTION_TIMEOUT ? given->Timeout : 0;
    return STATUS_SUCCESS;
}

NTSTATUS submit(Request &request, Target &target, const SendOptions &options) {
    const PIRP irp = request.irp();
    PDEVICE_OBJECT destination = nullptr;
    request.waited = options.synchronous;
    request.cancelledByTimer = false;
    request.refusal.reset();
    const NTSTATUS status = target.begin(request, destination);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (__atomic_load_n(&irp->Cancel, __ATOMIC_SEQ_CST)) {
        target.ended(request);
        return STATUS_CANCELLED;
    }
    KeInitializeEvent(&request.back, NotificationEvent, FALSE);
    request.reference();
    request.flight = Request::Flight::underWay;
    request.irpUsers = 1;
    request.wait = Request::Wait::none;
    const bool toDriverItself = clientOfDriver(destination->DriverObject) != nullptr;
    IoSetCompletionRoutine(irp, sentIrpCompleted, &request, TRUE, TRUE, TRUE);
    IofCallDriver(destination, irp);
    if (options.synchronous) {
        awaitReturn(request, options, toDriverItself);
        request.dereference("WdfRequestSend", nullptr);
    }
    return STATUS_SUCCESS;
}

namespace {

/// Only for requests from a queue: the lower driver gets the IRP and this one never sees it again. The real framework
/// skips the stack location; here it is copied, because the location was marked pending when the queue took the IRP and
/// the lower driver is held to a location of its own.
NTSTATUS sendAndForget(Request &request, const Target &target) {
    if (!request.presentable()) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    if (request.format.byTarget) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    const PDEVICE_OBJECT destination = target.destination();
    if (!destination) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    const PIRP irp = request.irp();
    IoCopyCurrentIrpStackLocationToNext(irp);
    IofCallDriver(destination, irp);
    request.letGo();
    return STATUS_SUCCESS;
}

void requireSendable(const Call &call, const Request &request, const SendOptions &options) {
    if (request.flight == Request::Flight::underWay) {
        call.violation("request", "the request is under way already");
    }
    if (request.presentable() && request.standing != Request::Standing::withDriver) {
        call.violation("request", "the request is not with the driver");
    }
    if (!options.forget && !request.format.formatted) {
        call.violation("framework verifier", "the request was not formatted");
    }
    if (!options.synchronous && !options.forget && options.timeout != 0) {
        notSimulated(call.routine, "time-out of an asynchronous request", call.site);
    }
}

NTSTATUS send(const Call &call, Request &request, Target &target, const WDF_REQUEST_SEND_OPTIONS *given) {
    SendOptions options;
    const NTSTATUS status = readSendOptions(call, given, options);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    call.irqlAtMost(options.synchronous ? PASSIVE_LEVEL : DISPATCH_LEVEL);
    requireSendable(call, request, options);
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    if (options.forget) {
        return sendAndForget(request, target);
    }
    // Without a completion routine nobody would ever complete it.
    if (request.presentable() && !options.synchronous) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    return submit(request, target, options);
}

// learn.microsoft.com: WdfRequestSend. The result says "sent"; the outcome is in WdfRequestGetStatus.
BOOLEAN requestSend(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, WDFIOTARGET targetHandle,
                    PWDF_REQUEST_SEND_OPTIONS options) {
    const Call call{"WdfRequestSend", SIM_CALL_SITE};
    call.client(globals);
    Request &request = call.object<Request>(handle);
    Target &target = call.object<Target>(targetHandle);
    const NTSTATUS status = send(call, request, target, options);
    if (!NT_SUCCESS(status)) {
        request.refusal = status;
        return FALSE;
    }
    return TRUE;
}

} // namespace

void installRequestSendRoutines(FunctionTable &table) {
    table.set(WdfRequestSendTableIndex, PFN_WDFREQUESTSEND(requestSend));
}

} // namespace sim::framework
