// The life of IRPs: allocation, sending, completion, cancellation.

#include "events.h"
#include "internals.h"
#include "io.h"
#include "irp_completion.h"
#include "kernel.h"
#include "sanitizer.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace sim {

namespace {

constexpr CSHORT irpType = 6;
constexpr std::size_t keptBack = SIM_ADDRESS_SANITIZER ? 0 : 64;
constexpr int freedPattern = 0xDD;

std::size_t sizeOfIrp(CCHAR stackSize) {
    return sizeof(IRP) + static_cast<std::size_t>(stackSize) * sizeof(IO_STACK_LOCATION);
}

void initialiseIrp(PIRP irp, CCHAR stackSize) {
    std::memset(static_cast<void *>(irp), 0, sizeOfIrp(stackSize));
    irp->Type = irpType;
    irp->Size = static_cast<USHORT>(sizeOfIrp(stackSize));
    irp->StackCount = stackSize;
    irp->CurrentLocation = static_cast<CHAR>(stackSize + 1);
    irp->ThreadListEntry = {&irp->ThreadListEntry, &irp->ThreadListEntry};
    irp->Tail.Overlay.CurrentStackLocation = reinterpret_cast<PIO_STACK_LOCATION>(irp + 1) + stackSize;
}

NTSTATUS signalAndKeep(PDEVICE_OBJECT, PIRP, PVOID context) {
    signalEvent(static_cast<PKEVENT>(context));
    return STATUS_MORE_PROCESSING_REQUIRED;
}

} // namespace

std::string describeIrp(PIRP irp) {
    return "IRP " + hex(reinterpret_cast<std::uintptr_t>(irp));
}

bool withCreator(PIRP irp) {
    return irp->CurrentLocation > irp->StackCount;
}

IrpTable::~IrpTable() {
    for (const auto &[irp, state] : irps) {
        if (state.bufferBytes != 0) {
            std::free(irp->AssociatedIrp.SystemBuffer);
        }
        std::free(irp);
    }
    for (PIRP irp : freed) {
        std::free(irp);
    }
}

PIRP allocateIrp(CCHAR stackSize, const void *callSite) {
    void *memory = nullptr;
    if (posix_memalign(&memory, 16, sizeOfIrp(stackSize)) != 0) {
        throw std::bad_alloc();
    }
    const auto irp = static_cast<PIRP>(memory);
    initialiseIrp(irp, stackSize);
    std::lock_guard lock(irpTable().mutex);
    irpTable().irps[irp].allocatedAt = callSite;
    return irp;
}

void freeIrp(PIRP irp) {
    std::unique_lock lock(irpTable().mutex);
    const auto found = irpTable().irps.find(irp);
    if (found == irpTable().irps.end() || !withCreator(irp)) {
        const bool live = found != irpTable().irps.end();
        lock.unlock();
        bugCheck("irp", "IoFreeIrp", describeIrp(irp) + (live ? " is still under way" : " is not live"), nullptr);
    }
    if (found->second.bufferBytes != 0) {
        std::free(irp->AssociatedIrp.SystemBuffer);
    }
    irpTable().irps.erase(found);
    std::memset(static_cast<void *>(irp), freedPattern, irp->Size);
    irpTable().freed.push_back(irp);
    if (irpTable().freed.size() > keptBack) {
        std::free(irpTable().freed.front());
        irpTable().freed.pop_front();
    }
}

void reuseIrp(PIRP irp, NTSTATUS status) {
    std::unique_lock lock(irpTable().mutex);
    const auto found = irpTable().irps.find(irp);
    if (found == irpTable().irps.end() || !withCreator(irp) || found->second.thread != nullptr) {
        lock.unlock();
        bugCheck("irp", "IoReuseIrp", describeIrp(irp) + " is not with its creator", nullptr);
    }
    const void *allocatedAt = found->second.allocatedAt;
    found->second = {};
    found->second.allocatedAt = allocatedAt;
    initialiseIrp(irp, irp->StackCount);
    irp->IoStatus.Status = status;
}

void setIrpThread(PIRP irp) {
    irp->Tail.Overlay.Thread = reinterpret_cast<PETHREAD>(&currentThread());
}

TopOfStack::TopOfStack(PDEVICE_OBJECT anyDeviceOfStack) : device_(referencedTopOfStack(anyDeviceOfStack)) {}

TopOfStack::~TopOfStack() {
    kernel().objects.dereference(device_, nullptr);
}

