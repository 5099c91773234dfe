#include "queue.h"

#include "../kernel/dispatcher.h"
#include "../kernel/thread.h"
#include "device.h"
#include "request.h"

#include <algorithm>

namespace sim::framework {

void Queue::stopPresenting() {
    Lock lock(mutex_);
    if (power_ == Power::off) {
        return;
    }
    power_ = Power::stopping;
    waitOrStop(
        changed_, lock, [this] { return callbacks_ == 0; }, "leaving D0: a queue callback does not return", nullptr);
}

std::vector<Request *> Queue::referencedOwned() {
    Lock lock(mutex_);
    std::vector<Request *> requests;
    for (Request *request : owned_) {
        if (request->standing == Request::Standing::withDriver) {
            request->reference();
            requests.push_back(request);
        }
    }
    return requests;
}

void Queue::stopOwned(ULONG action) {
    if (!config.EvtIoStop) {
        return;
    }
    for (Request *request : referencedOwned()) {
        bool still = false;
        {
            Lock lock(mutex_);
            still = request->standing == Request::Standing::withDriver;
        }
        if (still) {
            CallbackContract contract("EvtIoStop");
            config.EvtIoStop(static_cast<WDFQUEUE>(handle()), static_cast<WDFREQUEST>(request->handle()), action);
        }
        request->dereference("EvtIoStop", nullptr);
    }
}

void Queue::suspendOwned() {
    {
        Lock lock(mutex_);
        if (power_ == Power::off) {
            return;
        }
    }
    stopOwned(WdfRequestStopActionSuspend);
    Lock lock(mutex_);
    const auto settled = [this] {
        return std::all_of(owned_.begin(), owned_.end(),
                           [](const Request *request) { return request->stopAcknowledged; });
    };
    waitOrStop(changed_, lock, settled, "leaving D0: the driver keeps a request of a power-managed queue", nullptr);
    power_ = Power::off;
}

void Queue::acknowledgeStop(Request &request) {
    Lock lock(mutex_);
    request.stopAcknowledged = true;
    changed_.notify_all();
}

void Queue::powerOn() {
    std::vector<Request *> acknowledged;
    {
        Lock lock(mutex_);
        power_ = Power::on;
        for (Request *request : owned_) {
            if (request->stopAcknowledged && request->standing == Request::Standing::withDriver) {
                request->stopAcknowledged = false;
                request->reference();
                acknowledged.push_back(request);
            }
        }
    }
    for (Request *request : acknowledged) {
        if (config.EvtIoResume) {
            CallbackContract contract("EvtIoResume");
            config.EvtIoResume(static_cast<WDFQUEUE>(handle()), static_cast<WDFREQUEST>(request->handle()));
        }
        request->dereference("EvtIoResume", nullptr);
    }
}

void Queue::presentWaiting() {
    Lock lock(mutex_);
    if (!queued_.empty()) {
        becameNonEmpty_ = true;
    }
    dispatchEvents(lock, true);
}

// Framework source: new requests refused first, waiting ones cancelled, then the driver is asked for its own
void Queue::purge() {
    {
        Lock lock(mutex_);
        if (purged_) {
            return;
        }
        accepting_ = false;
        purged_ = true;
    }
    cancelAll(nullptr, true);
    stopOwned(WdfRequestStopActionPurge);
    Lock lock(mutex_);
    const auto empty = [this] { return owned_.empty() && queued_.empty() && callbacks_ == 0; };
    waitOrStop(changed_, lock, empty, "removal: the driver keeps a request", nullptr);
}

} // namespace sim::framework
