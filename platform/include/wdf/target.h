// I/O targets. learn.microsoft.com: "wdfiotarget.h header".
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/memory.h>
#include <wdf/request.h>

typedef NTSTATUS NTAPI EVT_WDF_IO_TARGET_QUERY_REMOVE(WDFIOTARGET IoTarget);
typedef EVT_WDF_IO_TARGET_QUERY_REMOVE *PFN_WDF_IO_TARGET_QUERY_REMOVE;
typedef VOID NTAPI EVT_WDF_IO_TARGET_REMOVE_CANCELED(WDFIOTARGET IoTarget);
typedef EVT_WDF_IO_TARGET_REMOVE_CANCELED *PFN_WDF_IO_TARGET_REMOVE_CANCELED;
typedef VOID NTAPI EVT_WDF_IO_TARGET_REMOVE_COMPLETE(WDFIOTARGET IoTarget);
typedef EVT_WDF_IO_TARGET_REMOVE_COMPLETE *PFN_WDF_IO_TARGET_REMOVE_COMPLETE;

typedef enum _WDF_IO_TARGET_OPEN_TYPE {
    WdfIoTargetOpenUndefined,
    WdfIoTargetOpenUseExistingDevice,
    WdfIoTargetOpenByName,
    WdfIoTargetOpenReopen,
    WdfIoTargetOpenLocalTargetByFile
} WDF_IO_TARGET_OPEN_TYPE;

typedef struct _WDF_IO_TARGET_OPEN_PARAMS {
    ULONG Size;
    WDF_IO_TARGET_OPEN_TYPE Type;
    PFN_WDF_IO_TARGET_QUERY_REMOVE EvtIoTargetQueryRemove;
    PFN_WDF_IO_TARGET_REMOVE_CANCELED EvtIoTargetRemoveCanceled;
    PFN_WDF_IO_TARGET_REMOVE_COMPLETE EvtIoTargetRemoveComplete;
    PDEVICE_OBJECT TargetDeviceObject;
    PFILE_OBJECT TargetFileObject;
    UNICODE_STRING TargetDeviceName;
    ACCESS_MASK DesiredAccess;
    ULONG ShareAccess;
    ULONG FileAttributes;
    ULONG CreateDisposition;
    ULONG CreateOptions;
    PVOID EaBuffer;
    ULONG EaBufferLength;
    PLONGLONG AllocationSize;
    ULONG FileInformation;
    UNICODE_STRING FileName;
} WDF_IO_TARGET_OPEN_PARAMS, *PWDF_IO_TARGET_OPEN_PARAMS;

constexpr FORCEINLINE VOID WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(PWDF_IO_TARGET_OPEN_PARAMS Params,
                                                                          PDEVICE_OBJECT DeviceObject) {
    *Params = {};
    Params->Size = sizeof(WDF_IO_TARGET_OPEN_PARAMS);
    Params->Type = WdfIoTargetOpenUseExistingDevice;
    Params->TargetDeviceObject = DeviceObject;
}

typedef NTSTATUS(NTAPI *PFN_WDFIOTARGETCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device,
                                               PWDF_OBJECT_ATTRIBUTES IoTargetAttributes, WDFIOTARGET *IoTarget);
FORCEINLINE NTSTATUS WdfIoTargetCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES IoTargetAttributes,
                                       WDFIOTARGET *IoTarget) {
    return wdfFunction<PFN_WDFIOTARGETCREATE>(WdfIoTargetCreateTableIndex)(WdfDriverGlobals, Device, IoTargetAttributes,
                                                                           IoTarget);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOTARGETOPEN)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFIOTARGET IoTarget,
                                             PWDF_IO_TARGET_OPEN_PARAMS OpenParams);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfIoTargetOpen(WDFIOTARGET IoTarget, PWDF_IO_TARGET_OPEN_PARAMS OpenParams) {
    return wdfFunction<PFN_WDFIOTARGETOPEN>(WdfIoTargetOpenTableIndex)(WdfDriverGlobals, IoTarget, OpenParams);
}

typedef VOID(NTAPI *PFN_WDFIOTARGETCLOSE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFIOTARGET IoTarget);
/// PASSIVE_LEVEL.
FORCEINLINE VOID WdfIoTargetClose(WDFIOTARGET IoTarget) {
    wdfFunction<PFN_WDFIOTARGETCLOSE>(WdfIoTargetCloseTableIndex)(WdfDriverGlobals, IoTarget);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOTARGETFORMATREQUESTFORINTERNALIOCTL)(
    PWDF_DRIVER_GLOBALS DriverGlobals, WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode, WDFMEMORY InputBuffer,
    PWDFMEMORY_OFFSET InputBufferOffset, WDFMEMORY OutputBuffer, PWDFMEMORY_OFFSET OutputBufferOffset);
FORCEINLINE NTSTATUS WdfIoTargetFormatRequestForInternalIoctl(WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode,
                                                              WDFMEMORY InputBuffer,
                                                              PWDFMEMORY_OFFSET InputBufferOffset,
                                                              WDFMEMORY OutputBuffer,
                                                              PWDFMEMORY_OFFSET OutputBufferOffset) {
    return wdfFunction<PFN_WDFIOTARGETFORMATREQUESTFORINTERNALIOCTL>(
        WdfIoTargetFormatRequestForInternalIoctlTableIndex)(WdfDriverGlobals, IoTarget, Request, IoctlCode, InputBuffer,
                                                            InputBufferOffset, OutputBuffer, OutputBufferOffset);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOTARGETSENDIOCTLSYNCHRONOUSLY)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFIOTARGET IoTarget,
                                                               WDFREQUEST Request, ULONG IoctlCode,
                                                               PWDF_MEMORY_DESCRIPTOR InputBuffer,
                                                               PWDF_MEMORY_DESCRIPTOR OutputBuffer,
                                                               PWDF_REQUEST_SEND_OPTIONS RequestOptions,
                                                               PULONG_PTR BytesReturned);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfIoTargetSendIoctlSynchronously(WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode,
                                                       PWDF_MEMORY_DESCRIPTOR InputBuffer,
                                                       PWDF_MEMORY_DESCRIPTOR OutputBuffer,
                                                       PWDF_REQUEST_SEND_OPTIONS RequestOptions,
                                                       PULONG_PTR BytesReturned) {
    return wdfFunction<PFN_WDFIOTARGETSENDIOCTLSYNCHRONOUSLY>(WdfIoTargetSendIoctlSynchronouslyTableIndex)(
        WdfDriverGlobals, IoTarget, Request, IoctlCode, InputBuffer, OutputBuffer, RequestOptions, BytesReturned);
}
