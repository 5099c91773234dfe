// Framework devices: what is set before creation, the device itself, its Plug and Play and power side.
// learn.microsoft.com: "wdfdevice.h header", "wdffdo.h header".
// What takes a PWDFDEVICE_INIT is called from the device-add callback, at PASSIVE_LEVEL. What takes a WDFDEVICE:
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/driver.h>

typedef VOID NTAPI EVT_WDF_DEVICE_FILE_CREATE(WDFDEVICE Device, WDFREQUEST Request, WDFFILEOBJECT FileObject);
typedef EVT_WDF_DEVICE_FILE_CREATE *PFN_WDF_DEVICE_FILE_CREATE;
typedef VOID NTAPI EVT_WDF_FILE_CLOSE(WDFFILEOBJECT FileObject);
typedef EVT_WDF_FILE_CLOSE *PFN_WDF_FILE_CLOSE;
typedef VOID NTAPI EVT_WDF_FILE_CLEANUP(WDFFILEOBJECT FileObject);
typedef EVT_WDF_FILE_CLEANUP *PFN_WDF_FILE_CLEANUP;
typedef NTSTATUS NTAPI EVT_WDFDEVICE_WDM_IRP_PREPROCESS(WDFDEVICE Device, PIRP Irp);
typedef EVT_WDFDEVICE_WDM_IRP_PREPROCESS *PFN_WDFDEVICE_WDM_IRP_PREPROCESS;

typedef enum _WDF_DEVICE_IO_TYPE {
    WdfDeviceIoUndefined,
    WdfDeviceIoNeither,
    WdfDeviceIoBuffered,
    WdfDeviceIoDirect
} WDF_DEVICE_IO_TYPE;

typedef enum _WDF_FILEOBJECT_CLASS : ULONG {
    WdfFileObjectInvalid = 0,
    WdfFileObjectNotRequired = 1,
    WdfFileObjectWdfCanUseFsContext = 2,
    WdfFileObjectWdfCanUseFsContext2 = 3,
    WdfFileObjectWdfCannotUseFsContexts = 4,
    WdfFileObjectCanBeOptional = 0x80000000
} WDF_FILEOBJECT_CLASS;

typedef struct _WDF_FILEOBJECT_CONFIG {
    ULONG Size;
    PFN_WDF_DEVICE_FILE_CREATE EvtDeviceFileCreate;
    PFN_WDF_FILE_CLOSE EvtFileClose;
    PFN_WDF_FILE_CLEANUP EvtFileCleanup;
    WDF_TRI_STATE AutoForwardCleanupClose;
    WDF_FILEOBJECT_CLASS FileObjectClass;
} WDF_FILEOBJECT_CONFIG, *PWDF_FILEOBJECT_CONFIG;

constexpr FORCEINLINE VOID WDF_FILEOBJECT_CONFIG_INIT(PWDF_FILEOBJECT_CONFIG Config,
                                                      PFN_WDF_DEVICE_FILE_CREATE EvtDeviceFileCreate,
                                                      PFN_WDF_FILE_CLOSE EvtFileClose,
                                                      PFN_WDF_FILE_CLEANUP EvtFileCleanup) {
    *Config = {};
    Config->Size = sizeof(WDF_FILEOBJECT_CONFIG);
    Config->EvtDeviceFileCreate = EvtDeviceFileCreate;
    Config->EvtFileClose = EvtFileClose;
    Config->EvtFileCleanup = EvtFileCleanup;
    Config->AutoForwardCleanupClose = WdfUseDefault;
    Config->FileObjectClass = WdfFileObjectWdfCannotUseFsContexts;
}

typedef struct _WDF_DEVICE_STATE {
    ULONG Size;
    WDF_TRI_STATE Disabled;
    WDF_TRI_STATE DontDisplayInUI;
    WDF_TRI_STATE Failed;
    WDF_TRI_STATE NotDisableable;
    WDF_TRI_STATE Removed;
    WDF_TRI_STATE ResourcesChanged;
} WDF_DEVICE_STATE, *PWDF_DEVICE_STATE;

