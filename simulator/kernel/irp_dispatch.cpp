// The way of an IRP down a device stack and back up.

#include "internals.h"
#include "irp_completion.h"
#include "kernel.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

using namespace sim;

namespace {

/// Compares a dispatch routine's return value with what it did, as soon as both are known.
void checkDispatchCall(const DispatchCall &call, PIRP irp) {
    if (!call.returned) {
        return;
    }
    const bool returnedPending = *call.returned == STATUS_PENDING;
    const std::string who = "the dispatch routine of " + toUtf8(view(call.driver->DriverName));
    if (!call.markedPending) {
        if (!returnedPending) {
            bugCheck("irp not completed", "IofCallDriver",
                     who + " returned " + hex(static_cast<ULONG>(*call.returned)) + " but kept " + describeIrp(irp),
                     nullptr);
        }
        return;
    }
    if (*call.markedPending != returnedPending) {
        bugCheck("irp pending", "IofCallDriver",
                 who + (returnedPending
                            ? " returned STATUS_PENDING without marking the IRP pending"
                            : " marked the IRP pending but returned " + hex(static_cast<ULONG>(*call.returned))),
                 nullptr);
    }
}

/// Notes that a stack location was completed.
void completeLocation(PIRP irp, int location, bool markedPending) {
    std::vector<std::shared_ptr<DispatchCall>> calls;
    {
        std::lock_guard lock(irpTable().mutex);
        IrpState &state = irpTable().irps.at(irp);
        if (const auto found = state.calls.find(location); found != state.calls.end()) {
            calls = std::move(found->second);
            state.calls.erase(found);
        }
        for (const auto &call : calls) {
            call->markedPending = markedPending;
        }
    }
    for (const auto &call : calls) {
        DispatchCall copy;
        {
            std::lock_guard lock(irpTable().mutex);
            copy = *call;
        }
        if (copy.returned) {
            checkDispatchCall(copy, irp);
        }
    }
}

void requireCompletable(PIRP irp, const void *callSite) {
    constexpr auto routine = "IofCompleteRequest";
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    {
        std::unique_lock lock(irpTable().mutex);
        const auto found = irpTable().irps.find(irp);
        const bool completable = found != irpTable().irps.end() && !found->second.completed && !withCreator(irp);
        if (!completable) {
            lock.unlock();
            bugCheck("double completion", routine,
                     describeIrp(irp) + " is not under way: it was completed before (bug check 0x44)", callSite);
        }
    }
    if (irp->IoStatus.Status == STATUS_PENDING) {
        bugCheck("irp status", routine, describeIrp(irp) + " is completed with STATUS_PENDING", callSite);
    }
    if (__atomic_load_n(&irp->CancelRoutine, __ATOMIC_ACQUIRE) != nullptr) {
        bugCheck("irp cancel routine", routine, describeIrp(irp) + " is completed with a cancel routine still set",
                 callSite);
    }
}

bool wantsCompletion(PIRP irp, const IO_STACK_LOCATION &location) {
    if (location.CompletionRoutine == nullptr) {
        return false;
    }
    const UCHAR outcome = NT_SUCCESS(irp->IoStatus.Status) ? SL_INVOKE_ON_SUCCESS : SL_INVOKE_ON_ERROR;
    return (location.Control & outcome) != 0 ||
           ((location.Control & SL_INVOKE_ON_CANCEL) != 0 && __atomic_load_n(&irp->Cancel, __ATOMIC_ACQUIRE));
}

} // namespace

// learn.microsoft.com: IoCallDriver
extern "C" NTSTATUS IofCallDriver(PDEVICE_OBJECT device, PIRP irp) {
    constexpr auto routine = "IofCallDriver";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    requireDevice(device, routine, callSite);
    const auto call = std::make_shared<DispatchCall>();
    call->driver = device->DriverObject;
    {
        std::unique_lock lock(irpTable().mutex);
        const auto found = irpTable().irps.find(irp);
        if (found == irpTable().irps.end() || found->second.completed) {
            lock.unlock();
            bugCheck("irp", routine, describeIrp(irp) + " was freed or completed before", callSite);
        }
        if (irp->CurrentLocation <= 1) {
            lock.unlock();
            bugCheck("irp stack", routine, describeIrp(irp) + " has no stack location left (bug check 0x35)", callSite);
        }
        found->second.sent = true;
        found->second.calls[irp->CurrentLocation - 1].push_back(call);
    }
    --irp->CurrentLocation;
    PIO_STACK_LOCATION location = --irp->Tail.Overlay.CurrentStackLocation;
    location->DeviceObject = device;
    NTSTATUS status = STATUS_SUCCESS;
    {
        const CallbackContract contract("dispatch routine");
        status = device->DriverObject->MajorFunction[location->MajorFunction](device, irp);
    }
    DispatchCall copy;
    {
        std::lock_guard lock(irpTable().mutex);
        call->returned = status;
        copy = *call;
    }
    checkDispatchCall(copy, irp);
    return status;
}

// learn.microsoft.com: IoCompleteRequest
extern "C" VOID IofCompleteRequest(PIRP irp, CCHAR) {
    requireCompletable(irp, SIM_CALL_SITE);
    for (;;) {
        PIO_STACK_LOCATION completed = irp->Tail.Overlay.CurrentStackLocation++;
        const int number = irp->CurrentLocation++;
        irp->PendingReturned = (completed->Control & SL_PENDING_RETURNED) != 0;
        completeLocation(irp, number, irp->PendingReturned);
        const bool atCreator = withCreator(irp);
        const bool invoke = wantsCompletion(irp, *completed);
        const PIO_COMPLETION_ROUTINE completion = completed->CompletionRoutine;
        completed->Control = 0;
        completed->CompletionRoutine = nullptr;
        if (invoke) {
            PDEVICE_OBJECT device = atCreator ? nullptr : IoGetCurrentIrpStackLocation(irp)->DeviceObject;
            const CallbackContract contract("completion routine");
            if (completion(device, irp, completed->Context) == STATUS_MORE_PROCESSING_REQUIRED) {
                return;
            }
        } else if (irp->PendingReturned && !atCreator) {
            IoMarkIrpPending(irp);
        }
        if (atCreator) {
            break;
        }
    }
    finishIrp(irp);
}
