// I/O queues. learn.microsoft.com: "wdfio.h header".
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/request.h>

typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_DEFAULT(WDFQUEUE Queue, WDFREQUEST Request);
typedef EVT_WDF_IO_QUEUE_IO_DEFAULT *PFN_WDF_IO_QUEUE_IO_DEFAULT;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_READ(WDFQUEUE Queue, WDFREQUEST Request, size_t Length);
typedef EVT_WDF_IO_QUEUE_IO_READ *PFN_WDF_IO_QUEUE_IO_READ;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_WRITE(WDFQUEUE Queue, WDFREQUEST Request, size_t Length);
typedef EVT_WDF_IO_QUEUE_IO_WRITE *PFN_WDF_IO_QUEUE_IO_WRITE;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_DEVICE_CONTROL(WDFQUEUE Queue, WDFREQUEST Request, size_t OutputBufferLength,
                                                      size_t InputBufferLength, ULONG IoControlCode);
typedef EVT_WDF_IO_QUEUE_IO_DEVICE_CONTROL *PFN_WDF_IO_QUEUE_IO_DEVICE_CONTROL;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL(WDFQUEUE Queue, WDFREQUEST Request,
                                                               size_t OutputBufferLength, size_t InputBufferLength,
                                                               ULONG IoControlCode);
typedef EVT_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL *PFN_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_STOP(WDFQUEUE Queue, WDFREQUEST Request, ULONG ActionFlags);
typedef EVT_WDF_IO_QUEUE_IO_STOP *PFN_WDF_IO_QUEUE_IO_STOP;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_RESUME(WDFQUEUE Queue, WDFREQUEST Request);
typedef EVT_WDF_IO_QUEUE_IO_RESUME *PFN_WDF_IO_QUEUE_IO_RESUME;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_IO_CANCELED_ON_QUEUE(WDFQUEUE Queue, WDFREQUEST Request);
typedef EVT_WDF_IO_QUEUE_IO_CANCELED_ON_QUEUE *PFN_WDF_IO_QUEUE_IO_CANCELED_ON_QUEUE;
typedef VOID NTAPI EVT_WDF_IO_QUEUE_STATE(WDFQUEUE Queue, WDFCONTEXT Context);
typedef EVT_WDF_IO_QUEUE_STATE *PFN_WDF_IO_QUEUE_STATE;

typedef enum _WDF_IO_QUEUE_DISPATCH_TYPE {
    WdfIoQueueDispatchInvalid,
    WdfIoQueueDispatchSequential,
    WdfIoQueueDispatchParallel,
    WdfIoQueueDispatchManual,
    WdfIoQueueDispatchMax
} WDF_IO_QUEUE_DISPATCH_TYPE;

typedef enum _WDF_IO_QUEUE_STATE {
    WdfIoQueueAcceptRequests = 0x01,
    WdfIoQueueDispatchRequests = 0x02,
    WdfIoQueueNoRequests = 0x04,
    WdfIoQueueDriverNoRequests = 0x08,
    WdfIoQueuePnpHeld = 0x10
} WDF_IO_QUEUE_STATE;

typedef enum _WDF_REQUEST_STOP_ACTION_FLAGS {
    WdfRequestStopActionInvalid = 0,
    WdfRequestStopActionSuspend = 0x01,
    WdfRequestStopActionPurge = 0x02,
    WdfRequestStopRequestCancelable = 0x10000000
} WDF_REQUEST_STOP_ACTION_FLAGS;

typedef struct _WDF_IO_QUEUE_CONFIG {
    ULONG Size;
    WDF_IO_QUEUE_DISPATCH_TYPE DispatchType;
    WDF_TRI_STATE PowerManaged;
    BOOLEAN AllowZeroLengthRequests;
    BOOLEAN DefaultQueue;
    PFN_WDF_IO_QUEUE_IO_DEFAULT EvtIoDefault;
    PFN_WDF_IO_QUEUE_IO_READ EvtIoRead;
    PFN_WDF_IO_QUEUE_IO_WRITE EvtIoWrite;
    PFN_WDF_IO_QUEUE_IO_DEVICE_CONTROL EvtIoDeviceControl;
    PFN_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL EvtIoInternalDeviceControl;
    PFN_WDF_IO_QUEUE_IO_STOP EvtIoStop;
    PFN_WDF_IO_QUEUE_IO_RESUME EvtIoResume;
    PFN_WDF_IO_QUEUE_IO_CANCELED_ON_QUEUE EvtIoCanceledOnQueue;
    union {
        struct {
            ULONG NumberOfPresentedRequests;
        } Parallel;
    } Settings;
    WDFDRIVER Driver;
} WDF_IO_QUEUE_CONFIG, *PWDF_IO_QUEUE_CONFIG;

constexpr FORCEINLINE VOID WDF_IO_QUEUE_CONFIG_INIT(PWDF_IO_QUEUE_CONFIG Config,
                                                    WDF_IO_QUEUE_DISPATCH_TYPE DispatchType) {
    *Config = {};
    Config->Size = sizeof(WDF_IO_QUEUE_CONFIG);
    Config->PowerManaged = WdfUseDefault;
    Config->DispatchType = DispatchType;
    if (DispatchType == WdfIoQueueDispatchParallel) {
        Config->Settings.Parallel.NumberOfPresentedRequests = (ULONG)-1;
    }
}

