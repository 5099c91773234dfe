#include "queue.h"

#include "../kernel/thread.h"
#include "device.h"
#include "file_object.h"
#include "request.h"

namespace sim::framework {

// Framework source: whoever inserts dispatches; other events are left to a thread that is dispatching already
void Queue::dispatchEvents(Lock &lock, bool inserted) {
    if (!inserted && dispatchers_ > 0) {
        return;
    }
    if (passive_ && currentThread().irql > PASSIVE_LEVEL) {
        deferDispatch();
        return;
    }
    ++dispatchers_;
    while (presentOne(lock)) {
    }
    --dispatchers_;
}

/// Calls the driver once, without the lock. False when there is nothing to call it for.
bool Queue::presentOne(Lock &lock) {
    if (power_ != Power::on) {
        return false;
    }
    Request *request = nullptr;
    if (manual()) {
        if (!becameNonEmpty_ || !readyCallback_) {
            return false;
        }
        becameNonEmpty_ = false;
    } else {
        const bool sequential = config.DispatchType == WdfIoQueueDispatchSequential;
        const std::size_t limit = sequential ? 1 : config.Settings.Parallel.NumberOfPresentedRequests;
        if (owned_.size() >= limit || !(request = takeFirst())) {
            return false;
        }
        giveToDriver(*request);
    }
    ++callbacks_;
    lock.unlock();
    if (request) {
        present(*request);
    } else {
        CallbackContract contract("EvtIoQueueState");
        readyCallback_(static_cast<WDFQUEUE>(handle()), readyContext_);
    }
    lock.lock();
    --callbacks_;
    changed_.notify_all();
    return true;
}

/// A passive queue reached at raised IRQL is served by a system worker.
void Queue::deferDispatch() {
    if (workerQueued_) {
        return;
    }
    workerQueued_ = true;
    reference();
    kernel().workers.queue([this] {
        {
            Lock lock(mutex_);
            workerQueued_ = false;
            dispatchEvents(lock, true);
        }
        dereference("I/O queue worker", nullptr);
    });
}

bool Queue::hasHandler(UCHAR majorFunction) const {
    if (config.EvtIoDefault) {
        return true;
    }
    switch (majorFunction) {
    case IRP_MJ_READ:
        return config.EvtIoRead;
    case IRP_MJ_WRITE:
        return config.EvtIoWrite;
    case IRP_MJ_DEVICE_CONTROL:
        return config.EvtIoDeviceControl;
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
        return config.EvtIoInternalDeviceControl;
    default:
        return false;
    }
}

/// What the framework answers without the driver: types without a handler, transfers of no bytes.
bool Queue::completeByItself(Request &request, UCHAR major) const {
    if (!hasHandler(major)) {
        request.complete(STATUS_INVALID_DEVICE_REQUEST, 0);
        return true;
    }
    const IO_STACK_LOCATION &location = *IoGetCurrentIrpStackLocation(request.irp());
    const bool transfer = major == IRP_MJ_READ || major == IRP_MJ_WRITE;
    if (transfer && location.Parameters.Read.Length == 0 && !config.AllowZeroLengthRequests) {
        request.complete(STATUS_SUCCESS, 0);
        return true;
    }
    return false;
}

void Queue::present(Request &request) {
    if (request.opening) {
        CallbackContract contract("EvtDeviceFileCreate");
        device.settings.fileObject->EvtDeviceFileCreate(device.deviceHandle(),
                                                        static_cast<WDFREQUEST>(request.handle()),
                                                        static_cast<WDFFILEOBJECT>(request.opening->handle()));
    } else if (!completeByItself(request, IoGetCurrentIrpStackLocation(request.irp())->MajorFunction)) {
        callHandler(request);
    }
}

void Queue::callHandler(Request &request) {
    const auto queue = static_cast<WDFQUEUE>(handle());
    const auto presented = static_cast<WDFREQUEST>(request.handle());
    const IO_STACK_LOCATION location = *IoGetCurrentIrpStackLocation(request.irp());
    const auto &control = location.Parameters.DeviceIoControl;
    device.handlerCalls.count(location.MajorFunction);
    CallbackContract contract("EvtIo");
    if (location.MajorFunction == IRP_MJ_READ && config.EvtIoRead) {
        config.EvtIoRead(queue, presented, location.Parameters.Read.Length);
    } else if (location.MajorFunction == IRP_MJ_WRITE && config.EvtIoWrite) {
        config.EvtIoWrite(queue, presented, location.Parameters.Write.Length);
    } else if (location.MajorFunction == IRP_MJ_DEVICE_CONTROL && config.EvtIoDeviceControl) {
        config.EvtIoDeviceControl(queue, presented, control.OutputBufferLength, control.InputBufferLength,
                                  control.IoControlCode);
    } else if (location.MajorFunction == IRP_MJ_INTERNAL_DEVICE_CONTROL && config.EvtIoInternalDeviceControl) {
        config.EvtIoInternalDeviceControl(queue, presented, control.OutputBufferLength, control.InputBufferLength,
                                          control.IoControlCode);
    } else {
        config.EvtIoDefault(queue, presented);
    }
}

} // namespace sim::framework
