// The framework driver object. learn.microsoft.com: "wdfdriver.h header".
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/object.h>

typedef NTSTATUS NTAPI EVT_WDF_DRIVER_DEVICE_ADD(WDFDRIVER Driver, PWDFDEVICE_INIT DeviceInit);
typedef EVT_WDF_DRIVER_DEVICE_ADD *PFN_WDF_DRIVER_DEVICE_ADD;
typedef VOID NTAPI EVT_WDF_DRIVER_UNLOAD(WDFDRIVER Driver);
typedef EVT_WDF_DRIVER_UNLOAD *PFN_WDF_DRIVER_UNLOAD;

typedef enum _WDF_DRIVER_INIT_FLAGS {
    WdfDriverInitNonPnpDriver = 0x1,
    WdfDriverInitNoDispatchOverride = 0x2,
    WdfVerifyOn = 0x4
} WDF_DRIVER_INIT_FLAGS;

typedef struct _WDF_DRIVER_CONFIG {
    ULONG Size;
    PFN_WDF_DRIVER_DEVICE_ADD EvtDriverDeviceAdd;
    PFN_WDF_DRIVER_UNLOAD EvtDriverUnload;
    ULONG DriverInitFlags;
    ULONG DriverPoolTag;
} WDF_DRIVER_CONFIG, *PWDF_DRIVER_CONFIG;

constexpr FORCEINLINE VOID WDF_DRIVER_CONFIG_INIT(PWDF_DRIVER_CONFIG Config,
                                                  PFN_WDF_DRIVER_DEVICE_ADD EvtDriverDeviceAdd) {
    *Config = {};
    Config->Size = sizeof(WDF_DRIVER_CONFIG);
    Config->EvtDriverDeviceAdd = EvtDriverDeviceAdd;
}

/// The handle that WdfDriverCreate left in the driver's globals; null before. Any IRQL.
FORCEINLINE WDFDRIVER WdfGetDriver(VOID) {
    return WdfDriverGlobals->Driver;
}

typedef NTSTATUS(NTAPI *PFN_WDFDRIVERCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, PDRIVER_OBJECT DriverObject,
                                             PCUNICODE_STRING RegistryPath, PWDF_OBJECT_ATTRIBUTES DriverAttributes,
                                             PWDF_DRIVER_CONFIG DriverConfig, WDFDRIVER *Driver);
/// Once per driver, from DriverEntry. PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfDriverCreate(PDRIVER_OBJECT DriverObject, PCUNICODE_STRING RegistryPath,
                                     PWDF_OBJECT_ATTRIBUTES DriverAttributes, PWDF_DRIVER_CONFIG DriverConfig,
                                     WDFDRIVER *Driver) {
    return wdfFunction<PFN_WDFDRIVERCREATE>(WdfDriverCreateTableIndex)(WdfDriverGlobals, DriverObject, RegistryPath,
                                                                       DriverAttributes, DriverConfig, Driver);
}

typedef PDRIVER_OBJECT(NTAPI *PFN_WDFDRIVERWDMGETDRIVEROBJECT)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDRIVER Driver);
FORCEINLINE PDRIVER_OBJECT WdfDriverWdmGetDriverObject(WDFDRIVER Driver) {
    return wdfFunction<PFN_WDFDRIVERWDMGETDRIVEROBJECT>(WdfDriverWdmGetDriverObjectTableIndex)(WdfDriverGlobals,
                                                                                               Driver);
}

typedef NTSTATUS(NTAPI *PFN_WDFDRIVEROPENPARAMETERSREGISTRYKEY)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDRIVER Driver,
                                                                ACCESS_MASK DesiredAccess,
                                                                PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY *Key);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfDriverOpenParametersRegistryKey(WDFDRIVER Driver, ACCESS_MASK DesiredAccess,
                                                        PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY *Key) {
    return wdfFunction<PFN_WDFDRIVEROPENPARAMETERSREGISTRYKEY>(WdfDriverOpenParametersRegistryKeyTableIndex)(
        WdfDriverGlobals, Driver, DesiredAccess, KeyAttributes, Key);
}
