// I/O requests. learn.microsoft.com: "wdfrequest.h header".
// IRQL <= DISPATCH_LEVEL unless said otherwise.
#pragma once

#include <wdf/object.h>

typedef VOID NTAPI EVT_WDF_REQUEST_CANCEL(WDFREQUEST Request);
typedef EVT_WDF_REQUEST_CANCEL *PFN_WDF_REQUEST_CANCEL;

typedef enum _WDF_REQUEST_TYPE {
    WdfRequestTypeCreate = 0x0,
    WdfRequestTypeClose = 0x2,
    WdfRequestTypeRead = 0x3,
    WdfRequestTypeWrite = 0x4,
    WdfRequestTypeDeviceControl = 0xE,
    WdfRequestTypeDeviceControlInternal = 0xF,
    WdfRequestTypeOther = 0x1C,
    WdfRequestTypeNoFormat = 0xFF
} WDF_REQUEST_TYPE;

typedef enum _WDF_REQUEST_REUSE_FLAGS {
    WDF_REQUEST_REUSE_NO_FLAGS = 0x0,
    WDF_REQUEST_REUSE_SET_NEW_IRP = 0x1
} WDF_REQUEST_REUSE_FLAGS;

typedef enum _WDF_REQUEST_SEND_OPTIONS_FLAGS {
    WDF_REQUEST_SEND_OPTION_TIMEOUT = 0x1,
    WDF_REQUEST_SEND_OPTION_SYNCHRONOUS = 0x2,
    WDF_REQUEST_SEND_OPTION_IGNORE_TARGET_STATE = 0x4,
    WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET = 0x8,
    WDF_REQUEST_SEND_OPTION_IMPERSONATE_CLIENT = 0x10000,
    WDF_REQUEST_SEND_OPTION_IMPERSONATION_IGNORE_FAILURE = 0x20000
} WDF_REQUEST_SEND_OPTIONS_FLAGS;

typedef struct _WDF_REQUEST_PARAMETERS {
    USHORT Size;
    UCHAR MinorFunction;
    WDF_REQUEST_TYPE Type;
    union {
        struct {
            PIO_SECURITY_CONTEXT SecurityContext;
            ULONG Options;
            USHORT POINTER_ALIGNMENT FileAttributes;
            USHORT ShareAccess;
            ULONG POINTER_ALIGNMENT EaLength;
        } Create;
        struct {
            size_t Length;
            ULONG POINTER_ALIGNMENT Key;
            LONGLONG DeviceOffset;
        } Read;
        struct {
            size_t Length;
            ULONG POINTER_ALIGNMENT Key;
            LONGLONG DeviceOffset;
        } Write;
        struct {
            size_t OutputBufferLength;
            size_t POINTER_ALIGNMENT InputBufferLength;
            ULONG POINTER_ALIGNMENT IoControlCode;
            PVOID Type3InputBuffer;
        } DeviceIoControl;
        struct {
            PVOID Arg1;
            PVOID Arg2;
            ULONG POINTER_ALIGNMENT IoControlCode;
            PVOID Arg4;
        } Others;
    } Parameters;
} WDF_REQUEST_PARAMETERS, *PWDF_REQUEST_PARAMETERS;

constexpr FORCEINLINE VOID WDF_REQUEST_PARAMETERS_INIT(PWDF_REQUEST_PARAMETERS Parameters) {
    *Parameters = {};
    Parameters->Size = sizeof(WDF_REQUEST_PARAMETERS);
}

typedef struct _WDF_REQUEST_SEND_OPTIONS {
    ULONG Size;
    ULONG Flags;
    LONGLONG Timeout;
} WDF_REQUEST_SEND_OPTIONS, *PWDF_REQUEST_SEND_OPTIONS;

constexpr FORCEINLINE VOID WDF_REQUEST_SEND_OPTIONS_INIT(PWDF_REQUEST_SEND_OPTIONS Options, ULONG Flags) {
    *Options = {};
    Options->Size = sizeof(WDF_REQUEST_SEND_OPTIONS);
    Options->Flags = Flags;
}

/// `Timeout` in 100 ns units, negative for relative; 0 waits for ever.
constexpr FORCEINLINE VOID WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(PWDF_REQUEST_SEND_OPTIONS Options, LONGLONG Timeout) {
    Options->Flags |= WDF_REQUEST_SEND_OPTION_TIMEOUT;
    Options->Timeout = Timeout;
}

typedef struct _WDF_REQUEST_REUSE_PARAMS {
    ULONG Size;
    ULONG Flags;
    NTSTATUS Status;
    PIRP NewIrp;
} WDF_REQUEST_REUSE_PARAMS, *PWDF_REQUEST_REUSE_PARAMS;

