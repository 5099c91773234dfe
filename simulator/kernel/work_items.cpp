// Work items. learn.microsoft.com: "System Worker Threads".

#include "internals.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>

/// What drivers hold a pointer to; its contents are the kernel's business.
struct _IO_WORKITEM {
    PVOID ioObject;
};

using namespace sim;

namespace sim {

WorkItemTable::~WorkItemTable() {
    for (const auto &[item, state] : items) {
        delete static_cast<const _IO_WORKITEM *>(item);
    }
}

std::vector<std::string> WorkItemTable::leaks() {
    std::lock_guard lock(mutex);
    std::vector<std::string> lines;
    for (const auto &[item, state] : items) {
        lines.push_back(std::string("work item ") + (state.queued ? "still queued" : "not freed") + ", allocated by " +
                        describeCodeAddress(state.allocatedAt));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

namespace {

WorkItemTable &workItems() {
    return kernel().internals->workItems;
}

/// Runs `call` on a system worker thread. The item leaves the queue before the call, so that the routine may free it or
/// queue it again; the object it belongs to stays referenced until the routine has returned.
void queueItem(PIO_WORKITEM item, WORK_QUEUE_TYPE queue, const char *routine, const void *callSite,
               std::function<void(PVOID ioObject)> call) {
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    if (queue != DelayedWorkQueue) {
        bugCheck("work item", routine, "drivers must use DelayedWorkQueue, not " + std::to_string(queue), callSite);
    }
    PVOID ioObject = nullptr;
    {
        std::unique_lock lock(workItems().mutex);
        const auto found = workItems().items.find(item);
        if (found == workItems().items.end() || found->second.queued) {
            const bool live = found != workItems().items.end();
            lock.unlock();
            bugCheck("work item", routine, live ? "the work item is queued already" : "the work item is not live",
                     callSite);
        }
        found->second.queued = true;
        found->second.queuedAt = callSite;
        ioObject = found->second.object;
    }
    kernel().objects.reference(ioObject, nullptr);
    kernel().workers.queue([item, ioObject, call = std::move(call)] {
        {
            std::lock_guard lock(workItems().mutex);
            workItems().items.at(item).queued = false;
        }
        {
            const CallbackContract contract("work item routine");
            call(ioObject);
        }
        kernel().objects.dereference(ioObject, nullptr);
    });
}

} // namespace

} // namespace sim

// learn.microsoft.com: IoAllocateWorkItem. Takes a driver object as well as a device object.
extern "C" PIO_WORKITEM IoAllocateWorkItem(PDEVICE_OBJECT ioObject) {
    constexpr auto routine = "IoAllocateWorkItem";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    const ObjectType type = kernel().objects.typeOf(ioObject, routine, callSite);
    if (type != ObjectType::device && type != ObjectType::driver) {
        bugCheck("object", routine, std::string("given a ") + nameOf(type) + " object", callSite);
    }
    if (kernel().faults.shouldFail(routine)) {
        return nullptr;
    }
    auto *item = new _IO_WORKITEM{ioObject};
    std::lock_guard lock(workItems().mutex);
    workItems().items[item] = WorkItemState{ioObject, callSite, nullptr, false};
    return item;
}

// learn.microsoft.com: IoQueueWorkItemEx
extern "C" VOID IoQueueWorkItemEx(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE_EX routine, WORK_QUEUE_TYPE queue,
                                  PVOID context) {
    queueItem(item, queue, "IoQueueWorkItemEx", SIM_CALL_SITE,
              [item, routine, context](PVOID ioObject) { routine(ioObject, context, item); });
}

// learn.microsoft.com: IoQueueWorkItem
extern "C" VOID IoQueueWorkItem(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE routine, WORK_QUEUE_TYPE queue, PVOID context) {
    const void *callSite = SIM_CALL_SITE;
    queueItem(item, queue, "IoQueueWorkItem", callSite, [routine, context, callSite](PVOID ioObject) {
        requireDevice(ioObject, "IoQueueWorkItem", callSite);
        routine(static_cast<PDEVICE_OBJECT>(ioObject), context);
    });
}

// learn.microsoft.com: IoFreeWorkItem
extern "C" VOID IoFreeWorkItem(PIO_WORKITEM item) {
    constexpr auto routine = "IoFreeWorkItem";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    std::unique_lock lock(workItems().mutex);
    const auto found = workItems().items.find(item);
    if (found == workItems().items.end() || found->second.queued) {
        const bool live = found != workItems().items.end();
        lock.unlock();
        bugCheck("work item", routine, live ? "the work item is still queued" : "the work item is not live", callSite);
    }
    workItems().items.erase(found);
    lock.unlock();
    delete item;
}
