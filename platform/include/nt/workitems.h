// System worker threads.
#pragma once

#include <nt/device.h>

typedef struct _IO_WORKITEM *PIO_WORKITEM;

typedef enum _WORK_QUEUE_TYPE { CriticalWorkQueue, DelayedWorkQueue, HyperCriticalWorkQueue } WORK_QUEUE_TYPE;

typedef VOID NTAPI IO_WORKITEM_ROUTINE(PDEVICE_OBJECT device, PVOID context);
typedef IO_WORKITEM_ROUTINE *PIO_WORKITEM_ROUTINE;
typedef VOID NTAPI IO_WORKITEM_ROUTINE_EX(PVOID ioObject, PVOID context, PIO_WORKITEM workItem);
typedef IO_WORKITEM_ROUTINE_EX *PIO_WORKITEM_ROUTINE_EX;

EXTERN_C_START

/// Takes a device object or a driver object; null when memory is short. IRQL <= DISPATCH_LEVEL, as for all four.
/// learn.microsoft.com: IoAllocateWorkItem.
NTKERNELAPI PIO_WORKITEM IoAllocateWorkItem(PDEVICE_OBJECT ioObject);
/// Only for items allocated for a device object.
NTKERNELAPI VOID IoQueueWorkItem(PIO_WORKITEM workItem, PIO_WORKITEM_ROUTINE routine, WORK_QUEUE_TYPE queue,
                                 PVOID context);
NTKERNELAPI VOID IoQueueWorkItemEx(PIO_WORKITEM workItem, PIO_WORKITEM_ROUTINE_EX routine, WORK_QUEUE_TYPE queue,
                                   PVOID context);
NTKERNELAPI VOID IoFreeWorkItem(PIO_WORKITEM workItem);

EXTERN_C_END
