// I/O request packets, their stack locations, and the routines that send and complete them.
#pragma once

#include <nt/device.h>
#include <nt/memory.h>
#include <nt/pnp.h>

#define IRP_MJ_CREATE 0x00
#define IRP_MJ_CREATE_NAMED_PIPE 0x01
#define IRP_MJ_CLOSE 0x02
#define IRP_MJ_READ 0x03
#define IRP_MJ_WRITE 0x04
#define IRP_MJ_QUERY_INFORMATION 0x05
#define IRP_MJ_SET_INFORMATION 0x06
#define IRP_MJ_FLUSH_BUFFERS 0x09
#define IRP_MJ_FILE_SYSTEM_CONTROL 0x0d
#define IRP_MJ_DEVICE_CONTROL 0x0e
#define IRP_MJ_INTERNAL_DEVICE_CONTROL 0x0f
#define IRP_MJ_SHUTDOWN 0x10
#define IRP_MJ_CLEANUP 0x12
#define IRP_MJ_POWER 0x16
#define IRP_MJ_SYSTEM_CONTROL 0x17
#define IRP_MJ_PNP 0x1b

#define SL_PENDING_RETURNED 0x01
#define SL_INVOKE_ON_CANCEL 0x20
#define SL_INVOKE_ON_SUCCESS 0x40
#define SL_INVOKE_ON_ERROR 0x80

#define IO_NO_INCREMENT 0

typedef struct _IO_STATUS_BLOCK {
    union {
        NTSTATUS Status;
        PVOID Pointer;
    };
    ULONG_PTR Information;
} IO_STATUS_BLOCK, *PIO_STATUS_BLOCK;

typedef VOID(NTAPI *PIO_APC_ROUTINE)(PVOID context, PIO_STATUS_BLOCK ioStatus, ULONG reserved);
typedef NTSTATUS NTAPI IO_COMPLETION_ROUTINE(PDEVICE_OBJECT device, struct _IRP *irp, PVOID context);
typedef IO_COMPLETION_ROUTINE *PIO_COMPLETION_ROUTINE;

typedef struct _MDL {
    struct _MDL *Next;
    CSHORT Size;
    CSHORT MdlFlags;
    struct _EPROCESS *Process;
    PVOID MappedSystemVa;
    PVOID StartVa;
    ULONG ByteCount;
    ULONG ByteOffset;
} MDL, *PMDL;

typedef struct _IO_SECURITY_CONTEXT {
    PVOID SecurityQos;
    PACCESS_STATE AccessState;
    ACCESS_MASK DesiredAccess;
    ULONG FullCreateOptions;
} IO_SECURITY_CONTEXT, *PIO_SECURITY_CONTEXT;

typedef struct DECLSPEC_ALIGN(16) _IRP {
    CSHORT Type;
    USHORT Size;
    PMDL MdlAddress;
    ULONG Flags;
    union {
        struct _IRP *MasterIrp;
        LONG IrpCount;
        PVOID SystemBuffer;
    } AssociatedIrp;
    LIST_ENTRY ThreadListEntry;
    IO_STATUS_BLOCK IoStatus;
    KPROCESSOR_MODE RequestorMode;
    BOOLEAN PendingReturned;
    CHAR StackCount;
    CHAR CurrentLocation;
    BOOLEAN Cancel;
    KIRQL CancelIrql;
    CCHAR ApcEnvironment;
    UCHAR AllocationFlags;
    PIO_STATUS_BLOCK UserIosb;
    PKEVENT UserEvent;
    union {
        struct {
            union {
                PIO_APC_ROUTINE UserApcRoutine;
                PVOID IssuingProcess;
            };
            PVOID UserApcContext;
        } AsynchronousParameters;
        LARGE_INTEGER AllocationSize;
    } Overlay;
    PDRIVER_CANCEL CancelRoutine;
    PVOID UserBuffer;
    union {
        struct {
            union {
                KDEVICE_QUEUE_ENTRY DeviceQueueEntry;
                PVOID DriverContext[4];
            };
            PETHREAD Thread;
            PCHAR AuxiliaryBuffer;
            LIST_ENTRY ListEntry;
            union {
                struct _IO_STACK_LOCATION *CurrentStackLocation;
                ULONG PacketType;
            };
            PFILE_OBJECT OriginalFileObject;
        } Overlay;
        ULONG64 Apc[11];
        PVOID CompletionKey;
    } Tail;
} IRP;

