#include "io_package.h"

#include "../kernel/kernel.h"
#include "../kernel/thread.h"
#include "device.h"
#include "irp_dispatch.h"
#include "queue.h"
#include "request.h"

#include <algorithm>

namespace sim::framework {

namespace {

/// A critical region for the time of a dispatch, where the IRQL allows one.
class DispatchRegion {
  public:
    DispatchRegion() : entered_(currentThread().irql <= APC_LEVEL) {
        if (entered_) {
            KeEnterCriticalRegion();
        }
    }
    ~DispatchRegion() {
        if (entered_) {
            KeLeaveCriticalRegion();
        }
    }
    DispatchRegion(const DispatchRegion &) = delete;
    DispatchRegion &operator=(const DispatchRegion &) = delete;

  private:
    const bool entered_;
};

} // namespace

IoPackage::IoPackage(Device &device) : Object(device.client(), objectType, nullptr), device_(device) {}

void IoPackage::addQueue(Queue &queue) {
    std::lock_guard lock(mutex_);
    queues_.push_back(&queue);
}

void IoPackage::removeQueue(Queue &queue) {
    std::lock_guard lock(mutex_);
    std::erase(queues_, &queue);
    if (defaultQueue_ == &queue) {
        defaultQueue_ = nullptr;
    }
}

bool IoPackage::setDefaultQueue(Queue &queue) {
    std::lock_guard lock(mutex_);
    if (defaultQueue_) {
        return false;
    }
    defaultQueue_ = &queue;
    return true;
}

Queue *IoPackage::defaultQueue() const {
    std::lock_guard lock(mutex_);
    return defaultQueue_;
}

template<typename Work>
void IoPackage::forEachQueue(Work work) {
    std::vector<Queue *> queues;
    {
        std::lock_guard lock(mutex_);
        queues = queues_;
        for (Queue *queue : queues) {
            queue->reference();
        }
    }
    for (Queue *queue : queues) {
        work(*queue);
        queue->dereference("I/O package", nullptr);
    }
}

// Framework source: two passes in creation order, so that no queue forwards to one that still presents
void IoPackage::holdManagedQueues() {
    forEachQueue([](Queue &queue) {
        if (queue.powerManaged) {
            queue.stopPresenting();
        }
    });
    forEachQueue([](Queue &queue) {
        if (queue.powerManaged) {
            queue.suspendOwned();
        }
    });
}

void IoPackage::releaseManagedQueues() {
    forEachQueue([](Queue &queue) {
        if (queue.powerManaged) {
            queue.powerOn();
        }
    });
    forEachQueue([](Queue &queue) {
        if (queue.powerManaged) {
            queue.presentWaiting();
        }
    });
}

void IoPackage::purgeQueues(bool managed) {
    forEachQueue([managed](Queue &queue) {
        if (queue.powerManaged == managed) {
            queue.purge();
        }
    });
}

void IoPackage::flushFileObject(PFILE_OBJECT file) {
    forEachQueue([file](Queue &queue) { queue.flushFileObject(file); });
}

bool IoPackage::passesToLower(Queue *queue, UCHAR major) const {
    return device_.filter() && (!queue || (!queue->manual() && !queue->hasHandler(major)));
}

NTSTATUS IoPackage::dispatch(PIRP irp) {
    const DispatchRegion region;
    Queue *queue = defaultQueue();
    const UCHAR major = IoGetCurrentIrpStackLocation(irp)->MajorFunction;
    if (passesToLower(queue, major)) {
        device_.passedDown.count(major);
        return forwardIrp(device_, irp);
    }
    if (!queue) {
        return completeIrp(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return presentAsRequest(*queue, irp, nullptr);
}

NTSTATUS presentAsRequest(Queue &queue, PIRP irp, FileObject *opening) {
    Device &device = queue.device;
    IoMarkIrpPending(irp);
    constexpr const char *allocation = "request object";
    if (kernel().faults.shouldFail(allocation)) {
        completeIrp(irp, kernel().faults.statusFor(allocation, STATUS_INSUFFICIENT_RESOURCES), 0);
        return STATUS_PENDING;
    }
    auto *request = new Request(device, irp);
    request->opening = opening;
    const auto &attributes = device.settings.requestAttributes;
    request->addContext(attributes ? &*attributes : nullptr);
    queue.reference();
    queue.accept(*request);
    queue.dereference("I/O package", nullptr);
    return STATUS_PENDING;
}

} // namespace sim::framework