constexpr FORCEINLINE VOID WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(PWDF_IO_QUEUE_CONFIG Config,
                                                                  WDF_IO_QUEUE_DISPATCH_TYPE DispatchType) {
    WDF_IO_QUEUE_CONFIG_INIT(Config, DispatchType);
    Config->DefaultQueue = TRUE;
}

#define WDF_IO_QUEUE_IDLE(state) (((state) & WdfIoQueueNoRequests) && ((state) & WdfIoQueueDriverNoRequests))

typedef NTSTATUS(NTAPI *PFN_WDFIOQUEUECREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFDEVICE Device,
                                              PWDF_IO_QUEUE_CONFIG Config, PWDF_OBJECT_ATTRIBUTES QueueAttributes,
                                              WDFQUEUE *Queue);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfIoQueueCreate(WDFDEVICE Device, PWDF_IO_QUEUE_CONFIG Config,
                                      PWDF_OBJECT_ATTRIBUTES QueueAttributes, WDFQUEUE *Queue) {
    return wdfFunction<PFN_WDFIOQUEUECREATE>(WdfIoQueueCreateTableIndex)(WdfDriverGlobals, Device, Config,
                                                                         QueueAttributes, Queue);
}

typedef WDF_IO_QUEUE_STATE(NTAPI *PFN_WDFIOQUEUEGETSTATE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFQUEUE Queue,
                                                          PULONG QueueRequests, PULONG DriverRequests);
FORCEINLINE WDF_IO_QUEUE_STATE WdfIoQueueGetState(WDFQUEUE Queue, PULONG QueueRequests, PULONG DriverRequests) {
    return wdfFunction<PFN_WDFIOQUEUEGETSTATE>(WdfIoQueueGetStateTableIndex)(WdfDriverGlobals, Queue, QueueRequests,
                                                                             DriverRequests);
}

typedef WDFDEVICE(NTAPI *PFN_WDFIOQUEUEGETDEVICE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFQUEUE Queue);
FORCEINLINE WDFDEVICE WdfIoQueueGetDevice(WDFQUEUE Queue) {
    return wdfFunction<PFN_WDFIOQUEUEGETDEVICE>(WdfIoQueueGetDeviceTableIndex)(WdfDriverGlobals, Queue);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOQUEUEREADYNOTIFY)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFQUEUE Queue,
                                                   PFN_WDF_IO_QUEUE_STATE QueueReady, WDFCONTEXT Context);
FORCEINLINE NTSTATUS WdfIoQueueReadyNotify(WDFQUEUE Queue, PFN_WDF_IO_QUEUE_STATE QueueReady, WDFCONTEXT Context) {
    return wdfFunction<PFN_WDFIOQUEUEREADYNOTIFY>(WdfIoQueueReadyNotifyTableIndex)(WdfDriverGlobals, Queue, QueueReady,
                                                                                   Context);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOQUEUERETRIEVENEXTREQUEST)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFQUEUE Queue,
                                                           WDFREQUEST *OutRequest);
/// IRQL <= DISPATCH_LEVEL.
FORCEINLINE NTSTATUS WdfIoQueueRetrieveNextRequest(WDFQUEUE Queue, WDFREQUEST *OutRequest) {
    return wdfFunction<PFN_WDFIOQUEUERETRIEVENEXTREQUEST>(WdfIoQueueRetrieveNextRequestTableIndex)(WdfDriverGlobals,
                                                                                                   Queue, OutRequest);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOQUEUEFINDREQUEST)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFQUEUE Queue,
                                                   WDFREQUEST FoundRequest, WDFFILEOBJECT FileObject,
                                                   PWDF_REQUEST_PARAMETERS Parameters, WDFREQUEST *OutRequest);
/// Manual queues only; the caller drops the reference on the request found. IRQL <= DISPATCH_LEVEL.
FORCEINLINE NTSTATUS WdfIoQueueFindRequest(WDFQUEUE Queue, WDFREQUEST FoundRequest, WDFFILEOBJECT FileObject,
                                           PWDF_REQUEST_PARAMETERS Parameters, WDFREQUEST *OutRequest) {
    return wdfFunction<PFN_WDFIOQUEUEFINDREQUEST>(WdfIoQueueFindRequestTableIndex)(
        WdfDriverGlobals, Queue, FoundRequest, FileObject, Parameters, OutRequest);
}

typedef NTSTATUS(NTAPI *PFN_WDFIOQUEUERETRIEVEFOUNDREQUEST)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFQUEUE Queue,
                                                            WDFREQUEST FoundRequest, WDFREQUEST *OutRequest);
FORCEINLINE NTSTATUS WdfIoQueueRetrieveFoundRequest(WDFQUEUE Queue, WDFREQUEST FoundRequest, WDFREQUEST *OutRequest) {
    return wdfFunction<PFN_WDFIOQUEUERETRIEVEFOUNDREQUEST>(WdfIoQueueRetrieveFoundRequestTableIndex)(
        WdfDriverGlobals, Queue, FoundRequest, OutRequest);
}