constexpr FORCEINLINE VOID WDF_DEVICE_STATE_INIT(PWDF_DEVICE_STATE PnpDeviceState) {
    PnpDeviceState->Size = sizeof(WDF_DEVICE_STATE);
    PnpDeviceState->Disabled = WdfUseDefault;
    PnpDeviceState->DontDisplayInUI = WdfUseDefault;
    PnpDeviceState->Failed = WdfUseDefault;
    PnpDeviceState->NotDisableable = WdfUseDefault;
    PnpDeviceState->Removed = WdfUseDefault;
    PnpDeviceState->ResourcesChanged = WdfUseDefault;
}

typedef VOID(NTAPI *PFN_WDFFDOINITSETFILTER)(PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT DeviceInit);
/// From here on the framework hides a failed device add from Plug and Play. PASSIVE_LEVEL.
FORCEINLINE VOID WdfFdoInitSetFilter(PWDFDEVICE_INIT DeviceInit) {
    wdfFunction<PFN_WDFFDOINITSETFILTER>(WdfFdoInitSetFilterTableIndex)(WdfDriverGlobals, DeviceInit);
}

typedef NTSTATUS(NTAPI *PFN_WDFFDOINITQUERYPROPERTY)(PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT DeviceInit,
                                                     DEVICE_REGISTRY_PROPERTY DeviceProperty, ULONG BufferLength,
                                                     PVOID PropertyBuffer, PULONG ResultLength);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfFdoInitQueryProperty(PWDFDEVICE_INIT DeviceInit, DEVICE_REGISTRY_PROPERTY DeviceProperty,
                                             ULONG BufferLength, PVOID PropertyBuffer, PULONG ResultLength) {
    return wdfFunction<PFN_WDFFDOINITQUERYPROPERTY>(WdfFdoInitQueryPropertyTableIndex)(
        WdfDriverGlobals, DeviceInit, DeviceProperty, BufferLength, PropertyBuffer, ResultLength);
}

typedef NTSTATUS(NTAPI *PFN_WDFFDOINITALLOCANDQUERYPROPERTY)(
    PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT DeviceInit, DEVICE_REGISTRY_PROPERTY DeviceProperty,
    POOL_TYPE PoolType, PWDF_OBJECT_ATTRIBUTES PropertyMemoryAttributes, WDFMEMORY *PropertyMemory);
/// May succeed with a null memory for an empty property. PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfFdoInitAllocAndQueryProperty(PWDFDEVICE_INIT DeviceInit,
                                                     DEVICE_REGISTRY_PROPERTY DeviceProperty, POOL_TYPE PoolType,
                                                     PWDF_OBJECT_ATTRIBUTES PropertyMemoryAttributes,
                                                     WDFMEMORY *PropertyMemory) {
    return wdfFunction<PFN_WDFFDOINITALLOCANDQUERYPROPERTY>(WdfFdoInitAllocAndQueryPropertyTableIndex)(
        WdfDriverGlobals, DeviceInit, DeviceProperty, PoolType, PropertyMemoryAttributes, PropertyMemory);
}

typedef PDEVICE_OBJECT(NTAPI *PFN_WDFFDOINITWDMGETPHYSICALDEVICE)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                                                  PWDFDEVICE_INIT DeviceInit);
/// Adds no reference.
FORCEINLINE PDEVICE_OBJECT WdfFdoInitWdmGetPhysicalDevice(PWDFDEVICE_INIT DeviceInit) {
    return wdfFunction<PFN_WDFFDOINITWDMGETPHYSICALDEVICE>(WdfFdoInitWdmGetPhysicalDeviceTableIndex)(WdfDriverGlobals,
                                                                                                     DeviceInit);
}

typedef NTSTATUS(NTAPI *PFN_WDFDEVICECREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT *DeviceInit,
                                             PWDF_OBJECT_ATTRIBUTES DeviceAttributes, WDFDEVICE *Device);
/// On success the init pointer becomes null. PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfDeviceCreate(PWDFDEVICE_INIT *DeviceInit, PWDF_OBJECT_ATTRIBUTES DeviceAttributes,
                                     WDFDEVICE *Device) {
    return wdfFunction<PFN_WDFDEVICECREATE>(WdfDeviceCreateTableIndex)(WdfDriverGlobals, DeviceInit, DeviceAttributes,
                                                                       Device);
}

