#include "queue_fixture.h"

namespace sim::test {

QueueTest::QueueTest() {
    makesFilter = false;
    WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&defaultConfig, WdfIoQueueDispatchParallel);
    defaultConfig.PowerManaged = WdfFalse;
    defaultConfig.EvtIoDeviceControl = evtControl;
    defaultConfig.EvtIoInternalDeviceControl = evtControl;
    defaultConfig.EvtIoStop = evtStop;
    onControl = [this](WDFREQUEST request) {
        std::lock_guard lock(presentedMutex);
        presented.push_back(request);
    };
    onStop = [](WDFREQUEST request, ULONG) { WdfRequestComplete(request, STATUS_SUCCESS); };
    afterCreate = [this] { return WdfIoQueueCreate(device, &defaultConfig, nullptr, &defaultQueue); };
}

WDFQUEUE QueueTest::manualQueue(WDF_TRI_STATE managed) {
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
    config.PowerManaged = managed;
    config.EvtIoStop = evtStop;
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = device;
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    WDFQUEUE queue = nullptr;
    EXPECT_EQ(WdfIoQueueCreate(device, &config, &attributes, &queue), STATUS_SUCCESS);
    return queue;
}

WDFREQUEST QueueTest::present(TestIrp &irp, ULONG code) {
    EXPECT_EQ(irp.control(code, buffer, sizeof buffer, sizeof buffer).send(deviceObject()), STATUS_PENDING);
    std::lock_guard lock(presentedMutex);
    if (presented.empty()) {
        return nullptr;
    }
    const WDFREQUEST request = presented.back();
    presented.pop_back();
    return request;
}

WDFREQUEST QueueTest::presentAndForward(TestIrp &irp, WDFQUEUE queue) {
    const WDFREQUEST request = present(irp);
    EXPECT_EQ(WdfRequestForwardToIoQueue(request, queue), STATUS_SUCCESS);
    return request;
}

WDFREQUEST QueueTest::retrieve(WDFQUEUE queue) {
    WDFREQUEST request = nullptr;
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(queue, &request), STATUS_SUCCESS);
    return request;
}

ULONG QueueTest::queuedIn(WDFQUEUE queue) {
    ULONG queued = 0;
    WdfIoQueueGetState(queue, &queued, nullptr);
    return queued;
}

ULONG QueueTest::ownedFrom(WDFQUEUE queue) {
    ULONG owned = 0;
    WdfIoQueueGetState(queue, nullptr, &owned);
    return owned;
}

void QueueTest::notifyOn(WDFQUEUE queue, std::function<void(WDFQUEUE)> callback) {
    readyCallbacks_.push_back(std::move(callback));
    EXPECT_EQ(WdfIoQueueReadyNotify(queue, evtReady, &readyCallbacks_.back()), STATUS_SUCCESS);
}

VOID QueueTest::evtControl(WDFQUEUE, WDFREQUEST request, size_t, size_t, ULONG) {
    test().onControl(request);
}

VOID QueueTest::evtStop(WDFQUEUE, WDFREQUEST request, ULONG action) {
    test().onStop(request, action);
}

VOID QueueTest::evtReady(WDFQUEUE queue, WDFCONTEXT context) {
    (*static_cast<std::function<void(WDFQUEUE)> *>(context))(queue);
}

} // namespace sim::test
