// Power-state notifications and Plug and Play event callbacks of a framework device.
// learn.microsoft.com: "WdfDeviceInitRegisterPowerStateChangeCallback", "WDF_PNPPOWER_EVENT_CALLBACKS".
// Both routines are called from the device-add callback, at PASSIVE_LEVEL.
#pragma once

#include <wdf/device.h>

// States of the device power machine that sources of ours name; 0x8000 marks a device that is not pageable.
typedef enum _WDF_DEVICE_POWER_STATE {
    WdfDevStatePowerInvalid = 0,
    WdfDevStatePowerObjectCreated = 0x300,
    WdfDevStatePowerD0 = 0x307,
    WdfDevStatePowerDecideD0State = 0x313,
    WdfDevStatePowerGotoD3Stopped = 0x314,
    WdfDevStatePowerStopped = 0x315,
    WdfDevStatePowerStartingCheckDeviceType = 0x316,
    WdfDevStatePowerStartingChild = 0x317,
    WdfDevStatePowerDxDisablingWakeAtBus = 0x318,
    WdfDevStatePowerDxDisablingWakeAtBusNP = 0x8319,
    WdfDevStatePowerGotoDx = 0x31A,
    WdfDevStatePowerGotoDxNP = 0x831B,
    WdfDevStatePowerGotoDxIoStopped = 0x31C,
    WdfDevStatePowerGotoDxIoStoppedNP = 0x831D,
    WdfDevStatePowerGotoDxNPFailed = 0x831E,
    WdfDevStatePowerDx = 0x31F,
    WdfDevStatePowerDxNP = 0x8320,
    WdfDevStatePowerNull = 0x35D
} WDF_DEVICE_POWER_STATE,
    *PWDF_DEVICE_POWER_STATE;

typedef enum _WDF_STATE_NOTIFICATION_TYPE {
    StateNotificationInvalid = 0,
    StateNotificationEnterState = 0x1,
    StateNotificationPostProcessState = 0x2,
    StateNotificationLeaveState = 0x4,
    StateNotificationAllStates = 0x7
} WDF_STATE_NOTIFICATION_TYPE;

typedef struct _WDF_DEVICE_POWER_NOTIFICATION_DATA {
    WDF_STATE_NOTIFICATION_TYPE Type;
    union {
        struct {
            WDF_DEVICE_POWER_STATE CurrentState;
            WDF_DEVICE_POWER_STATE NewState;
        } EnterState;
        struct {
            WDF_DEVICE_POWER_STATE CurrentState;
        } PostProcessState;
        struct {
            WDF_DEVICE_POWER_STATE CurrentState;
            WDF_DEVICE_POWER_STATE NewState;
        } LeaveState;
    } Data;
} WDF_DEVICE_POWER_NOTIFICATION_DATA, *PWDF_DEVICE_POWER_NOTIFICATION_DATA;
typedef const WDF_DEVICE_POWER_NOTIFICATION_DATA *PCWDF_DEVICE_POWER_NOTIFICATION_DATA;

typedef VOID NTAPI
EVT_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION(WDFDEVICE Device, PCWDF_DEVICE_POWER_NOTIFICATION_DATA NotificationData);
typedef EVT_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION *PFN_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION;

typedef enum _WDF_POWER_DEVICE_STATE {
    WdfPowerDeviceInvalid,
    WdfPowerDeviceD0,
    WdfPowerDeviceD1,
    WdfPowerDeviceD2,
    WdfPowerDeviceD3,
    WdfPowerDeviceD3Final,
    WdfPowerDevicePrepareForHibernation,
    WdfPowerDeviceMaximum
} WDF_POWER_DEVICE_STATE,
    *PWDF_POWER_DEVICE_STATE;

typedef enum _WDF_SPECIAL_FILE_TYPE {
    WdfSpecialFileUndefined,
    WdfSpecialFilePaging,
    WdfSpecialFileHibernation,
    WdfSpecialFileDump,
    WdfSpecialFileBoot
} WDF_SPECIAL_FILE_TYPE;

typedef NTSTATUS NTAPI EVT_WDF_DEVICE_D0_ENTRY(WDFDEVICE Device, WDF_POWER_DEVICE_STATE PreviousState);
typedef EVT_WDF_DEVICE_D0_ENTRY *PFN_WDF_DEVICE_D0_ENTRY;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_D0_ENTRY_POST_INTERRUPTS_ENABLED(WDFDEVICE Device,
                                                                       WDF_POWER_DEVICE_STATE PreviousState);