typedef VOID(NTAPI *PFN_WDFDEVICESETDEVICESTATE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device,
                                                 PWDF_DEVICE_STATE DeviceState);
/// Replaces the whole state. IRQL <= DISPATCH_LEVEL.
FORCEINLINE VOID WdfDeviceSetDeviceState(WDFDEVICE Device, PWDF_DEVICE_STATE DeviceState) {
    wdfFunction<PFN_WDFDEVICESETDEVICESTATE>(WdfDeviceSetDeviceStateTableIndex)(WdfDriverGlobals, Device, DeviceState);
}

typedef VOID(NTAPI *PFN_WDFDEVICEGETDEVICESTATE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device,
                                                 PWDF_DEVICE_STATE DeviceState);
FORCEINLINE VOID WdfDeviceGetDeviceState(WDFDEVICE Device, PWDF_DEVICE_STATE DeviceState) {
    wdfFunction<PFN_WDFDEVICEGETDEVICESTATE>(WdfDeviceGetDeviceStateTableIndex)(WdfDriverGlobals, Device, DeviceState);
}

typedef PDEVICE_OBJECT(NTAPI *PFN_WDFDEVICEWDMGETPHYSICALDEVICE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device);
FORCEINLINE PDEVICE_OBJECT WdfDeviceWdmGetPhysicalDevice(WDFDEVICE Device) {
    return wdfFunction<PFN_WDFDEVICEWDMGETPHYSICALDEVICE>(WdfDeviceWdmGetPhysicalDeviceTableIndex)(WdfDriverGlobals,
                                                                                                   Device);
}

typedef PDEVICE_OBJECT(NTAPI *PFN_WDFDEVICEWDMGETDEVICEOBJECT)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device);
FORCEINLINE PDEVICE_OBJECT WdfDeviceWdmGetDeviceObject(WDFDEVICE Device) {
    return wdfFunction<PFN_WDFDEVICEWDMGETDEVICEOBJECT>(WdfDeviceWdmGetDeviceObjectTableIndex)(WdfDriverGlobals,
                                                                                               Device);
}

typedef PDEVICE_OBJECT(NTAPI *PFN_WDFDEVICEWDMGETATTACHEDDEVICE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device);
FORCEINLINE PDEVICE_OBJECT WdfDeviceWdmGetAttachedDevice(WDFDEVICE Device) {
    return wdfFunction<PFN_WDFDEVICEWDMGETATTACHEDDEVICE>(WdfDeviceWdmGetAttachedDeviceTableIndex)(WdfDriverGlobals,
                                                                                                   Device);
}

typedef WDFDEVICE(NTAPI *PFN_WDFWDMDEVICEGETWDFDEVICEHANDLE)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                                             PDEVICE_OBJECT DeviceObject);
/// Only for a device object of this driver: ownership is not checked.
FORCEINLINE WDFDEVICE WdfWdmDeviceGetWdfDeviceHandle(PDEVICE_OBJECT DeviceObject) {
    return wdfFunction<PFN_WDFWDMDEVICEGETWDFDEVICEHANDLE>(WdfWdmDeviceGetWdfDeviceHandleTableIndex)(WdfDriverGlobals,
                                                                                                     DeviceObject);
}

typedef NTSTATUS(NTAPI *PFN_WDFDEVICECREATESYMBOLICLINK)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device,
                                                         PCUNICODE_STRING SymbolicLinkName);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfDeviceCreateSymbolicLink(WDFDEVICE Device, PCUNICODE_STRING SymbolicLinkName) {
    return wdfFunction<PFN_WDFDEVICECREATESYMBOLICLINK>(WdfDeviceCreateSymbolicLinkTableIndex)(WdfDriverGlobals, Device,
                                                                                               SymbolicLinkName);
}

typedef WDFIOTARGET(NTAPI *PFN_WDFDEVICEGETIOTARGET)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device);
FORCEINLINE WDFIOTARGET WdfDeviceGetIoTarget(WDFDEVICE Device) {
    return wdfFunction<PFN_WDFDEVICEGETIOTARGET>(WdfDeviceGetIoTargetTableIndex)(WdfDriverGlobals, Device);
}

