// Creating queues, and what happens to requests without a queue or handler.

#include "queue_fixture.h"

#include <thread>

namespace sim::test {

namespace {

VOID anyHandler(WDFQUEUE, WDFREQUEST request) {
    WdfRequestComplete(request, STATUS_SUCCESS);
}

TEST_F(QueueTest, ConfigurationTable) {
    plugAndStart();
    WDFQUEUE queue = nullptr;
    const auto create = [&](WDF_IO_QUEUE_CONFIG config, WDFQUEUE *out, WDF_OBJECT_ATTRIBUTES *attributes = nullptr) {
        return WdfIoQueueCreate(device, &config, attributes, out);
    };
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
    config.Size = 0x58;
    EXPECT_EQ(create(config, &queue), STATUS_INFO_LENGTH_MISMATCH);
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
    EXPECT_EQ(create(config, nullptr), STATUS_INVALID_PARAMETER_4);
    config.DispatchType = WdfIoQueueDispatchMax;
    EXPECT_EQ(create(config, &queue), STATUS_INVALID_PARAMETER);
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchParallel);
    EXPECT_EQ(create(config, &queue), STATUS_WDF_NO_CALLBACK);
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchSequential);
    config.EvtIoDefault = anyHandler;
    config.Settings.Parallel.NumberOfPresentedRequests = 1;
    EXPECT_EQ(create(config, &queue), STATUS_INVALID_PARAMETER);
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
    config.EvtIoDefault = anyHandler;
    EXPECT_EQ(create(config, &queue), STATUS_INVALID_PARAMETER);
    config.EvtIoDefault = nullptr;
    config.EvtIoStop = defaultConfig.EvtIoStop;
    EXPECT_EQ(create(config, &queue), STATUS_SUCCESS);
    EXPECT_EQ(WdfIoQueueGetDevice(queue), device);
    EXPECT_EQ(create(defaultConfig, &queue), STATUS_INVALID_DEVICE_STATE); // the device has started
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = driver;
    EXPECT_EQ(create(config, &queue, &attributes), STATUS_INVALID_DEVICE_REQUEST);
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.SynchronizationScope = WdfSynchronizationScopeDevice;
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    EXPECT_EQ(create(config, &queue, &attributes), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfDeviceGetDefaultQueue(device), defaultQueue);
    EXPECT_EQ(stoppedBy([&] { WdfObjectDelete(defaultQueue); }), "framework object");
}

TEST_F(QueueTest, ASecondDefaultQueueIsRefusedWithoutCallbacks) {
    afterCreate = [this] {
        EXPECT_EQ(WdfIoQueueCreate(device, &defaultConfig, nullptr, nullptr), STATUS_SUCCESS);
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.EvtCleanupCallback = [](WDFOBJECT) { ADD_FAILURE(); };
        WDFQUEUE queue = nullptr;
        EXPECT_EQ(WdfIoQueueCreate(device, &defaultConfig, &attributes, &queue), STATUS_UNSUCCESSFUL);
        EXPECT_EQ(queue, nullptr);
        return STATUS_SUCCESS;
    };
    plugAndStart();
    EXPECT_NE(WdfDeviceGetDefaultQueue(device), nullptr);
}

TEST_F(QueueTest, AFunctionDriverWithoutQueueOrHandlerRefuses) {
    afterCreate = [] { return STATUS_SUCCESS; };
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(irp.major(IRP_MJ_WRITE).send(deviceObject()), STATUS_INVALID_DEVICE_REQUEST);
    TestIrp flush;
    EXPECT_EQ(flush.major(IRP_MJ_FLUSH_BUFFERS).send(deviceObject()), STATUS_INVALID_DEVICE_REQUEST);
}

TEST_F(QueueTest, AFunctionDriverWithoutThatHandlerMakesARequestAndRefuses) {
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(irp.major(IRP_MJ_WRITE).send(deviceObject()), STATUS_PENDING);
    EXPECT_TRUE(irp.completed());
    EXPECT_EQ(irp.status(), STATUS_INVALID_DEVICE_REQUEST);
}

TEST_F(QueueTest, AFilterPassesOnWhatItHasNoHandlerFor) {
    makesFilter = true;
    plugAndStart();
    bus.seen.clear();
    TestIrp write;
    EXPECT_EQ(write.major(IRP_MJ_WRITE).send(deviceObject()), STATUS_SUCCESS);
    TestIrp shutdown;
    EXPECT_EQ(shutdown.major(IRP_MJ_SHUTDOWN).send(deviceObject()), STATUS_SUCCESS);
    TestIrp create;
    EXPECT_EQ(create.major(IRP_MJ_CREATE).send(deviceObject()), STATUS_SUCCESS);
    EXPECT_EQ(bus.seen, (std::vector<std::string>{"write", "major 16", "create"}));
}