constexpr FORCEINLINE VOID WDF_REQUEST_REUSE_PARAMS_INIT(PWDF_REQUEST_REUSE_PARAMS Params, ULONG Flags,
                                                         NTSTATUS Status) {
    *Params = {};
    Params->Size = sizeof(WDF_REQUEST_REUSE_PARAMS);
    Params->Flags = Flags;
    Params->Status = Status;
}

typedef struct _WDF_REQUEST_COMPLETION_PARAMS {
    ULONG Size;
    WDF_REQUEST_TYPE Type;
    IO_STATUS_BLOCK IoStatus;
    union {
        struct {
            ULONG IoControlCode;
            struct {
                WDFMEMORY Buffer;
                size_t Offset;
            } Input;
            struct {
                WDFMEMORY Buffer;
                size_t Offset;
                size_t Length;
            } Output;
        } Ioctl;
        ULONG_PTR Reserved[6];
    } Parameters;
} WDF_REQUEST_COMPLETION_PARAMS, *PWDF_REQUEST_COMPLETION_PARAMS;

typedef VOID NTAPI EVT_WDF_REQUEST_COMPLETION_ROUTINE(WDFREQUEST Request, WDFIOTARGET Target,
                                                      PWDF_REQUEST_COMPLETION_PARAMS Params, WDFCONTEXT Context);
typedef EVT_WDF_REQUEST_COMPLETION_ROUTINE *PFN_WDF_REQUEST_COMPLETION_ROUTINE;

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTFORWARDTOIOQUEUE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                                        WDFQUEUE DestinationQueue);
/// After success the request is no longer the caller's. IRQL <= DISPATCH_LEVEL.
FORCEINLINE NTSTATUS WdfRequestForwardToIoQueue(WDFREQUEST Request, WDFQUEUE DestinationQueue) {
    return wdfFunction<PFN_WDFREQUESTFORWARDTOIOQUEUE>(WdfRequestForwardToIoQueueTableIndex)(WdfDriverGlobals, Request,
                                                                                             DestinationQueue);
}

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTREQUEUE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request);
/// To the head of the manual queue it came from. IRQL <= DISPATCH_LEVEL.
FORCEINLINE NTSTATUS WdfRequestRequeue(WDFREQUEST Request) {
    return wdfFunction<PFN_WDFREQUESTREQUEUE>(WdfRequestRequeueTableIndex)(WdfDriverGlobals, Request);
}

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                              PWDF_OBJECT_ATTRIBUTES RequestAttributes, WDFIOTARGET IoTarget,
                                              WDFREQUEST *Request);
FORCEINLINE NTSTATUS WdfRequestCreate(PWDF_OBJECT_ATTRIBUTES RequestAttributes, WDFIOTARGET IoTarget,
                                      WDFREQUEST *Request) {
    return wdfFunction<PFN_WDFREQUESTCREATE>(WdfRequestCreateTableIndex)(WdfDriverGlobals, RequestAttributes, IoTarget,
                                                                         Request);
}

typedef BOOLEAN(NTAPI *PFN_WDFREQUESTSEND)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request, WDFIOTARGET Target,
                                           PWDF_REQUEST_SEND_OPTIONS Options);
/// TRUE means sent; the outcome is in WdfRequestGetStatus. PASSIVE_LEVEL when synchronous.
FORCEINLINE BOOLEAN WdfRequestSend(WDFREQUEST Request, WDFIOTARGET Target, PWDF_REQUEST_SEND_OPTIONS Options) {
    return wdfFunction<PFN_WDFREQUESTSEND>(WdfRequestSendTableIndex)(WdfDriverGlobals, Request, Target, Options);
}

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTGETSTATUS)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request);
FORCEINLINE NTSTATUS WdfRequestGetStatus(WDFREQUEST Request) {
    return wdfFunction<PFN_WDFREQUESTGETSTATUS>(WdfRequestGetStatusTableIndex)(WdfDriverGlobals, Request);
}

typedef VOID(NTAPI *PFN_WDFREQUESTCOMPLETE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request, NTSTATUS Status);
FORCEINLINE VOID WdfRequestComplete(WDFREQUEST Request, NTSTATUS Status) {
    wdfFunction<PFN_WDFREQUESTCOMPLETE>(WdfRequestCompleteTableIndex)(WdfDriverGlobals, Request, Status);
}

typedef VOID(NTAPI *PFN_WDFREQUESTCOMPLETEWITHINFORMATION)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                                           NTSTATUS Status, ULONG_PTR Information);
FORCEINLINE VOID WdfRequestCompleteWithInformation(WDFREQUEST Request, NTSTATUS Status, ULONG_PTR Information) {
    wdfFunction<PFN_WDFREQUESTCOMPLETEWITHINFORMATION>(WdfRequestCompleteWithInformationTableIndex)(
        WdfDriverGlobals, Request, Status, Information);
}

