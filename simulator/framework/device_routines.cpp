#include "call.h"
#include "device.h"
#include "driver.h"
#include "file_object.h"
#include "io_package.h"
#include "queue.h"
#include "table.h"
#include "target.h"

namespace sim::framework {

namespace {

// learn.microsoft.com: WdfDeviceCreate
NTSTATUS deviceCreate(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT *init, PWDF_OBJECT_ATTRIBUTES attributes,
                      WDFDEVICE *handle) {
    const Call call{"WdfDeviceCreate", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    call.pointer(init, "DeviceInit");
    DeviceInit &deviceInit = call.deviceInit(*init);
    call.pointer(handle, "Device");
    *handle = nullptr;
    if (deviceInit.created) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    NTSTATUS status = validateAttributes(attributes, {.parentAllowed = false, .callbacksMeaningful = true});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const auto &fileAttributes = deviceInit.settings.fileObjectAttributes;
    if (fileAttributes && fileAttributes->SynchronizationScope == WdfSynchronizationScopeQueue) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *device = new Device(deviceInit, attributes, call.site);
    status = call.publish<WDFDEVICE>(*device, attributes, deviceInit.driver, nullptr);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = device->attach();
    if (!NT_SUCCESS(status)) {
        device->abandon();
        return status;
    }
    deviceInit.created = device;
    *handle = device->deviceHandle();
    *init = nullptr;
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfDeviceWdmGetDeviceObject
PDEVICE_OBJECT getDeviceObject(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle) {
    const Call call{"WdfDeviceWdmGetDeviceObject", SIM_CALL_SITE};
    call.client(globals);
    return call.object<Device>(handle).deviceObject;
}

// learn.microsoft.com: WdfDeviceWdmGetAttachedDevice
PDEVICE_OBJECT getAttachedDevice(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle) {
    const Call call{"WdfDeviceWdmGetAttachedDevice", SIM_CALL_SITE};
    call.client(globals);
    return call.object<Device>(handle).attached;
}

// learn.microsoft.com: WdfDeviceWdmGetPhysicalDevice
PDEVICE_OBJECT getPhysicalDevice(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle) {
    const Call call{"WdfDeviceWdmGetPhysicalDevice", SIM_CALL_SITE};
    call.client(globals);
    return call.object<Device>(handle).physical;
}

// learn.microsoft.com: WdfWdmDeviceGetWdfDeviceHandle; framework source: it follows the device extension and nothing
// else, so a foreign or removed device object is a fault
WDFDEVICE getDeviceHandle(PWDF_DRIVER_GLOBALS globals, PDEVICE_OBJECT deviceObject) {
    const Call call{"WdfWdmDeviceGetWdfDeviceHandle", SIM_CALL_SITE};
    call.client(globals);
    call.pointer(deviceObject, "DeviceObject");
    const Device *device = deviceOf(deviceObject);
    if (!device) {
        call.violation("access violation", "the device object is no framework device, or it has been removed");
    }
    return device->deviceHandle();
}

// learn.microsoft.com: WdfDeviceGetIoTarget
WDFIOTARGET getIoTarget(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle) {
    const Call call{"WdfDeviceGetIoTarget", SIM_CALL_SITE};
    call.client(globals);
    return static_cast<WDFIOTARGET>(call.object<Device>(handle).defaultTarget->handle());
}

// learn.microsoft.com: WdfDeviceGetDefaultQueue
WDFQUEUE getDefaultQueue(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle) {
    const Call call{"WdfDeviceGetDefaultQueue", SIM_CALL_SITE};
    call.client(globals);
    const Queue *queue = call.object<Device>(handle).io->defaultQueue();
    return queue ? static_cast<WDFQUEUE>(queue->handle()) : nullptr;
}

// learn.microsoft.com: WdfDeviceCreateSymbolicLink
NTSTATUS createSymbolicLink(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle, PCUNICODE_STRING name) {
    const Call call{"WdfDeviceCreateSymbolicLink", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    Device &device = call.object<Device>(handle);
    call.pointer(name, "SymbolicLinkName");
    const NTSTATUS status = validateString(name);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (name->Length == 0) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    return device.createSymbolicLink(toText(name));
}

// learn.microsoft.com: WdfFileObjectGetDevice
WDFDEVICE getFileObjectDevice(PWDF_DRIVER_GLOBALS globals, WDFFILEOBJECT handle) {
    const Call call{"WdfFileObjectGetDevice", SIM_CALL_SITE};
    call.client(globals);
    return call.object<FileObject>(handle).device.deviceHandle();
}

} // namespace

void installDeviceRoutines(FunctionTable &table) {
    table.set(WdfDeviceCreateTableIndex, PFN_WDFDEVICECREATE(deviceCreate));
    table.set(WdfDeviceWdmGetDeviceObjectTableIndex, PFN_WDFDEVICEWDMGETDEVICEOBJECT(getDeviceObject));
    table.set(WdfDeviceWdmGetAttachedDeviceTableIndex, PFN_WDFDEVICEWDMGETATTACHEDDEVICE(getAttachedDevice));
    table.set(WdfDeviceWdmGetPhysicalDeviceTableIndex, PFN_WDFDEVICEWDMGETPHYSICALDEVICE(getPhysicalDevice));
    table.set(WdfWdmDeviceGetWdfDeviceHandleTableIndex, PFN_WDFWDMDEVICEGETWDFDEVICEHANDLE(getDeviceHandle));
    table.set(WdfFileObjectGetDeviceTableIndex, PFN_WDFFILEOBJECTGETDEVICE(getFileObjectDevice));
    table.set(WdfDeviceGetIoTargetTableIndex, PFN_WDFDEVICEGETIOTARGET(getIoTarget));
    table.set(WdfDeviceGetDefaultQueueTableIndex, PFN_WDFDEVICEGETDEFAULTQUEUE(getDefaultQueue));
    table.set(WdfDeviceCreateSymbolicLinkTableIndex, PFN_WDFDEVICECREATESYMBOLICLINK(createSymbolicLink));
}

} // namespace sim::framework
