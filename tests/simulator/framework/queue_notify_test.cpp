// Ready notification of manual queues.

#include "queue_fixture.h"

namespace sim::test {

namespace {

using QueueNotifyTest = QueueTest;

TEST_F(QueueNotifyTest, OnlyWhenTheCountBecomesOne) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    int calls = 0;
    notifyOn(queue, [&](WDFQUEUE) { ++calls; });
    TestIrp first;
    TestIrp second;
    presentAndForward(first, queue);
    EXPECT_EQ(calls, 1);
    presentAndForward(second, queue);
    EXPECT_EQ(calls, 1); // left behind: not called again until it has been empty
    const WDFREQUEST one = retrieve(queue);
    const WDFREQUEST two = retrieve(queue);
    EXPECT_EQ(WdfRequestRequeue(one), STATUS_SUCCESS); // on requeue too
    EXPECT_EQ(calls, 2);
    WdfRequestComplete(two, STATUS_SUCCESS);
    first.cancel();
}

TEST_F(QueueNotifyTest, RegistrationRules) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    const PFN_WDF_IO_QUEUE_STATE callback = [](WDFQUEUE, WDFCONTEXT) {};
    EXPECT_EQ(WdfIoQueueReadyNotify(defaultQueue, callback, nullptr), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(WdfIoQueueReadyNotify(queue, nullptr, nullptr), STATUS_INVALID_DEVICE_REQUEST);
    TestIrp irp;
    presentAndForward(irp, queue);
    int calls = 0;
    notifyOn(queue, [&](WDFQUEUE) { ++calls; });
    EXPECT_EQ(calls, 1); // requests had come already
    EXPECT_EQ(WdfIoQueueReadyNotify(queue, callback, nullptr), STATUS_INVALID_DEVICE_REQUEST);
    irp.cancel();
}

TEST_F(QueueNotifyTest, RequeueInsideTheCallbackNests) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    int depth = 0;
    int deepest = 0;
    int calls = 0;
    notifyOn(queue, [&](WDFQUEUE which) {
        deepest = std::max(deepest, ++depth);
        if (++calls < 3) {
            EXPECT_EQ(WdfRequestRequeue(retrieve(which)), STATUS_SUCCESS);
        }
        --depth;
    });
    TestIrp irp;
    presentAndForward(irp, queue);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(deepest, 3);
    irp.cancel();
}

TEST_F(QueueNotifyTest, SpuriousAfterACancellation) {
    makesFilter = false;
    WDFQUEUE queue = nullptr;
    const auto createDefault = afterCreate;
    int calls = 0;
    afterCreate = [&] {
        const NTSTATUS status = createDefault();
        queue = manualQueue(WdfUseDefault); // managed by power for a function driver
        notifyOn(queue, [&](WDFQUEUE which) {
            ++calls;
            WDFREQUEST request = nullptr;
            EXPECT_EQ(WdfIoQueueRetrieveNextRequest(which, &request), STATUS_NO_MORE_ENTRIES);
        });
        return status;
    };
    plugAndStart();
    ASSERT_EQ(bus.power(physical, DevicePowerState, PowerDeviceD3), STATUS_SUCCESS);
    TestIrp irp;
    presentAndForward(irp, queue);
    EXPECT_TRUE(irp.cancel());
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(bus.power(physical, DevicePowerState, PowerDeviceD0), STATUS_SUCCESS);
    EXPECT_EQ(calls, 1);
}

TEST_F(QueueNotifyTest, AtApcLevelAWorkerCalls) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    std::atomic<int> calls = 0;
    notifyOn(queue, [&](WDFQUEUE) {
        EXPECT_EQ(currentThread().irql, PASSIVE_LEVEL);
        ++calls;
    });
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    kernel.workers.pause();
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { WdfRequestForwardToIoQueue(request, queue); }), "");
    EXPECT_EQ(calls, 0);
    kernel.workers.resume();
    kernel.workers.drain();
    EXPECT_EQ(calls, 1);
    irp.cancel();
}

} // namespace

} // namespace sim::test
