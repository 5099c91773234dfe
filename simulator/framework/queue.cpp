#include "queue.h"

#include "../kernel/io.h"
#include "../kernel/thread.h"
#include "device.h"
#include "io_package.h"
#include "request.h"

namespace sim::framework {

namespace {

/// The request that an IRP stands in a queue as.
Request *&requestOf(PIRP irp) {
    return reinterpret_cast<Request *&>(irp->Tail.Overlay.DriverContext[0]);
}

PDRIVER_CANCEL exchangeCancelRoutine(PIRP irp, PDRIVER_CANCEL routine) {
    return __atomic_exchange_n(&irp->CancelRoutine, routine, __ATOMIC_SEQ_CST);
}

bool isCancelled(PIRP irp) {
    return __atomic_load_n(&irp->Cancel, __ATOMIC_SEQ_CST);
}

VOID cancelRoutine(PDEVICE_OBJECT, PIRP irp) {
    releaseCancelLock(irp->CancelIrql);
    Request &request = *requestOf(irp);
    request.queue->cancelQueued(request);
}

} // namespace

Queue::Queue(Device &device, const WDF_IO_QUEUE_CONFIG &config, bool powerManaged, bool passive, const void *callSite)
    : Object(device.client(), objectType, callSite), device(device), config(config), powerManaged(powerManaged),
      passive_(passive), power_(powerManaged && !device.power.inD0() ? Power::off : Power::on),
      accepting_(!device.removing) {
    device.io->addQueue(*this);
}

Queue::~Queue() {
    device.io->removeQueue(*this);
}

const char *Queue::deletionRefusal() const {
    return config.DefaultQueue ? "a default queue cannot be deleted by its driver" : nullptr;
}

bool Queue::insert(Request &request, bool atHead) {
    const PIRP irp = request.irp();
    request.queue = this;
    request.standing = Request::Standing::queued;
    requestOf(irp) = &request;
    request.place = queued_.insert(atHead ? queued_.begin() : queued_.end(), &request);
    exchangeCancelRoutine(irp, cancelRoutine);
    if (isCancelled(irp) && takeFromList(request)) {
        return false;
    }
    if (queued_.size() == 1 || onlyCancelledLeft_) {
        becameNonEmpty_ = true;
    }
    onlyCancelledLeft_ = false;
    return true;
}

bool Queue::takeFromList(Request &request) {
    if (!exchangeCancelRoutine(request.irp(), nullptr)) {
        return false;
    }
    queued_.erase(request.place);
    request.standing = Request::Standing::arriving;
    return true;
}

Request *Queue::takeFirst() {
    for (Request *request : queued_) {
        if (takeFromList(*request)) {
            return request;
        }
    }
    return nullptr;
}

void Queue::giveToDriver(Request &request) {
    request.standing = Request::Standing::withDriver;
    request.presentedBefore = true;
    request.stopAcknowledged = false;
    request.queue = this;
    request.place = owned_.insert(owned_.end(), &request);
}

void Queue::completeCancelled(Request &request) {
    if (config.EvtIoCanceledOnQueue && request.presentedBefore) {
        {
            Lock lock(mutex_);
            giveToDriver(request);
        }
        CallbackContract contract("EvtIoCanceledOnQueue");
        config.EvtIoCanceledOnQueue(static_cast<WDFQUEUE>(handle()), static_cast<WDFREQUEST>(request.handle()));
    } else {
        request.complete(STATUS_CANCELLED, 0);
    }
}

void Queue::accept(Request &request) {
    Lock lock(mutex_);
    if (!accepting_) {
        lock.unlock();
        request.complete(STATUS_INVALID_DEVICE_STATE, 0);
        return;
    }
    if (!insert(request, false)) {
        lock.unlock();
        request.complete(STATUS_CANCELLED, 0);
        return;
    }
    dispatchEvents(lock, true);
}

// Framework source: power at the destination is no obstacle; a request cancelled meanwhile is completed here
NTSTATUS Queue::forward(Request &request, Queue &destination) {
    Queue &source = *request.queue;
    bool inserted = false;
    {
        std::scoped_lock locks(source.mutex_, destination.mutex_);
        if (!destination.accepting_) {
            return STATUS_WDF_BUSY;
        }
        source.reference();
        destination.reference();
        source.owned_.erase(request.place);
        inserted = destination.insert(request, false);
    }
    source.changed_.notify_all();
    if (inserted) {
        Lock lock(destination.mutex_);
        destination.dispatchEvents(lock, true);
    } else {
        destination.completeCancelled(request);
    }
    {
        Lock lock(source.mutex_);
        source.dispatchEvents(lock, false);
    }
    destination.dereference("WdfRequestForwardToIoQueue", nullptr);
    source.dereference("WdfRequestForwardToIoQueue", nullptr);
    return STATUS_SUCCESS;
}

// Framework source: back to the head, whether the queue takes new requests or not; a purge cancels instead
NTSTATUS Queue::requeue(Request &request) {
    Lock lock(mutex_);
    owned_.erase(request.place);
    request.standing = Request::Standing::arriving;
    const bool inserted = !purged_ && insert(request, true);
    changed_.notify_all();
    if (!inserted) {
        lock.unlock();
        completeCancelled(request);
        lock.lock();
    }
    dispatchEvents(lock, inserted);
    return STATUS_SUCCESS;
}

void Queue::markFinished(Request &request) {
    Lock lock(mutex_);
    request.standing = Request::Standing::finished;
}

void Queue::requestLeft(Request &request) {
    Lock lock(mutex_);
    owned_.erase(request.place);
    changed_.notify_all();
    dispatchEvents(lock, false);
}

void Queue::cancelQueued(Request &request) {
    reference();
    {
        Lock lock(mutex_);
        queued_.erase(request.place);
        request.standing = Request::Standing::arriving;
    }
    completeCancelled(request);
    {
        Lock lock(mutex_);
        changed_.notify_all();
        dispatchEvents(lock, false);
    }
    dereference("IoCancelIrp", nullptr);
}

std::vector<Request *> Queue::takeAll(PFILE_OBJECT file, bool anyFile) {
    Lock lock(mutex_);
    std::vector<Request *> taken;
    for (auto next = queued_.begin(); next != queued_.end();) {
        Request &request = **next++;
        const bool matches = anyFile || IoGetCurrentIrpStackLocation(request.irp())->FileObject == file;
        if (matches && takeFromList(request)) {
            taken.push_back(&request);
        }
    }
    return taken;
}

void Queue::cancelAll(PFILE_OBJECT file, bool anyFile) {
    for (Request *request : takeAll(file, anyFile)) {
        completeCancelled(*request);
    }
}

void Queue::flushFileObject(PFILE_OBJECT file) {
    if (file) {
        cancelAll(file, false);
    }
}

} // namespace sim::framework
