// Values of the framework's enumerations.
#include "check.h"
#include <ntifs.h>

#include <wdf.h>

CHECK_VALUE(WdfFalse, 0);
CHECK_VALUE(WdfTrue, 1);
CHECK_VALUE(WdfUseDefault, 2);

CHECK_VALUE(WdfIoQueueDispatchInvalid, 0);
CHECK_VALUE(WdfIoQueueDispatchSequential, 1);
CHECK_VALUE(WdfIoQueueDispatchParallel, 2);
CHECK_VALUE(WdfIoQueueDispatchManual, 3);
CHECK_VALUE(WdfIoQueueDispatchMax, 4);

CHECK_VALUE(WdfExecutionLevelInvalid, 0);
CHECK_VALUE(WdfExecutionLevelInheritFromParent, 1);
CHECK_VALUE(WdfExecutionLevelPassive, 2);
CHECK_VALUE(WdfExecutionLevelDispatch, 3);

CHECK_VALUE(WdfSynchronizationScopeInvalid, 0);
CHECK_VALUE(WdfSynchronizationScopeInheritFromParent, 1);
CHECK_VALUE(WdfSynchronizationScopeDevice, 2);
CHECK_VALUE(WdfSynchronizationScopeQueue, 3);
CHECK_VALUE(WdfSynchronizationScopeNone, 4);

CHECK_VALUE(WdfIoTargetOpenUndefined, 0);
CHECK_VALUE(WdfIoTargetOpenUseExistingDevice, 1);
CHECK_VALUE(WdfIoTargetOpenByName, 2);
CHECK_VALUE(WdfIoTargetOpenReopen, 3);
CHECK_VALUE(WdfIoTargetOpenLocalTargetByFile, 4);

CHECK_VALUE(WDF_REQUEST_SEND_OPTION_TIMEOUT, 1);
CHECK_VALUE(WDF_REQUEST_SEND_OPTION_SYNCHRONOUS, 2);
CHECK_VALUE(WDF_REQUEST_SEND_OPTION_IGNORE_TARGET_STATE, 4);
CHECK_VALUE(WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET, 8);
CHECK_VALUE(WDF_REQUEST_SEND_OPTION_IMPERSONATE_CLIENT, 0x10000);
CHECK_VALUE(WDF_REQUEST_SEND_OPTION_IMPERSONATION_IGNORE_FAILURE, 0x20000);

CHECK_VALUE(WdfIoQueueAcceptRequests, 1);
CHECK_VALUE(WdfIoQueueDispatchRequests, 2);
CHECK_VALUE(WdfIoQueueNoRequests, 4);
CHECK_VALUE(WdfIoQueueDriverNoRequests, 8);
CHECK_VALUE(WdfIoQueuePnpHeld, 0x10);

CHECK_VALUE(WdfFileObjectInvalid, 0);
CHECK_VALUE(WdfFileObjectNotRequired, 1);
CHECK_VALUE(WdfFileObjectWdfCanUseFsContext, 2);
CHECK_VALUE(WdfFileObjectWdfCanUseFsContext2, 3);
CHECK_VALUE(WdfFileObjectWdfCannotUseFsContexts, 4);
CHECK_VALUE(WdfFileObjectCanBeOptional, 0x80000000);

CHECK_VALUE(WdfMemoryDescriptorTypeInvalid, 0);
CHECK_VALUE(WdfMemoryDescriptorTypeBuffer, 1);
CHECK_VALUE(WdfMemoryDescriptorTypeMdl, 2);
CHECK_VALUE(WdfMemoryDescriptorTypeHandle, 3);

CHECK_VALUE(StateNotificationInvalid, 0);
CHECK_VALUE(StateNotificationEnterState, 1);
CHECK_VALUE(StateNotificationPostProcessState, 2);
CHECK_VALUE(StateNotificationLeaveState, 4);
CHECK_VALUE(StateNotificationAllStates, 7);

CHECK_VALUE(WdfRequestTypeCreate, 0);
CHECK_VALUE(WdfRequestTypeClose, 2);
CHECK_VALUE(WdfRequestTypeRead, 3);
CHECK_VALUE(WdfRequestTypeWrite, 4);
CHECK_VALUE(WdfRequestTypeDeviceControl, 14);
CHECK_VALUE(WdfRequestTypeDeviceControlInternal, 15);
CHECK_VALUE(WdfRequestTypeOther, 0x1C);
CHECK_VALUE(WdfRequestTypeNoFormat, 0xFF);

CHECK_VALUE(WdfRequestStopActionInvalid, 0);
CHECK_VALUE(WdfRequestStopActionSuspend, 1);
CHECK_VALUE(WdfRequestStopActionPurge, 2);
CHECK_VALUE(WdfRequestStopRequestCancelable, 0x10000000);

CHECK_VALUE(WdfDriverInitNonPnpDriver, 1);
CHECK_VALUE(WdfDriverInitNoDispatchOverride, 2);
CHECK_VALUE(WdfVerifyOn, 4);

CHECK_VALUE(WdfDeviceIoUndefined, 0);
CHECK_VALUE(WdfDeviceIoNeither, 1);
CHECK_VALUE(WdfDeviceIoBuffered, 2);
CHECK_VALUE(WdfDeviceIoDirect, 3);

CHECK_VALUE(WdfDevStatePowerGotoD3Stopped, 0x314);
CHECK_VALUE(WdfDevStatePowerStopped, 0x315);
CHECK_VALUE(WdfDevStatePowerStartingCheckDeviceType, 0x316);
CHECK_VALUE(WdfDevStatePowerStartingChild, 0x317);
CHECK_VALUE(WdfDevStatePowerDxDisablingWakeAtBus, 0x318);
CHECK_VALUE(WdfDevStatePowerDxDisablingWakeAtBusNP, 0x8319);
CHECK_VALUE(WdfDevStatePowerGotoDx, 0x31A);
CHECK_VALUE(WdfDevStatePowerGotoDxNP, 0x831B);
CHECK_VALUE(WdfDevStatePowerGotoDxIoStopped, 0x31C);
CHECK_VALUE(WdfDevStatePowerGotoDxIoStoppedNP, 0x831D);
CHECK_VALUE(WdfDevStatePowerGotoDxNPFailed, 0x831E);
CHECK_VALUE(WdfDevStatePowerDx, 0x31F);
CHECK_VALUE(WdfDevStatePowerDxNP, 0x8320);
CHECK_VALUE(WdfDevStatePowerNull, 0x35D);
CHECK_VALUE(WdfDevStatePowerObjectCreated, 0x300);