TEST_F(QueueTest, TransfersOfNoBytesAreCompletedByTheFramework) {
    defaultConfig.EvtIoWrite = [](WDFQUEUE, WDFREQUEST request, size_t) {
        WdfRequestCompleteWithInformation(request, STATUS_SUCCESS, 5);
    };
    plugAndStart();
    TestIrp empty;
    EXPECT_EQ(empty.major(IRP_MJ_WRITE).send(deviceObject()), STATUS_PENDING);
    EXPECT_EQ(empty.information(), 0u);
    TestIrp full;
    IoGetNextIrpStackLocation(full.irp)->Parameters.Write.Length = 5;
    EXPECT_EQ(full.major(IRP_MJ_WRITE).send(deviceObject()), STATUS_PENDING);
    EXPECT_EQ(full.information(), 5u);
    onControl = [](WDFREQUEST request) { WdfRequestComplete(request, STATUS_NOT_SUPPORTED); };
    TestIrp control;
    EXPECT_EQ(control.control(bufferedCode, nullptr, 0, 0).send(deviceObject()), STATUS_PENDING);
    EXPECT_EQ(control.status(), STATUS_NOT_SUPPORTED);
}

TEST_F(QueueTest, HandlersRunInTheSendersThreadInACriticalRegion) {
    onControl = [](WDFREQUEST request) {
        EXPECT_EQ(currentThread().criticalRegionDepth, 1u);
        EXPECT_EQ(currentThread().irql, PASSIVE_LEVEL);
        WdfRequestComplete(request, STATUS_SUCCESS);
    };
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(irp.control(bufferedCode, buffer, 4, 4).send(deviceObject()), STATUS_PENDING);
    EXPECT_TRUE(irp.completed());
}

TEST_F(QueueTest, APassiveQueueReachedAtApcLevelIsServedByAWorker) {
    deviceAttributes.ExecutionLevel = WdfExecutionLevelPassive;
    const std::thread::id sender = std::this_thread::get_id();
    onControl = [sender](WDFREQUEST request) {
        EXPECT_NE(std::this_thread::get_id(), sender);
        EXPECT_EQ(currentThread().irql, PASSIVE_LEVEL);
        WdfRequestComplete(request, STATUS_SUCCESS);
    };
    plugAndStart();
    TestIrp irp;
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { irp.control(bufferedCode, buffer, 4, 4).send(deviceObject()); }), "");
    irp.await();
    EXPECT_EQ(irp.status(), STATUS_SUCCESS);
    kernel.workers.drain();
}

TEST_F(QueueTest, CancelledOnArrivalNeverReachesTheHandler) {
    plugAndStart();
    TestIrp irp;
    irp.cancel();
    EXPECT_EQ(present(irp), nullptr);
    EXPECT_EQ(irp.status(), STATUS_CANCELLED);
}

TEST_F(QueueTest, NoMemoryForTheRequestObject) {
    plugAndStart();
    kernel.faults.failNamed("request object", 1, std::nullopt, false);
    kernel.faults.arm(true);
    TestIrp irp;
    EXPECT_EQ(present(irp), nullptr);
    EXPECT_EQ(irp.status(), STATUS_INSUFFICIENT_RESOURCES);
    kernel.faults.arm(false);
}

TEST_F(QueueTest, RequestsOfEveryQueueHaveTheDevicesRequestContext) {
    struct Local {
        int number;
    };
    static const WDF_OBJECT_CONTEXT_TYPE_INFO type{sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), const_cast<PCHAR>("Local"),
                                                   sizeof(Local), &type, nullptr};
    beforeCreate = [](PWDFDEVICE_INIT init) {
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ContextTypeInfo = &type;
        attributes.EvtCleanupCallback = [](WDFOBJECT) { noteEvent("request cleanup"); };
        WdfDeviceInitSetRequestAttributes(init, &attributes);
    };
    plugAndStart();
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    EXPECT_NE(WdfObjectGetTypedContextWorker(request, &type), nullptr);
    EXPECT_EQ(stoppedBy([&] { WdfObjectDelete(request); }), "framework object");
    WdfRequestComplete(request, STATUS_SUCCESS);
    EXPECT_EQ(takeEvents(), std::vector<std::string>{"request cleanup"});
}

} // namespace

} // namespace sim::test