typedef struct _IO_STACK_LOCATION {
    UCHAR MajorFunction;
    UCHAR MinorFunction;
    UCHAR Flags;
    UCHAR Control;
    union {
        struct {
            PIO_SECURITY_CONTEXT SecurityContext;
            ULONG Options;
            USHORT POINTER_ALIGNMENT FileAttributes;
            USHORT ShareAccess;
            ULONG POINTER_ALIGNMENT EaLength;
        } Create;
        struct {
            ULONG Length;
            ULONG POINTER_ALIGNMENT Key;
            LARGE_INTEGER ByteOffset;
        } Read;
        struct {
            ULONG Length;
            ULONG POINTER_ALIGNMENT Key;
            LARGE_INTEGER ByteOffset;
        } Write;
        struct {
            ULONG OutputBufferLength;
            ULONG POINTER_ALIGNMENT InputBufferLength;
            ULONG POINTER_ALIGNMENT IoControlCode;
            PVOID Type3InputBuffer;
        } DeviceIoControl;
        struct {
            DEVICE_RELATION_TYPE Type;
        } QueryDeviceRelations;
        struct {
            const GUID *InterfaceType;
            USHORT Size;
            USHORT Version;
            PVOID Interface;
            PVOID InterfaceSpecificData;
        } QueryInterface;
        struct {
            PDEVICE_CAPABILITIES Capabilities;
        } DeviceCapabilities;
        struct {
            BUS_QUERY_ID_TYPE IdType;
        } QueryId;
        struct {
            DEVICE_TEXT_TYPE DeviceTextType;
            LCID POINTER_ALIGNMENT LocaleId;
        } QueryDeviceText;
        struct {
            ULONG SystemContext;
            POWER_STATE_TYPE POINTER_ALIGNMENT Type;
            POWER_STATE POINTER_ALIGNMENT State;
            POWER_ACTION POINTER_ALIGNMENT ShutdownType;
        } Power;
        struct {
            PVOID AllocatedResources;
            PVOID AllocatedResourcesTranslated;
        } StartDevice;
        struct {
            PVOID Argument1;
            PVOID Argument2;
            PVOID Argument3;
            PVOID Argument4;
        } Others;
    } Parameters;
    PDEVICE_OBJECT DeviceObject;
    PFILE_OBJECT FileObject;
    PIO_COMPLETION_ROUTINE CompletionRoutine;
    PVOID Context;
} IO_STACK_LOCATION, *PIO_STACK_LOCATION;

EXTERN_C_START

/// IRQL <= DISPATCH_LEVEL. learn.microsoft.com: IoCallDriver.
NTKERNELAPI NTSTATUS IofCallDriver(PDEVICE_OBJECT device, PIRP irp);
NTKERNELAPI VOID IofCompleteRequest(PIRP irp, CCHAR priorityBoost);
/// The IRP belongs to this thread and is freed by its completion. IRQL <= APC_LEVEL.
/// learn.microsoft.com: IoBuildDeviceIoControlRequest.
NTKERNELAPI PIRP IoBuildDeviceIoControlRequest(ULONG code, PDEVICE_OBJECT device, PVOID input, ULONG inputBytes,
                                               PVOID output, ULONG outputBytes, BOOLEAN isInternal, PKEVENT event,
                                               PIO_STATUS_BLOCK ioStatus);
/// Synchronous; sent to exactly this object. IRQL <= APC_LEVEL. learn.microsoft.com: FsRtlIssueDeviceIoControl.
NTKERNELAPI NTSTATUS FsRtlIssueDeviceIoControl(PDEVICE_OBJECT device, ULONG code, UCHAR flags, PVOID input,
                                               ULONG inputBytes, PVOID output, ULONG outputBytes,
                                               PULONG_PTR information);
/// PASSIVE_LEVEL. learn.microsoft.com: IoRegisterShutdownNotification.
NTKERNELAPI NTSTATUS IoRegisterShutdownNotification(PDEVICE_OBJECT device);
NTKERNELAPI VOID IoUnregisterShutdownNotification(PDEVICE_OBJECT device);
/// 0 when the IRP has no thread. IRQL <= DISPATCH_LEVEL. learn.microsoft.com: IoGetRequestorProcessId.
NTKERNELAPI ULONG IoGetRequestorProcessId(PIRP irp);

EXTERN_C_END

#define IoCallDriver(device, irp) IofCallDriver(device, irp)
#define IoCompleteRequest(irp, priorityBoost) IofCompleteRequest(irp, priorityBoost)

FORCEINLINE PIO_STACK_LOCATION IoGetCurrentIrpStackLocation(PIRP irp) {
    return irp->Tail.Overlay.CurrentStackLocation;
}

FORCEINLINE PIO_STACK_LOCATION IoGetNextIrpStackLocation(PIRP irp) {
    return irp->Tail.Overlay.CurrentStackLocation - 1;
}

FORCEINLINE VOID IoSkipCurrentIrpStackLocation(PIRP irp) {
    irp->CurrentLocation++;
    irp->Tail.Overlay.CurrentStackLocation++;
}

/// Copies all but the completion routine and its context.
FORCEINLINE VOID IoCopyCurrentIrpStackLocationToNext(PIRP irp) {
    PIO_STACK_LOCATION next = IoGetNextIrpStackLocation(irp);
    RtlCopyMemory(next, IoGetCurrentIrpStackLocation(irp), FIELD_OFFSET(IO_STACK_LOCATION, CompletionRoutine));
    next->Control = 0;
}

FORCEINLINE VOID IoMarkIrpPending(PIRP irp) {
    IoGetCurrentIrpStackLocation(irp)->Control |= SL_PENDING_RETURNED;
}

FORCEINLINE VOID IoSetCompletionRoutine(PIRP irp, PIO_COMPLETION_ROUTINE routine, PVOID context, BOOLEAN onSuccess,
                                        BOOLEAN onError, BOOLEAN onCancel) {
    PIO_STACK_LOCATION next = IoGetNextIrpStackLocation(irp);
    next->CompletionRoutine = routine;
    next->Context = context;
    next->Control = (onSuccess ? SL_INVOKE_ON_SUCCESS : 0) | (onError ? SL_INVOKE_ON_ERROR : 0) |
                    (onCancel ? SL_INVOKE_ON_CANCEL : 0);
}