typedef WDFQUEUE(NTAPI *PFN_WDFDEVICEGETDEFAULTQUEUE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device);
FORCEINLINE WDFQUEUE WdfDeviceGetDefaultQueue(WDFDEVICE Device) {
    return wdfFunction<PFN_WDFDEVICEGETDEFAULTQUEUE>(WdfDeviceGetDefaultQueueTableIndex)(WdfDriverGlobals, Device);
}

typedef NTSTATUS(NTAPI *PFN_WDFDEVICEWDMDISPATCHPREPROCESSEDIRP)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device,
                                                                 PIRP Irp);
/// The caller has skipped or copied its stack location.
FORCEINLINE NTSTATUS WdfDeviceWdmDispatchPreprocessedIrp(WDFDEVICE Device, PIRP Irp) {
    return wdfFunction<PFN_WDFDEVICEWDMDISPATCHPREPROCESSEDIRP>(WdfDeviceWdmDispatchPreprocessedIrpTableIndex)(
        WdfDriverGlobals, Device, Irp);
}

typedef NTSTATUS(NTAPI *PFN_WDFDEVICEINITASSIGNWDMIRPPREPROCESSCALLBACK)(
    PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT DeviceInit,
    PFN_WDFDEVICE_WDM_IRP_PREPROCESS EvtDeviceWdmIrpPreprocess, UCHAR MajorFunction, PUCHAR MinorFunctions,
    ULONG NumMinorFunctions);
FORCEINLINE NTSTATUS WdfDeviceInitAssignWdmIrpPreprocessCallback(
    PWDFDEVICE_INIT DeviceInit, PFN_WDFDEVICE_WDM_IRP_PREPROCESS EvtDeviceWdmIrpPreprocess, UCHAR MajorFunction,
    PUCHAR MinorFunctions, ULONG NumMinorFunctions) {
    return wdfFunction<PFN_WDFDEVICEINITASSIGNWDMIRPPREPROCESSCALLBACK>(
        WdfDeviceInitAssignWdmIrpPreprocessCallbackTableIndex)(WdfDriverGlobals, DeviceInit, EvtDeviceWdmIrpPreprocess,
                                                               MajorFunction, MinorFunctions, NumMinorFunctions);
}

typedef VOID(NTAPI *PFN_WDFDEVICEINITSETFILEOBJECTCONFIG)(PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT DeviceInit,
                                                          PWDF_FILEOBJECT_CONFIG FileObjectConfig,
                                                          PWDF_OBJECT_ATTRIBUTES FileObjectAttributes);
/// Has no effect, without a word, when the configuration is wrong.
FORCEINLINE VOID WdfDeviceInitSetFileObjectConfig(PWDFDEVICE_INIT DeviceInit, PWDF_FILEOBJECT_CONFIG FileObjectConfig,
                                                  PWDF_OBJECT_ATTRIBUTES FileObjectAttributes) {
    wdfFunction<PFN_WDFDEVICEINITSETFILEOBJECTCONFIG>(WdfDeviceInitSetFileObjectConfigTableIndex)(
        WdfDriverGlobals, DeviceInit, FileObjectConfig, FileObjectAttributes);
}

typedef VOID(NTAPI *PFN_WDFDEVICEINITSETREQUESTATTRIBUTES)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                                           PWDFDEVICE_INIT DeviceInit,
                                                           PWDF_OBJECT_ATTRIBUTES RequestAttributes);
FORCEINLINE VOID WdfDeviceInitSetRequestAttributes(PWDFDEVICE_INIT DeviceInit,
                                                   PWDF_OBJECT_ATTRIBUTES RequestAttributes) {
    wdfFunction<PFN_WDFDEVICEINITSETREQUESTATTRIBUTES>(WdfDeviceInitSetRequestAttributesTableIndex)(
        WdfDriverGlobals, DeviceInit, RequestAttributes);
}

typedef WDFDEVICE(NTAPI *PFN_WDFFILEOBJECTGETDEVICE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFFILEOBJECT FileObject);
FORCEINLINE WDFDEVICE WdfFileObjectGetDevice(WDFFILEOBJECT FileObject) {
    return wdfFunction<PFN_WDFFILEOBJECTGETDEVICE>(WdfFileObjectGetDeviceTableIndex)(WdfDriverGlobals, FileObject);
}
