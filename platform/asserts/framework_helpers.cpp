// What the initialisation helpers store.
#include "check.h"
#include <ntifs.h>

#include <wdf.h>

CHECK_STORED(WDF_DRIVER_CONFIG, WDF_DRIVER_CONFIG_INIT(&it, nullptr),
             it.Size == 0x20 && !it.EvtDriverUnload && it.DriverInitFlags == 0 && it.DriverPoolTag == 0);

CHECK_STORED(WDF_OBJECT_ATTRIBUTES, WDF_OBJECT_ATTRIBUTES_INIT(&it),
             it.Size == 0x38 && it.ExecutionLevel == 1 && it.SynchronizationScope == 1 && !it.ParentObject &&
                 !it.ContextTypeInfo && !it.EvtCleanupCallback);

CHECK_STORED(WDF_IO_QUEUE_CONFIG, WDF_IO_QUEUE_CONFIG_INIT(&it, WdfIoQueueDispatchManual),
             it.Size == 0x60 && it.PowerManaged == 2 && it.DispatchType == 3 && !it.DefaultQueue &&
                 it.Settings.Parallel.NumberOfPresentedRequests == 0);

CHECK_STORED(WDF_IO_QUEUE_CONFIG, WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&it, WdfIoQueueDispatchParallel),
             it.Size == 0x60 && it.PowerManaged == 2 && it.DispatchType == 2 && it.DefaultQueue == 1 &&
                 it.Settings.Parallel.NumberOfPresentedRequests == 0xFFFFFFFF);

CHECK_STORED(WDF_FILEOBJECT_CONFIG, WDF_FILEOBJECT_CONFIG_INIT(&it, nullptr, nullptr, nullptr),
             it.Size == 0x28 && it.AutoForwardCleanupClose == 2 && it.FileObjectClass == 4);

CHECK_STORED(WDF_REQUEST_SEND_OPTIONS, WDF_REQUEST_SEND_OPTIONS_INIT(&it, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS),
             it.Size == 0x10 && it.Flags == 2 && it.Timeout == 0);

CHECK_STORED(WDF_REQUEST_SEND_OPTIONS, WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&it, WDF_REL_TIMEOUT_IN_SEC(30)),
             it.Flags == 1 && it.Timeout == -300000000);

CHECK_STORED(WDF_IO_TARGET_OPEN_PARAMS, WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&it, nullptr),
             it.Size == 0x88 && it.Type == 1 && it.DesiredAccess == 0);

CHECK_STORED(WDF_DEVICE_STATE, WDF_DEVICE_STATE_INIT(&it),
             it.Size == 0x1C && it.Disabled == 2 && it.DontDisplayInUI == 2 && it.Failed == 2 &&
                 it.NotDisableable == 2 && it.Removed == 2 && it.ResourcesChanged == 2);

CHECK_STORED(WDF_REQUEST_PARAMETERS, WDF_REQUEST_PARAMETERS_INIT(&it), it.Size == 0x28 && it.MinorFunction == 0);
