#include "call.h"
#include "device.h"
#include "driver.h"
#include "io_package.h"
#include "queue.h"
#include "request.h"
#include "table.h"

namespace sim::framework {

namespace {

bool hasAnyHandler(const WDF_IO_QUEUE_CONFIG &config) {
    return config.EvtIoDefault || config.EvtIoRead || config.EvtIoWrite || config.EvtIoDeviceControl ||
           config.EvtIoInternalDeviceControl;
}

// learn.microsoft.com: WDF_IO_QUEUE_CONFIG; framework source: checks of WdfIoQueueCreate, in its order
NTSTATUS checkConfiguration(const WDF_IO_QUEUE_CONFIG &config, const WDFQUEUE *result) {
    if (config.Size != sizeof(WDF_IO_QUEUE_CONFIG)) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    if (!config.DefaultQueue && !result) {
        return STATUS_INVALID_PARAMETER_4;
    }
    if (config.DispatchType <= WdfIoQueueDispatchInvalid || config.DispatchType >= WdfIoQueueDispatchMax) {
        return STATUS_INVALID_PARAMETER;
    }
    const bool parallel = config.DispatchType == WdfIoQueueDispatchParallel;
    if (!parallel && config.Settings.Parallel.NumberOfPresentedRequests != 0) {
        return STATUS_INVALID_PARAMETER;
    }
    if (config.DispatchType == WdfIoQueueDispatchManual) {
        return hasAnyHandler(config) ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS;
    }
    return hasAnyHandler(config) ? STATUS_SUCCESS : STATUS_WDF_NO_CALLBACK;
}

struct Execution {
    WDF_EXECUTION_LEVEL level;
    WDF_SYNCHRONIZATION_SCOPE scope;
};

Execution executionOf(const Device &device, const WDF_OBJECT_ATTRIBUTES *attributes) {
    Execution execution{device.executionLevel, device.synchronizationScope};
    if (attributes && attributes->ExecutionLevel != WdfExecutionLevelInheritFromParent) {
        execution.level = attributes->ExecutionLevel;
    }
    if (attributes && attributes->SynchronizationScope != WdfSynchronizationScopeInheritFromParent) {
        execution.scope = attributes->SynchronizationScope;
    }
    return execution;
}

// learn.microsoft.com: WdfIoQueueCreate
NTSTATUS queueCreate(PWDF_DRIVER_GLOBALS globals, WDFDEVICE deviceHandle, PWDF_IO_QUEUE_CONFIG config,
                     PWDF_OBJECT_ATTRIBUTES attributes, WDFQUEUE *handle) {
    const Call call{"WdfIoQueueCreate", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    Device &device = call.object<Device>(deviceHandle);
    call.pointer(config, "Config");
    if (handle) {
        *handle = nullptr;
    }
    NTSTATUS status = checkConfiguration(*config, handle);
    if (NT_SUCCESS(status)) {
        status = validateAttributes(attributes, {.callbacksMeaningful = true});
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    Object &parent = call.parent(attributes, *device.io);
    if (!parent.descendsFrom(device)) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    const Execution execution = executionOf(device, attributes);
    if (execution.scope == WdfSynchronizationScopeDevice && execution.level != device.executionLevel) {
        return STATUS_INVALID_PARAMETER;
    }
    if (execution.scope != WdfSynchronizationScopeNone) {
        notSimulated(call.routine, "synchronisation scope of a device or queue", call.site);
    }
    if (config->DefaultQueue && device.started) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    const bool managed = config->PowerManaged == WdfTrue || (config->PowerManaged == WdfUseDefault && !device.filter());
    auto *queue = new Queue(device, *config, managed, execution.level == WdfExecutionLevelPassive, call.site);
    if (config->DefaultQueue && !device.io->setDefaultQueue(*queue)) {
        queue->abandon();
        return STATUS_UNSUCCESSFUL;
    }
    return call.publish(*queue, attributes, parent, handle);
}

// learn.microsoft.com: WdfIoQueueGetState
WDF_IO_QUEUE_STATE queueGetState(PWDF_DRIVER_GLOBALS globals, WDFQUEUE handle, PULONG queued, PULONG withDriver) {
    const Call call{"WdfIoQueueGetState", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    return call.object<Queue>(handle).state(queued, withDriver);
}

// learn.microsoft.com: WdfIoQueueGetDevice
WDFDEVICE queueGetDevice(PWDF_DRIVER_GLOBALS globals, WDFQUEUE handle) {
    const Call call{"WdfIoQueueGetDevice", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    return call.object<Queue>(handle).device.deviceHandle();
}

// learn.microsoft.com: WdfIoQueueReadyNotify
NTSTATUS queueReadyNotify(PWDF_DRIVER_GLOBALS globals, WDFQUEUE handle, PFN_WDF_IO_QUEUE_STATE callback,
                          WDFCONTEXT context) {
    const Call call{"WdfIoQueueReadyNotify", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Queue &queue = call.object<Queue>(handle);
    if (const auto failure = call.injectedFailure(STATUS_INVALID_DEVICE_REQUEST)) {
        return *failure;
    }
    return queue.setReadyNotify(callback, context);
}

/// A request that its driver holds and may hand to a queue.
Request &movable(const Call &call, WDFREQUEST handle) {
    Request &request = call.object<Request>(handle);
    if (!request.presentable() || request.standing != Request::Standing::withDriver) {
        call.violation("request", request.presentable() ? "the request is not with the driver"
                                                        : "the request did not come from a queue");
    }
    return request;
}

// learn.microsoft.com: WdfRequestForwardToIoQueue; which faults only the verifier reports: framework source
NTSTATUS requestForward(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, WDFQUEUE destinationHandle) {
    const Call call{"WdfRequestForwardToIoQueue", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = movable(call, handle);
    Queue &destination = call.object<Queue>(destinationHandle);
    if (request.queue == &destination || &destination.device != request.device()) {
        call.violation("framework verifier", request.queue == &destination
                                                 ? "the request is forwarded to the queue it came from"
                                                 : "the queue belongs to another device");
    }
    if (const auto failure = call.injectedFailure(STATUS_WDF_BUSY)) {
        return *failure;
    }
    return Queue::forward(request, destination);
}

// learn.microsoft.com: WdfRequestRequeue
NTSTATUS requestRequeue(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle) {
    const Call call{"WdfRequestRequeue", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = movable(call, handle);
    if (!request.queue->manual()) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    if (const auto failure = call.injectedFailure(STATUS_INVALID_DEVICE_REQUEST)) {
        return *failure;
    }
    Queue &queue = *request.queue;
    queue.reference();
    const NTSTATUS status = queue.requeue(request);
    queue.dereference(call.routine, call.site);
    return status;
}

// learn.microsoft.com: WdfRequestStopAcknowledge
VOID requestStopAcknowledge(PWDF_DRIVER_GLOBALS globals, WDFREQUEST handle, BOOLEAN requeue) {
    const Call call{"WdfRequestStopAcknowledge", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Request &request = movable(call, handle);
    if (requeue) {
        notSimulated(call.routine, "putting the request back", call.site);
    }
    request.queue->acknowledgeStop(request);
}

using StopAcknowledge = VOID (*)(PWDF_DRIVER_GLOBALS, WDFREQUEST, BOOLEAN);

} // namespace

void installQueueRoutines(FunctionTable &table) {
    table.set(WdfIoQueueCreateTableIndex, PFN_WDFIOQUEUECREATE(queueCreate));
    table.set(WdfIoQueueGetStateTableIndex, PFN_WDFIOQUEUEGETSTATE(queueGetState));
    table.set(WdfIoQueueGetDeviceTableIndex, PFN_WDFIOQUEUEGETDEVICE(queueGetDevice));
    table.set(WdfIoQueueReadyNotifyTableIndex, PFN_WDFIOQUEUEREADYNOTIFY(queueReadyNotify));
    table.set(WdfRequestForwardToIoQueueTableIndex, PFN_WDFREQUESTFORWARDTOIOQUEUE(requestForward));
    table.set(WdfRequestRequeueTableIndex, PFN_WDFREQUESTREQUEUE(requestRequeue));
    table.set(WdfRequestStopAcknowledgeTableIndex, static_cast<StopAcknowledge>(requestStopAcknowledge));
}

} // namespace sim::framework