typedef VOID(NTAPI *PFN_WDFREQUESTGETPARAMETERS)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                                 PWDF_REQUEST_PARAMETERS Parameters);
FORCEINLINE VOID WdfRequestGetParameters(WDFREQUEST Request, PWDF_REQUEST_PARAMETERS Parameters) {
    wdfFunction<PFN_WDFREQUESTGETPARAMETERS>(WdfRequestGetParametersTableIndex)(WdfDriverGlobals, Request, Parameters);
}

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTRETRIEVEINPUTBUFFER)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                                           size_t MinimumRequiredLength, PVOID *Buffer, size_t *Length);
/// A zero-length buffer is STATUS_BUFFER_TOO_SMALL whatever the minimum.
FORCEINLINE NTSTATUS WdfRequestRetrieveInputBuffer(WDFREQUEST Request, size_t MinimumRequiredLength, PVOID *Buffer,
                                                   size_t *Length) {
    return wdfFunction<PFN_WDFREQUESTRETRIEVEINPUTBUFFER>(WdfRequestRetrieveInputBufferTableIndex)(
        WdfDriverGlobals, Request, MinimumRequiredLength, Buffer, Length);
}

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTRETRIEVEOUTPUTBUFFER)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                                            size_t MinimumRequiredSize, PVOID *Buffer, size_t *Length);
FORCEINLINE NTSTATUS WdfRequestRetrieveOutputBuffer(WDFREQUEST Request, size_t MinimumRequiredSize, PVOID *Buffer,
                                                    size_t *Length) {
    return wdfFunction<PFN_WDFREQUESTRETRIEVEOUTPUTBUFFER>(WdfRequestRetrieveOutputBufferTableIndex)(
        WdfDriverGlobals, Request, MinimumRequiredSize, Buffer, Length);
}

typedef PIRP(NTAPI *PFN_WDFREQUESTWDMGETIRP)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request);
FORCEINLINE PIRP WdfRequestWdmGetIrp(WDFREQUEST Request) {
    return wdfFunction<PFN_WDFREQUESTWDMGETIRP>(WdfRequestWdmGetIrpTableIndex)(WdfDriverGlobals, Request);
}

typedef VOID(NTAPI *PFN_WDFREQUESTWDMFORMATUSINGSTACKLOCATION)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                                               PIO_STACK_LOCATION Stack);
FORCEINLINE VOID WdfRequestWdmFormatUsingStackLocation(WDFREQUEST Request, PIO_STACK_LOCATION Stack) {
    wdfFunction<PFN_WDFREQUESTWDMFORMATUSINGSTACKLOCATION>(WdfRequestWdmFormatUsingStackLocationTableIndex)(
        WdfDriverGlobals, Request, Stack);
}

typedef VOID(NTAPI *PFN_WDFREQUESTFORMATREQUESTUSINGCURRENTTYPE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request);
FORCEINLINE VOID WdfRequestFormatRequestUsingCurrentType(WDFREQUEST Request) {
    wdfFunction<PFN_WDFREQUESTFORMATREQUESTUSINGCURRENTTYPE>(WdfRequestFormatRequestUsingCurrentTypeTableIndex)(
        WdfDriverGlobals, Request);
}

typedef NTSTATUS(NTAPI *PFN_WDFREQUESTREUSE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request,
                                             PWDF_REQUEST_REUSE_PARAMS ReuseParams);
FORCEINLINE NTSTATUS WdfRequestReuse(WDFREQUEST Request, PWDF_REQUEST_REUSE_PARAMS ReuseParams) {
    return wdfFunction<PFN_WDFREQUESTREUSE>(WdfRequestReuseTableIndex)(WdfDriverGlobals, Request, ReuseParams);
}

typedef ULONG_PTR(NTAPI *PFN_WDFREQUESTGETINFORMATION)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request);
FORCEINLINE ULONG_PTR WdfRequestGetInformation(WDFREQUEST Request) {
    return wdfFunction<PFN_WDFREQUESTGETINFORMATION>(WdfRequestGetInformationTableIndex)(WdfDriverGlobals, Request);
}

typedef WDFFILEOBJECT(NTAPI *PFN_WDFREQUESTGETFILEOBJECT)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFREQUEST Request);
FORCEINLINE WDFFILEOBJECT WdfRequestGetFileObject(WDFREQUEST Request) {
    return wdfFunction<PFN_WDFREQUESTGETFILEOBJECT>(WdfRequestGetFileObjectTableIndex)(WdfDriverGlobals, Request);
}