NTSTATUS sendAndWait(PDEVICE_OBJECT device, PIRP irp) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    IoSetCompletionRoutine(irp, signalAndKeep, &event, TRUE, TRUE, TRUE);
    IofCallDriver(device, irp);
    awaitEvent(&event);
    return irp->IoStatus.Status;
}

PnpResult sendPnpIrp(PDEVICE_OBJECT anyDeviceOfStack, UCHAR minor, void (*fill)(PIO_STACK_LOCATION, void *),
                     void *context) {
    const TopOfStack top(anyDeviceOfStack);
    PIRP irp = allocateIrp(top.get()->StackSize, nullptr);
    irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
    PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = IRP_MJ_PNP;
    location->MinorFunction = minor;
    if (fill != nullptr) {
        fill(location, context);
    }
    const NTSTATUS status = sendAndWait(top.get(), irp);
    const PnpResult result{status, irp->IoStatus.Information};
    freeIrp(irp);
    return result;
}

NTSTATUS sendPowerIrp(PDEVICE_OBJECT anyDeviceOfStack, UCHAR minor, POWER_STATE_TYPE type, POWER_STATE state,
                      POWER_ACTION action) {
    const TopOfStack top(anyDeviceOfStack);
    PIRP irp = allocateIrp(top.get()->StackSize, nullptr);
    irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
    PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(irp);
    location->MajorFunction = IRP_MJ_POWER;
    location->MinorFunction = minor;
    location->Parameters.Power.Type = type;
    location->Parameters.Power.State = state;
    location->Parameters.Power.ShutdownType = action;
    const NTSTATUS status = sendAndWait(top.get(), irp);
    freeIrp(irp);
    return status;
}

KIRQL acquireCancelLock() {
    irpTable().cancelLock.lock();
    const KIRQL before = currentThread().irql;
    currentThread().irql = DISPATCH_LEVEL;
    return before;
}

void releaseCancelLock(KIRQL irql) {
    currentThread().irql = irql;
    irpTable().cancelLock.unlock();
}

bool cancelIrp(PIRP irp) {
    const KIRQL irql = acquireCancelLock();
    __atomic_store_n(&irp->Cancel, TRUE, __ATOMIC_SEQ_CST);
    const PDRIVER_CANCEL routine = __atomic_exchange_n(&irp->CancelRoutine, PDRIVER_CANCEL{nullptr}, __ATOMIC_SEQ_CST);
    if (routine == nullptr) {
        releaseCancelLock(irql);
        return false;
    }
    irp->CancelIrql = irql;
    PDEVICE_OBJECT device = withCreator(irp) ? nullptr : IoGetCurrentIrpStackLocation(irp)->DeviceObject;
    routine(device, irp);
    if (currentThread().irql != irql) {
        bugCheck("irql", "IoCancelIrp", "the cancel routine returned without giving the cancel lock back",
                 reinterpret_cast<const void *>(routine));
    }
    return true;
}

std::vector<std::string> leakedIrps() {
    std::lock_guard lock(irpTable().mutex);
    std::vector<std::string> lines;
    for (const auto &[irp, state] : irpTable().irps) {
        lines.push_back(describeIrp(irp) + (state.sent ? " was not freed" : " was never sent") + ", allocated by " +
                        describeCodeAddress(state.allocatedAt));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

void requireCompletionApcPossible(PKEVENT event, const char *routine, const void *callSite) {
    if (currentThread().irql < APC_LEVEL) {
        return;
    }
    bool own = false;
    {
        std::lock_guard lock(irpTable().mutex);
        own = std::any_of(irpTable().irps.begin(), irpTable().irps.end(), [event](const auto &entry) {
            return entry.second.thread == &currentThread() && entry.first->UserEvent == event;
        });
    }
    if (own) {
        bugCheck("deadlock", routine,
                 "waits at APC_LEVEL for a request whose completion needs a special kernel APC of this thread",
                 callSite);
    }
}

} // namespace sim

using namespace sim;

// learn.microsoft.com: IoGetRequestorProcessId
extern "C" ULONG IoGetRequestorProcessId(PIRP irp) {
    requireIrqlAtMost(DISPATCH_LEVEL, "IoGetRequestorProcessId", SIM_CALL_SITE);
    const auto *thread = reinterpret_cast<const KernelThread *>(irp->Tail.Overlay.Thread);
    return thread == nullptr ? 0 : thread->processId;
}
