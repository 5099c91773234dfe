// What the initialisation helpers store.
#include "check.h"
#include <wdf.h>

template<typename Structure, typename... Arguments>
constexpr Structure initialised(void (*helper)(Structure *, Arguments...), Arguments... arguments) {
    Structure structure{};
    helper(&structure, arguments...);
    return structure;
}

constexpr auto driverConfig = initialised<WDF_DRIVER_CONFIG>(WDF_DRIVER_CONFIG_INIT, PFN_WDF_DRIVER_DEVICE_ADD{});
static_assert(driverConfig.Size == 0x20 && !driverConfig.EvtDriverUnload && driverConfig.DriverInitFlags == 0 &&
              driverConfig.DriverPoolTag == 0);

constexpr auto attributes = initialised<WDF_OBJECT_ATTRIBUTES>(WDF_OBJECT_ATTRIBUTES_INIT);
static_assert(attributes.Size == 0x38 && attributes.ExecutionLevel == 1 && attributes.SynchronizationScope == 1 &&
              !attributes.ParentObject && !attributes.ContextTypeInfo && !attributes.EvtCleanupCallback);

constexpr auto manual = initialised<WDF_IO_QUEUE_CONFIG>(WDF_IO_QUEUE_CONFIG_INIT, WdfIoQueueDispatchManual);
static_assert(manual.Size == 0x60 && manual.PowerManaged == 2 && manual.DispatchType == 3 && !manual.DefaultQueue &&
              manual.Settings.Parallel.NumberOfPresentedRequests == 0);

constexpr auto parallel =
    initialised<WDF_IO_QUEUE_CONFIG>(WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE, WdfIoQueueDispatchParallel);
static_assert(parallel.Size == 0x60 && parallel.PowerManaged == 2 && parallel.DispatchType == 2 &&
              parallel.DefaultQueue == 1 && parallel.Settings.Parallel.NumberOfPresentedRequests == 0xFFFFFFFF);

constexpr auto fileConfig = initialised<WDF_FILEOBJECT_CONFIG>(WDF_FILEOBJECT_CONFIG_INIT, PFN_WDF_DEVICE_FILE_CREATE{},
                                                               PFN_WDF_FILE_CLOSE{}, PFN_WDF_FILE_CLEANUP{});
static_assert(fileConfig.Size == 0x28 && fileConfig.AutoForwardCleanupClose == 2 && fileConfig.FileObjectClass == 4);

constexpr auto sendOptions = [] {
    auto options = initialised<WDF_REQUEST_SEND_OPTIONS>(WDF_REQUEST_SEND_OPTIONS_INIT,
                                                         ULONG{WDF_REQUEST_SEND_OPTION_SYNCHRONOUS});
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, WDF_REL_TIMEOUT_IN_SEC(30));
    return options;
}();
static_assert(sendOptions.Size == 0x10 && sendOptions.Flags == 3 && sendOptions.Timeout == -300000000);

constexpr auto openParameters =
    initialised<WDF_IO_TARGET_OPEN_PARAMS>(WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE, PDEVICE_OBJECT{});
static_assert(openParameters.Size == 0x88 && openParameters.Type == 1 && openParameters.DesiredAccess == 0);

constexpr auto deviceState = initialised<WDF_DEVICE_STATE>(WDF_DEVICE_STATE_INIT);
static_assert(deviceState.Size == 0x1C && deviceState.Disabled == 2 && deviceState.DontDisplayInUI == 2 &&
              deviceState.Failed == 2 && deviceState.NotDisableable == 2 && deviceState.Removed == 2 &&
              deviceState.ResourcesChanged == 2);

constexpr auto parameters = initialised<WDF_REQUEST_PARAMETERS>(WDF_REQUEST_PARAMETERS_INIT);
static_assert(parameters.Size == 0x28 && parameters.MinorFunction == 0);
