// Forwarding, requeueing, retrieving, finding, cancelling, flushing.

#include "queue_fixture.h"

namespace sim::test {

namespace {

using QueueMovesTest = QueueTest;

TEST_F(QueueMovesTest, ForwardedRequestsComeOutInOrder) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp first;
    TestIrp second;
    const WDFREQUEST one = presentAndForward(first, queue);
    const WDFREQUEST two = presentAndForward(second, queue);
    EXPECT_EQ(queuedIn(queue), 2u);
    EXPECT_EQ(ownedFrom(defaultQueue), 0u);
    EXPECT_EQ(WdfIoQueueGetState(queue, nullptr, nullptr),
              WdfIoQueueAcceptRequests | WdfIoQueueDispatchRequests | WdfIoQueueDriverNoRequests);
    EXPECT_EQ(retrieve(queue), one);
    EXPECT_EQ(ownedFrom(queue), 1u);
    EXPECT_EQ(WdfRequestRequeue(one), STATUS_SUCCESS); // to the head
    EXPECT_EQ(retrieve(queue), one);
    EXPECT_EQ(retrieve(queue), two);
    WDFREQUEST none = one;
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(queue, &none), STATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(none, nullptr);
    WdfRequestComplete(one, STATUS_SUCCESS);
    WdfRequestCompleteWithInformation(two, STATUS_SUCCESS, 3);
    EXPECT_EQ(second.information(), 3u);
    EXPECT_TRUE(WDF_IO_QUEUE_IDLE(WdfIoQueueGetState(queue, nullptr, nullptr)));
}

TEST_F(QueueMovesTest, MisuseIsReported) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    EXPECT_EQ(WdfRequestRequeue(request), STATUS_INVALID_DEVICE_REQUEST); // not from a manual queue
    EXPECT_EQ(stoppedBy([&] { WdfRequestForwardToIoQueue(request, defaultQueue); }), "framework verifier");
    EXPECT_EQ(WdfRequestForwardToIoQueue(request, queue), STATUS_SUCCESS);
    EXPECT_EQ(stoppedBy([&] { WdfRequestComplete(request, STATUS_SUCCESS); }), "request");
    WdfObjectReference(retrieve(queue));
    WdfRequestComplete(request, STATUS_SUCCESS);
    EXPECT_EQ(stoppedBy([&] { WdfRequestComplete(request, STATUS_SUCCESS); }), "request");
    EXPECT_EQ(stoppedBy([&] { WdfRequestWdmGetIrp(request); }), "request");
    WdfObjectDereference(request);
    EXPECT_EQ(stoppedBy([&] { WdfRequestComplete(request, STATUS_SUCCESS); }), "framework handle");
    WDFREQUEST out = nullptr;
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(defaultQueue, &out), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(WdfIoQueueFindRequest(defaultQueue, nullptr, nullptr, nullptr, &out), STATUS_INVALID_DEVICE_REQUEST);
}

TEST_F(QueueMovesTest, CancellingAQueuedRequestCompletesItInTheCancellersThread) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp irp;
    presentAndForward(irp, queue);
    EXPECT_TRUE(irp.cancel());
    EXPECT_TRUE(irp.completed());
    EXPECT_EQ(irp.status(), STATUS_CANCELLED);
    EXPECT_EQ(irp.information(), 0u);
    EXPECT_EQ(queuedIn(queue), 0u);
}

TEST_F(QueueMovesTest, CancellingADriversRequestOnlySetsTheFlag) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    EXPECT_FALSE(irp.cancel());
    EXPECT_FALSE(irp.completed());
    EXPECT_EQ(WdfRequestForwardToIoQueue(request, queue), STATUS_SUCCESS); // and is completed by the framework
    EXPECT_EQ(irp.status(), STATUS_CANCELLED);
    EXPECT_EQ(queuedIn(queue), 0u);
}

TEST_F(QueueMovesTest, RequeueOfACancelledRequestSucceedsAndCompletesIt) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp irp;
    presentAndForward(irp, queue);
    const WDFREQUEST request = retrieve(queue);
    irp.cancel();
    EXPECT_EQ(WdfRequestRequeue(request), STATUS_SUCCESS);
    EXPECT_EQ(irp.status(), STATUS_CANCELLED);
    EXPECT_EQ(ownedFrom(queue), 0u);
}

