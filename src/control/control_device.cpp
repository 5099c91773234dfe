#include "control/control_device.h"

#include "control/ioctl_dispatch.h"
#include "control/power_notifications.h"
#include "control/request_pairing.h"
#include "control/service_registration.h"
#include "control/shutdown.h"
#include "driver/driver_context.h"
#include "log/log.h"
#include "myrtelhaven_service.h"

namespace {

void configureFileObjects(PWDFDEVICE_INIT deviceInit) {
    WDF_FILEOBJECT_CONFIG config;
    WDF_FILEOBJECT_CONFIG_INIT(&config, onControlDeviceOpen, onControlDeviceClose, WDF_NO_EVENT_CALLBACK);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.SynchronizationScope = WdfSynchronizationScopeNone;
    WdfDeviceInitSetFileObjectConfig(deviceInit, &config, &attributes);
}

VOID deleteLock(WDFWAITLOCK &lock) {
    if (lock != nullptr) {
        WdfObjectDelete(lock);
        lock = nullptr;
    }
}

/// Runs after the device's queues and target are gone: from now on filters find no control device.
VOID onControlDeviceCleanup(WDFOBJECT device) {
    ControlDevice &control = *getControlDevice(device);
    setControlDevice(nullptr);
    deleteLock(control.m_deviceLock);
    deleteLock(control.m_lock);
}

NTSTATUS createDevice(PWDFDEVICE_INIT deviceInit, WDFDEVICE &device) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, ControlDevice);
    attributes.EvtCleanupCallback = onControlDeviceCleanup;
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    const NTSTATUS status = WdfDeviceCreate(&deviceInit, &attributes, &device);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create control device, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS createLinkAndLocks(ControlDevice &control) {
    const UNICODE_STRING link = literal(MYRTELHAVEN_SYMBOLIC_LINK);
    NTSTATUS status = WdfDeviceCreateSymbolicLink(control.device, &link);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create symbolic link, status = 0x", hex(status));
        return status;
    }
    status = WdfWaitLockCreate(WDF_NO_OBJECT_ATTRIBUTES, &control.m_lock);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init lock, status = 0x", hex(status));
        return status;
    }
    status = WdfWaitLockCreate(WDF_NO_OBJECT_ATTRIBUTES, &control.m_deviceLock);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init device lock, status = 0x", hex(status));
    }
    return status;
}

/// Requests sent to this target come back to the control device's own queues.
NTSTATUS openTargetOnSelf(ControlDevice &control) {
    NTSTATUS status = WdfIoTargetCreate(control.device, WDF_NO_OBJECT_ATTRIBUTES, &control.m_ioTarget);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create io target, status = 0x", hex(status));
        return status;
    }
    WDF_IO_TARGET_OPEN_PARAMS parameters;
    WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, WdfDeviceWdmGetDeviceObject(control.device));
    status = WdfIoTargetOpen(control.m_ioTarget, &parameters);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to open target, status = 0x", hex(status));
    }
    return status;
}

VOID onIoStop(WDFQUEUE, WDFREQUEST request, ULONG) {
    WdfRequestComplete(request, STATUS_SUCCESS);
}

NTSTATUS createDefaultQueue(const ControlDevice &control) {
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&config, WdfIoQueueDispatchParallel);
    config.PowerManaged = WdfFalse;
    config.EvtIoDeviceControl = onIoDeviceControl;
    config.EvtIoInternalDeviceControl = onIoInternalDeviceControl;
    config.EvtIoStop = onIoStop;
    const NTSTATUS status = WdfIoQueueCreate(control.device, &config, WDF_NO_OBJECT_ATTRIBUTES, WDF_NO_HANDLE);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create i/o queue, status = 0x", hex(status));
        LOG_ERROR(L"Failed to init default io queue, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS createManualQueue(ControlDevice &control, PFN_WDF_IO_QUEUE_STATE onReady, WDFQUEUE &queue) {
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    attributes.ParentObject = control.device;
    NTSTATUS status = WdfIoQueueCreate(control.device, &config, &attributes, &queue);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create io queue, status = 0x", hex(status));
        return status;
    }
    if (onReady != nullptr) {
        status = WdfIoQueueReadyNotify(queue, onReady, &control);
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to registrate io queue callback, status = 0x", hex(status));
        }
    }
    return status;
}

NTSTATUS createQueues(ControlDevice &control) {
    NTSTATUS status = createDefaultQueue(control);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = createManualQueue(control, fetchRequestsAndProcess, control.m_ioctlQueue);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init manual ioctl queue, status = 0x", hex(status));
        return status;
    }
    status = createManualQueue(control, fetchRequestsAndProcess, control.m_internalIoctlQueue);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init manual internal ioctl queue, status = 0x", hex(status));
        return status;
    }
    status = createManualQueue(control, nullptr, control.m_pendingQueue);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init manual pending queue, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS initializeControlDevice(ControlDevice &control) {
    NTSTATUS status = createLinkAndLocks(control);
    if (NT_SUCCESS(status)) {
        status = openTargetOnSelf(control);
    }
    if (NT_SUCCESS(status)) {
        status = createQueues(control);
    }
    return status;
}

} // namespace

NTSTATUS createControlDevice(PWDFDEVICE_INIT deviceInit) {
    LOG_INFO(L"Create control device");
    configureFileObjects(deviceInit);
    registerShutdownHandler(deviceInit);
    registerPowerNotifications(deviceInit);

    WDFDEVICE device = nullptr;
    NTSTATUS status = createDevice(deviceInit, device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    ControlDevice &control = *getControlDevice(device); // zeroed by the framework
    control.device = device;
    control.m_rescanContext.controlDevice = device;
    (void)IoRegisterShutdownNotification(WdfDeviceWdmGetDeviceObject(device));

    status = initializeControlDevice(control);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init control device, status = 0x", hex(status));
        return status;
    }
    setControlDevice(&control);
    return STATUS_SUCCESS;
}
