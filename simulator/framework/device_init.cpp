#include "device_init.h"

#include "call.h"
#include "memory.h"
#include "power.h"
#include "table.h"

#include <mutex>
#include <set>

namespace sim::framework {

namespace {

std::mutex liveMutex;
std::set<DeviceInit *> liveInits;

} // namespace

DeviceInit::DeviceInit(Driver &driver, PDEVICE_OBJECT physicalDevice) : driver(driver), physicalDevice(physicalDevice) {
    std::lock_guard lock(liveMutex);
    liveInits.insert(this);
}

DeviceInit::~DeviceInit() {
    std::lock_guard lock(liveMutex);
    liveInits.erase(this);
}

DeviceInit *DeviceInit::find(PWDFDEVICE_INIT init) {
    auto *candidate = reinterpret_cast<DeviceInit *>(init);
    std::lock_guard lock(liveMutex);
    return liveInits.contains(candidate) ? candidate : nullptr;
}

namespace {

// learn.microsoft.com: WdfFdoInitSetFilter
VOID setFilter(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init) {
    const Call call{"WdfFdoInitSetFilter", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    call.deviceInit(init).settings.filter = true;
}

// learn.microsoft.com: WdfFdoInitWdmGetPhysicalDevice
PDEVICE_OBJECT getPhysicalDevice(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init) {
    const Call call{"WdfFdoInitWdmGetPhysicalDevice", SIM_CALL_SITE};
    call.client(globals);
    return call.deviceInit(init).physicalDevice;
}

// learn.microsoft.com: WdfFdoInitQueryProperty; the status is that of IoGetDeviceProperty
NTSTATUS queryProperty(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init, DEVICE_REGISTRY_PROPERTY property,
                       ULONG bufferLength, PVOID buffer, PULONG resultLength) {
    const Call call{"WdfFdoInitQueryProperty", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(resultLength, "ResultLength");
    if (bufferLength > 0) {
        call.pointer(buffer, "PropertyBuffer");
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    return IoGetDeviceProperty(deviceInit.physicalDevice, property, bufferLength, buffer, resultLength);
}

// learn.microsoft.com: WdfFdoInitAllocAndQueryProperty; framework source: the first query's status is returned unless
// it says how much is needed, so that a property of no bytes succeeds without memory
NTSTATUS allocAndQueryProperty(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init, DEVICE_REGISTRY_PROPERTY property,
                               POOL_TYPE poolType, PWDF_OBJECT_ATTRIBUTES attributes, WDFMEMORY *handle) {
    const Call call{"WdfFdoInitAllocAndQueryProperty", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(handle, "PropertyMemory");
    *handle = nullptr;
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    ULONG needed = 0;
    status = IoGetDeviceProperty(deviceInit.physicalDevice, property, 0, nullptr, &needed);
    if (status != STATUS_BUFFER_TOO_SMALL) {
        return status;
    }
    std::vector<std::uint8_t> value(needed);
    status = IoGetDeviceProperty(deviceInit.physicalDevice, property, needed, value.data(), &needed);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    return createFilledMemory(call, client, value, poolType, attributes, handle);
}

// learn.microsoft.com: WdfDeviceInitSetPnpPowerEventCallbacks
VOID setPnpPowerEventCallbacks(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init,
                               PWDF_PNPPOWER_EVENT_CALLBACKS callbacks) {
    const Call call{"WdfDeviceInitSetPnpPowerEventCallbacks", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(callbacks, "PnpPowerEventCallbacks");
    if (callbacks->Size != sizeof(WDF_PNPPOWER_EVENT_CALLBACKS)) {
        call.violation("framework structure", "the callbacks' Size is " + std::to_string(callbacks->Size));
    }
    if (callbacks->EvtDeviceD0EntryPostInterruptsEnabled || callbacks->EvtDeviceD0ExitPreInterruptsDisabled ||
        callbacks->EvtDeviceUsageNotification || callbacks->EvtDeviceRelationsQuery ||
        callbacks->EvtDeviceUsageNotificationEx) {
        notSimulated(call.routine, "interrupt, usage and relations callbacks", call.site);
    }
    deviceInit.settings.pnpPower = *callbacks;
}

// learn.microsoft.com: WdfDeviceInitSetRequestAttributes
VOID setRequestAttributes(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init, PWDF_OBJECT_ATTRIBUTES attributes) {
    const Call call{"WdfDeviceInitSetRequestAttributes", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(attributes, "RequestAttributes");
    if (NT_SUCCESS(validateAttributes(attributes, {.parentAllowed = false}))) {
        deviceInit.settings.requestAttributes = *attributes;
    }
}

/// A configuration that the framework would ignore without a word is reported instead.
bool isUsable(const WDF_FILEOBJECT_CONFIG &config) {
    const auto fileClass = static_cast<ULONG>(config.FileObjectClass) & ~static_cast<ULONG>(WdfFileObjectCanBeOptional);
    return config.Size == sizeof(WDF_FILEOBJECT_CONFIG) && config.AutoForwardCleanupClose >= WdfFalse &&
           config.AutoForwardCleanupClose <= WdfUseDefault && fileClass >= WdfFileObjectNotRequired &&
           fileClass <= WdfFileObjectWdfCannotUseFsContexts;
}

// learn.microsoft.com: WdfDeviceInitSetFileObjectConfig; framework source: faults are ignored without a status
VOID setFileObjectConfig(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init, PWDF_FILEOBJECT_CONFIG config,
                         PWDF_OBJECT_ATTRIBUTES attributes) {
    const Call call{"WdfDeviceInitSetFileObjectConfig", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(config, "FileObjectConfig");
    const AttributeRules rules{.parentAllowed = false, .callbacksMeaningful = true};
    if (!isUsable(*config) || !NT_SUCCESS(validateAttributes(attributes, rules))) {
        return;
    }
    deviceInit.settings.fileObject = *config;
    deviceInit.settings.fileObjectAttributes =
        attributes ? std::optional<WDF_OBJECT_ATTRIBUTES>(*attributes) : std::nullopt;
}

// learn.microsoft.com: WdfDeviceInitAssignWdmIrpPreprocessCallback
NTSTATUS assignPreprocessCallback(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init,
                                  PFN_WDFDEVICE_WDM_IRP_PREPROCESS routine, UCHAR majorFunction, PUCHAR minorFunctions,
                                  ULONG minorCount) {
    const Call call{"WdfDeviceInitAssignWdmIrpPreprocessCallback", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(reinterpret_cast<const void *>(routine), "EvtDeviceWdmIrpPreprocess");
    if (minorCount > 0) {
        call.pointer(minorFunctions, "MinorFunctions");
    }
    if (majorFunction > IRP_MJ_MAXIMUM_FUNCTION) {
        return STATUS_INVALID_PARAMETER;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    PreprocessCallback &callback = deviceInit.settings.preprocess[majorFunction];
    if (minorCount > 0) {
        if (!callback.minorFunctions.empty()) {
            return STATUS_INVALID_DEVICE_REQUEST;
        }
        callback.minorFunctions.assign(minorFunctions, minorFunctions + minorCount);
    }
    callback.routine = routine;
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfDeviceInitRegisterPowerStateChangeCallback; framework source: lack of memory has the same
// status as a wrong state
NTSTATUS registerPowerStateChangeCallback(PWDF_DRIVER_GLOBALS globals, PWDFDEVICE_INIT init,
                                          WDF_DEVICE_POWER_STATE state,
                                          PFN_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION routine, ULONG types) {
    const Call call{"WdfDeviceInitRegisterPowerStateChangeCallback", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    DeviceInit &deviceInit = call.deviceInit(init);
    call.pointer(reinterpret_cast<const void *>(routine), "EvtDevicePowerStateChange");
    const ULONG plainState = static_cast<ULONG>(state) & ~notPageableState;
    if (plainState < firstPowerState || plainState >= endOfPowerStates || types == 0 ||
        (types & ~static_cast<ULONG>(StateNotificationAllStates)) != 0) {
        return STATUS_INVALID_PARAMETER;
    }
    if (const auto failure = call.injectedFailure(STATUS_INVALID_PARAMETER)) {
        return *failure;
    }
    if (!isSimulatedPowerState(static_cast<ULONG>(state))) {
        notSimulated(call.routine, "power state " + hex(static_cast<ULONG>(state)), call.site);
    }
    deviceInit.settings.powerStateCallbacks[static_cast<ULONG>(state)] = {routine, types};
    return STATUS_SUCCESS;
}

} // namespace

void installDeviceInitRoutines(FunctionTable &table) {
    table.set(WdfFdoInitSetFilterTableIndex, PFN_WDFFDOINITSETFILTER(setFilter));
    table.set(WdfFdoInitWdmGetPhysicalDeviceTableIndex, PFN_WDFFDOINITWDMGETPHYSICALDEVICE(getPhysicalDevice));
    table.set(WdfFdoInitQueryPropertyTableIndex, PFN_WDFFDOINITQUERYPROPERTY(queryProperty));
    table.set(WdfFdoInitAllocAndQueryPropertyTableIndex, PFN_WDFFDOINITALLOCANDQUERYPROPERTY(allocAndQueryProperty));
    table.set(WdfDeviceInitSetPnpPowerEventCallbacksTableIndex,
              PFN_WDFDEVICEINITSETPNPPOWEREVENTCALLBACKS(setPnpPowerEventCallbacks));
    table.set(WdfDeviceInitSetRequestAttributesTableIndex, PFN_WDFDEVICEINITSETREQUESTATTRIBUTES(setRequestAttributes));
    table.set(WdfDeviceInitSetFileObjectConfigTableIndex, PFN_WDFDEVICEINITSETFILEOBJECTCONFIG(setFileObjectConfig));
    table.set(WdfDeviceInitAssignWdmIrpPreprocessCallbackTableIndex,
              PFN_WDFDEVICEINITASSIGNWDMIRPPREPROCESSCALLBACK(assignPreprocessCallback));
    table.set(WdfDeviceInitRegisterPowerStateChangeCallbackTableIndex,
              PFN_WDFDEVICEINITREGISTERPOWERSTATECHANGECALLBACK(registerPowerStateChangeCallback));
}

} // namespace sim::framework