TEST_F(QueueMovesTest, CanceledOnQueueCallbackForRequestsPresentedBefore) {
    plugAndStart();
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
    config.PowerManaged = WdfFalse;
    config.EvtIoCanceledOnQueue = [](WDFQUEUE, WDFREQUEST request) {
        WdfRequestComplete(request, STATUS_DEVICE_NOT_READY);
    };
    WDFQUEUE queue = nullptr;
    ASSERT_EQ(WdfIoQueueCreate(device, &config, nullptr, &queue), STATUS_SUCCESS);
    TestIrp irp;
    presentAndForward(irp, queue);
    EXPECT_TRUE(irp.cancel());
    EXPECT_EQ(irp.status(), STATUS_DEVICE_NOT_READY);
}

TEST_F(QueueMovesTest, FindWalksAndReferences) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    TestIrp first;
    TestIrp second;
    const WDFREQUEST one = presentAndForward(first, queue);
    const WDFREQUEST two = presentAndForward(second, queue);
    WDF_REQUEST_PARAMETERS parameters;
    WDF_REQUEST_PARAMETERS_INIT(&parameters);
    WDFREQUEST found = nullptr;
    ASSERT_EQ(WdfIoQueueFindRequest(queue, nullptr, nullptr, &parameters, &found), STATUS_SUCCESS);
    EXPECT_EQ(found, one);
    EXPECT_EQ(parameters.Parameters.DeviceIoControl.IoControlCode, ULONG(bufferedCode));
    WDFREQUEST next = nullptr;
    ASSERT_EQ(WdfIoQueueFindRequest(queue, found, nullptr, nullptr, &next), STATUS_SUCCESS);
    EXPECT_EQ(next, two);
    WDFREQUEST none = two;
    EXPECT_EQ(WdfIoQueueFindRequest(queue, next, nullptr, nullptr, &none), STATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(none, nullptr);
    parameters.Size = 1;
    EXPECT_EQ(WdfIoQueueFindRequest(queue, nullptr, nullptr, &parameters, &none), STATUS_INVALID_PARAMETER_4);

    WDFREQUEST retrieved = nullptr;
    ASSERT_EQ(WdfIoQueueRetrieveFoundRequest(queue, next, &retrieved), STATUS_SUCCESS);
    EXPECT_EQ(retrieved, two);
    EXPECT_EQ(WdfIoQueueRetrieveFoundRequest(queue, next, &retrieved), STATUS_NOT_FOUND);
    EXPECT_EQ(WdfIoQueueFindRequest(queue, next, nullptr, nullptr, &none), STATUS_NOT_FOUND);
    WdfRequestComplete(two, STATUS_SUCCESS);
    EXPECT_EQ(WdfIoQueueRetrieveFoundRequest(queue, next, &retrieved), STATUS_NOT_FOUND); // the object is still there
    WdfObjectDereference(next);
    first.cancel();
    EXPECT_EQ(WdfIoQueueRetrieveFoundRequest(queue, found, &retrieved), STATUS_NOT_FOUND);
    WdfObjectDereference(found);
}

TEST_F(QueueMovesTest, ARequestThatWasDroppedBlocksRemovalUntilStopped) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    ULONG action = 0;
    onStop = [&](WDFREQUEST request, ULONG flags) {
        action = flags;
        WdfRequestComplete(request, STATUS_SUCCESS);
    };
    TestIrp irp;
    presentAndForward(irp, queue);
    retrieve(queue); // and forgotten
    EXPECT_FALSE(irp.completed());
    removeDevice();
    EXPECT_EQ(action, ULONG(WdfRequestStopActionPurge));
    EXPECT_EQ(irp.status(), STATUS_SUCCESS);
    EXPECT_EQ(irp.information(), 0u);
}

TEST_F(QueueMovesTest, SequentialQueuesPresentOneAtATime) {
    defaultConfig.DispatchType = WdfIoQueueDispatchSequential;
    defaultConfig.Settings.Parallel.NumberOfPresentedRequests = 0;
    plugAndStart();
    TestIrp first;
    TestIrp second;
    const WDFREQUEST one = present(first);
    EXPECT_EQ(present(second), nullptr);
    EXPECT_EQ(queuedIn(defaultQueue), 1u);
    WdfRequestComplete(one, STATUS_SUCCESS);
    ASSERT_EQ(presented.size(), 1u);
    WdfRequestComplete(presented.front(), STATUS_SUCCESS);
    EXPECT_TRUE(second.completed());
}

} // namespace

} // namespace sim::test
