#include "framework_entry.h"

#include "security_cookie.h"
#include <wdf.h>
#include <wdf/bind.h>

extern "C" {
DRIVER_INITIALIZE DriverEntry;

const WDFFUNC *WdfFunctions;
PWDF_DRIVER_GLOBALS WdfDriverGlobals;
}

// Code that runs once at load is discarded by the system afterwards.
#ifdef _WIN32
#define DISCARDED_AFTER_LOAD __attribute__((section("INIT")))
#else
#define DISCARDED_AFTER_LOAD
#endif

namespace {

// learn.microsoft.com: "KMDF version history". 1.15 loads on every Windows 10 and 11.
constexpr ULONG frameworkMajor = 1;
constexpr ULONG frameworkMinor = 15;
// Informational: the framework compares major and minor only.
constexpr ULONG frameworkBuild = 7600;

WCHAR libraryName[] = L"KmdfLibrary";

// The framework keeps the address and fills Module, so this stays writable until unbinding.
WDF_BIND_INFO bindInfo = {
    .Size = sizeof(WDF_BIND_INFO),
    .Component = libraryName,
    .Version = {frameworkMajor, frameworkMinor, frameworkBuild},
    .FuncCount = WDF_FUNCTION_TABLE_NUM_ENTRIES,
    .FuncTable = &WdfFunctions,
    .Module = nullptr,
};

// The system frees its registry path after load; unbinding needs it again.
constexpr USHORT registryPathCharacters = 260;
WCHAR registryPathBuffer[registryPathCharacters];
UNICODE_STRING boundRegistryPath;

PDRIVER_UNLOAD displacedUnload;

VOID unbind() {
    WdfVersionUnbind(&boundRegistryPath, &bindInfo, WdfDriverGlobals);
}

// Takes the place of the framework's unload routine, which runs first: it deletes the driver object.
VOID unloadAndUnbind(PDRIVER_OBJECT driver) {
    if (displacedUnload && displacedUnload != unloadAndUnbind) {
        displacedUnload(driver);
    }
    unbind();
}

DISCARDED_AFTER_LOAD NTSTATUS bind(PDRIVER_OBJECT driver, PCUNICODE_STRING registryPath) {
    displacedUnload = nullptr;
    bindInfo.Module = nullptr;
    boundRegistryPath = {0, sizeof(registryPathBuffer), registryPathBuffer};
    RtlCopyUnicodeString(&boundRegistryPath, registryPath);
    return WdfVersionBind(driver, &boundRegistryPath, &bindInfo, &WdfDriverGlobals);
}

} // namespace

extern "C" DISCARDED_AFTER_LOAD NTSTATUS FxDriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
    requireSeededSecurityCookie();
    if (!driver) {
        // Loaded as a library: there is nothing to bind for.
        return DriverEntry(driver, registryPath);
    }
    NTSTATUS status = bind(driver, registryPath);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = DriverEntry(driver, registryPath);
    if (!NT_SUCCESS(status)) {
        unbind();
        return status;
    }
    if (WdfDriverGlobals->DisplaceDriverUnload) {
        if (driver->DriverUnload) {
            displacedUnload = driver->DriverUnload;
        }
        driver->DriverUnload = unloadAndUnbind;
    }
    return status;
}