typedef EVT_WDF_DEVICE_D0_ENTRY_POST_INTERRUPTS_ENABLED *PFN_WDF_DEVICE_D0_ENTRY_POST_INTERRUPTS_ENABLED;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_D0_EXIT(WDFDEVICE Device, WDF_POWER_DEVICE_STATE TargetState);
typedef EVT_WDF_DEVICE_D0_EXIT *PFN_WDF_DEVICE_D0_EXIT;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_D0_EXIT_PRE_INTERRUPTS_DISABLED(WDFDEVICE Device,
                                                                      WDF_POWER_DEVICE_STATE TargetState);
typedef EVT_WDF_DEVICE_D0_EXIT_PRE_INTERRUPTS_DISABLED *PFN_WDF_DEVICE_D0_EXIT_PRE_INTERRUPTS_DISABLED;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_PREPARE_HARDWARE(WDFDEVICE Device, WDFCMRESLIST ResourcesRaw,
                                                       WDFCMRESLIST ResourcesTranslated);
typedef EVT_WDF_DEVICE_PREPARE_HARDWARE *PFN_WDF_DEVICE_PREPARE_HARDWARE;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_RELEASE_HARDWARE(WDFDEVICE Device, WDFCMRESLIST ResourcesTranslated);
typedef EVT_WDF_DEVICE_RELEASE_HARDWARE *PFN_WDF_DEVICE_RELEASE_HARDWARE;
typedef VOID NTAPI EVT_WDF_DEVICE_SELF_MANAGED_IO_CLEANUP(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_SELF_MANAGED_IO_CLEANUP *PFN_WDF_DEVICE_SELF_MANAGED_IO_CLEANUP;
typedef VOID NTAPI EVT_WDF_DEVICE_SELF_MANAGED_IO_FLUSH(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_SELF_MANAGED_IO_FLUSH *PFN_WDF_DEVICE_SELF_MANAGED_IO_FLUSH;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_SELF_MANAGED_IO_INIT(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_SELF_MANAGED_IO_INIT *PFN_WDF_DEVICE_SELF_MANAGED_IO_INIT;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_SELF_MANAGED_IO_SUSPEND(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_SELF_MANAGED_IO_SUSPEND *PFN_WDF_DEVICE_SELF_MANAGED_IO_SUSPEND;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_SELF_MANAGED_IO_RESTART(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_SELF_MANAGED_IO_RESTART *PFN_WDF_DEVICE_SELF_MANAGED_IO_RESTART;
typedef VOID NTAPI EVT_WDF_DEVICE_SURPRISE_REMOVAL(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_SURPRISE_REMOVAL *PFN_WDF_DEVICE_SURPRISE_REMOVAL;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_QUERY_REMOVE(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_QUERY_REMOVE *PFN_WDF_DEVICE_QUERY_REMOVE;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_QUERY_STOP(WDFDEVICE Device);
typedef EVT_WDF_DEVICE_QUERY_STOP *PFN_WDF_DEVICE_QUERY_STOP;
typedef VOID NTAPI EVT_WDF_DEVICE_USAGE_NOTIFICATION(WDFDEVICE Device, WDF_SPECIAL_FILE_TYPE NotificationType,
                                                     BOOLEAN IsInNotificationPath);
typedef EVT_WDF_DEVICE_USAGE_NOTIFICATION *PFN_WDF_DEVICE_USAGE_NOTIFICATION;
typedef VOID NTAPI EVT_WDF_DEVICE_RELATIONS_QUERY(WDFDEVICE Device, DEVICE_RELATION_TYPE RelationType);
typedef EVT_WDF_DEVICE_RELATIONS_QUERY *PFN_WDF_DEVICE_RELATIONS_QUERY;
typedef NTSTATUS NTAPI EVT_WDF_DEVICE_USAGE_NOTIFICATION_EX(WDFDEVICE Device, WDF_SPECIAL_FILE_TYPE NotificationType,
                                                            BOOLEAN IsInNotificationPath);
typedef EVT_WDF_DEVICE_USAGE_NOTIFICATION_EX *PFN_WDF_DEVICE_USAGE_NOTIFICATION_EX;

typedef struct _WDF_PNPPOWER_EVENT_CALLBACKS {
    ULONG Size;
    PFN_WDF_DEVICE_D0_ENTRY EvtDeviceD0Entry;
    PFN_WDF_DEVICE_D0_ENTRY_POST_INTERRUPTS_ENABLED EvtDeviceD0EntryPostInterruptsEnabled;
    PFN_WDF_DEVICE_D0_EXIT EvtDeviceD0Exit;
    PFN_WDF_DEVICE_D0_EXIT_PRE_INTERRUPTS_DISABLED EvtDeviceD0ExitPreInterruptsDisabled;
    PFN_WDF_DEVICE_PREPARE_HARDWARE EvtDevicePrepareHardware;
    PFN_WDF_DEVICE_RELEASE_HARDWARE EvtDeviceReleaseHardware;
    PFN_WDF_DEVICE_SELF_MANAGED_IO_CLEANUP EvtDeviceSelfManagedIoCleanup;
    PFN_WDF_DEVICE_SELF_MANAGED_IO_FLUSH EvtDeviceSelfManagedIoFlush;
    PFN_WDF_DEVICE_SELF_MANAGED_IO_INIT EvtDeviceSelfManagedIoInit;
    PFN_WDF_DEVICE_SELF_MANAGED_IO_SUSPEND EvtDeviceSelfManagedIoSuspend;
    PFN_WDF_DEVICE_SELF_MANAGED_IO_RESTART EvtDeviceSelfManagedIoRestart;
    PFN_WDF_DEVICE_SURPRISE_REMOVAL EvtDeviceSurpriseRemoval;
    PFN_WDF_DEVICE_QUERY_REMOVE EvtDeviceQueryRemove;
    PFN_WDF_DEVICE_QUERY_STOP EvtDeviceQueryStop;
    PFN_WDF_DEVICE_USAGE_NOTIFICATION EvtDeviceUsageNotification;
    PFN_WDF_DEVICE_RELATIONS_QUERY EvtDeviceRelationsQuery;
    PFN_WDF_DEVICE_USAGE_NOTIFICATION_EX EvtDeviceUsageNotificationEx;
} WDF_PNPPOWER_EVENT_CALLBACKS, *PWDF_PNPPOWER_EVENT_CALLBACKS;

constexpr FORCEINLINE VOID WDF_PNPPOWER_EVENT_CALLBACKS_INIT(PWDF_PNPPOWER_EVENT_CALLBACKS Callbacks) {
    *Callbacks = {};
    Callbacks->Size = sizeof(WDF_PNPPOWER_EVENT_CALLBACKS);
}

typedef NTSTATUS(NTAPI *PFN_WDFDEVICEINITREGISTERPOWERSTATECHANGECALLBACK)(
    PWDF_DRIVER_GLOBALS DriverGlobals, PWDFDEVICE_INIT DeviceInit, WDF_DEVICE_POWER_STATE PowerState,
    PFN_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION EvtDevicePowerStateChange, ULONG CallbackTypes);
/// PASSIVE_LEVEL.
FORCEINLINE NTSTATUS WdfDeviceInitRegisterPowerStateChangeCallback(
    PWDFDEVICE_INIT DeviceInit, WDF_DEVICE_POWER_STATE PowerState,
    PFN_WDF_DEVICE_POWER_STATE_CHANGE_NOTIFICATION EvtDevicePowerStateChange, ULONG CallbackTypes) {
    return wdfFunction<PFN_WDFDEVICEINITREGISTERPOWERSTATECHANGECALLBACK>(
        WdfDeviceInitRegisterPowerStateChangeCallbackTableIndex)(WdfDriverGlobals, DeviceInit, PowerState,
                                                                 EvtDevicePowerStateChange, CallbackTypes);
}

typedef VOID(NTAPI *PFN_WDFDEVICEINITSETPNPPOWEREVENTCALLBACKS)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                                                PWDFDEVICE_INIT DeviceInit,
                                                                PWDF_PNPPOWER_EVENT_CALLBACKS PnpPowerEventCallbacks);
FORCEINLINE VOID WdfDeviceInitSetPnpPowerEventCallbacks(PWDFDEVICE_INIT DeviceInit,
                                                        PWDF_PNPPOWER_EVENT_CALLBACKS PnpPowerEventCallbacks) {
    wdfFunction<PFN_WDFDEVICEINITSETPNPPOWEREVENTCALLBACKS>(WdfDeviceInitSetPnpPowerEventCallbacksTableIndex)(
        WdfDriverGlobals, DeviceInit, PnpPowerEventCallbacks);
}
