#include "../kernel/thread.h"
#include "call.h"
#include "device.h"
#include "driver.h"
#include "framework.h"

namespace sim::framework {

namespace {

thread_local std::optional<NTSTATUS> callbackStatus;

} // namespace

std::optional<NTSTATUS> lastDeviceAddCallbackStatus() {
    return callbackStatus;
}

void clearLastDeviceAddCallbackStatus() {
    callbackStatus.reset();
}

// learn.microsoft.com: EVT_WDF_DRIVER_DEVICE_ADD; framework source: a failure after WdfFdoInitSetFilter is hidden from
// Plug and Play, and the stack goes on without the filter
NTSTATUS addDevice(PDRIVER_OBJECT driverObject, PDEVICE_OBJECT physicalDevice) {
    requirePassive("AddDevice", SIM_CALL_SITE);
    clearLastDeviceAddCallbackStatus();
    const Client *client = clientOfDriver(driverObject);
    if (!client || !client->driver) {
        bugCheck("framework object", "AddDevice", "the driver has no framework driver object", SIM_CALL_SITE);
    }
    Driver &driver = *client->driver;
    if (!driver.config.EvtDriverDeviceAdd) {
        return STATUS_SUCCESS;
    }
    DeviceInit init(driver, physicalDevice);
    NTSTATUS status;
    {
        CallbackContract contract("EvtDriverDeviceAdd");
        status = driver.config.EvtDriverDeviceAdd(static_cast<WDFDRIVER>(driver.handle()), init.pointer());
    }
    callbackStatus = status;
    if (NT_SUCCESS(status)) {
        if (init.created) {
            init.created->deviceObject->Flags &= ~DO_DEVICE_INITIALIZING;
        }
        return STATUS_SUCCESS;
    }
    if (init.created) {
        init.created->deleteAfterFailedAdd();
    }
    return init.settings.filter ? STATUS_SUCCESS : status;
}

} // namespace sim::framework
