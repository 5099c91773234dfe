#include "driver.h"

#include "../kernel/strings.h"
#include "call.h"
#include "irp_dispatch.h"
#include "table.h"

#include <algorithm>
#include <cstring>

namespace sim::framework {

Driver::Driver(Client &client, PDRIVER_OBJECT driverObject, std::u16string registryPath,
               const WDF_DRIVER_CONFIG &config, const void *callSite)
    : Object(client, objectType, callSite), driverObject(driverObject), registryPath(std::move(registryPath)),
      config(config) {
    client.driver = this;
}

Driver::~Driver() {
    client().driver = nullptr;
    client().globals.Driver = nullptr;
}

namespace {

constexpr ULONG knownInitFlags = WdfDriverInitNonPnpDriver | WdfDriverInitNoDispatchOverride | WdfVerifyOn;

/// The first four characters of the service's name, in memory order.
ULONG tagFromServiceName(std::u16string_view registryPath) {
    const std::u16string_view name = registryPath.substr(registryPath.rfind(u'\\') + 1);
    char letters[4] = {' ', ' ', ' ', ' '};
    for (std::size_t index = 0; index < std::min<std::size_t>(name.size(), 4); ++index) {
        letters[index] = static_cast<char>(name[index]);
    }
    ULONG tag;
    std::memcpy(&tag, letters, sizeof(tag));
    return tag;
}

void fillGlobals(WDF_DRIVER_GLOBALS &globals, const Driver &driver) {
    globals.Driver = static_cast<WDFDRIVER>(driver.handle());
    globals.DriverFlags |= driver.config.DriverInitFlags;
    globals.DriverTag =
        driver.config.DriverPoolTag ? driver.config.DriverPoolTag : tagFromServiceName(driver.registryPath);
    globals.DisplaceDriverUnload = !(driver.config.DriverInitFlags & WdfDriverInitNonPnpDriver);
}

void hookDriverObject(DRIVER_OBJECT &driverObject, ULONG initFlags) {
    if (!(initFlags & WdfDriverInitNonPnpDriver)) {
        driverObject.DriverExtension->AddDevice = addDevice;
        driverObject.DriverUnload = unloadDriver;
    }
    if (!(initFlags & WdfDriverInitNoDispatchOverride)) {
        std::fill(std::begin(driverObject.MajorFunction), std::end(driverObject.MajorFunction), dispatchIrp);
    }
}

NTSTATUS checkConfiguration(const WDF_DRIVER_CONFIG &config, PCUNICODE_STRING registryPath) {
    if (config.Size != sizeof(WDF_DRIVER_CONFIG)) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    if (config.DriverInitFlags & ~knownInitFlags) {
        return STATUS_INVALID_PARAMETER;
    }
    return validateString(registryPath);
}

// learn.microsoft.com: WdfDriverCreate
NTSTATUS driverCreate(PWDF_DRIVER_GLOBALS globals, PDRIVER_OBJECT driverObject, PCUNICODE_STRING registryPath,
                      PWDF_OBJECT_ATTRIBUTES attributes, PWDF_DRIVER_CONFIG config, WDFDRIVER *handle) {
    const Call call{"WdfDriverCreate", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.pointer(driverObject, "DriverObject");
    call.pointer(registryPath, "RegistryPath");
    call.pointer(config, "DriverConfig");
    NTSTATUS status = checkConfiguration(*config, registryPath);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    call.passive();
    if (client.driver) {
        return STATUS_DRIVER_INTERNAL_ERROR;
    }
    if (handle) {
        *handle = nullptr;
    }
    if ((config->DriverInitFlags & WdfDriverInitNonPnpDriver) && config->EvtDriverDeviceAdd) {
        return STATUS_INVALID_PARAMETER;
    }
    status = validateAttributes(attributes, {.parentAllowed = false, .callbacksMeaningful = true});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *driver = new Driver(client, driverObject, toText(registryPath), *config, call.site);
    if (attributes && attributes->ExecutionLevel != WdfExecutionLevelInheritFromParent) {
        driver->executionLevel = attributes->ExecutionLevel;
    }
    if (attributes && attributes->SynchronizationScope != WdfSynchronizationScopeInheritFromParent) {
        driver->synchronizationScope = attributes->SynchronizationScope;
    }
    status = driver->addContext(attributes);
    if (!NT_SUCCESS(status)) {
        driver->abandon();
        return status;
    }
    fillGlobals(client.globals, *driver);
    hookDriverObject(*driverObject, config->DriverInitFlags);
    if (handle) {
        *handle = static_cast<WDFDRIVER>(driver->handle());
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfDriverWdmGetDriverObject
PDRIVER_OBJECT getDriverObject(PWDF_DRIVER_GLOBALS globals, WDFDRIVER handle) {
    const Call call{"WdfDriverWdmGetDriverObject", SIM_CALL_SITE};
    call.client(globals);
    return call.object<Driver>(handle).driverObject;
}

} // namespace

// learn.microsoft.com: EVT_WDF_DRIVER_UNLOAD; framework source: children before the driver's own cleanup callback
VOID unloadDriver(PDRIVER_OBJECT driverObject) {
    requirePassive("DriverUnload", SIM_CALL_SITE);
    Client *client = clientOfDriver(driverObject);
    if (!client || !client->driver) {
        bugCheck("framework object", "DriverUnload", "the driver has no framework driver object", SIM_CALL_SITE);
    }
    Driver &driver = *client->driver;
    if (driver.config.EvtDriverUnload) {
        CallbackContract contract("EvtDriverUnload");
        driver.config.EvtDriverUnload(static_cast<WDFDRIVER>(driver.handle()));
    }
    kernel().workers.settle();
    if (driver.devices != 0) {
        bugCheck("framework object", "DriverUnload",
                 std::to_string(driver.devices) + " devices of the driver are still there", SIM_CALL_SITE);
    }
    driver.remove();
    drainDeferredDeletions();
}

void installDriverRoutines(FunctionTable &table) {
    table.set(WdfDriverCreateTableIndex, PFN_WDFDRIVERCREATE(driverCreate));
    table.set(WdfDriverWdmGetDriverObjectTableIndex, PFN_WDFDRIVERWDMGETDRIVEROBJECT(getDriverObject));
}

} // namespace sim::framework
