#include "control/power_notifications.h"

#include "log/log.h"

namespace {

VOID onDevicePowerStateChangeNotification(WDFDEVICE, PCWDF_DEVICE_POWER_NOTIFICATION_DATA notification) {
    switch (notification->Type) {
    case StateNotificationEnterState:
        LOG_INFO(L"onDevicePowerStateChangeNotification enter state, type = 0x", hexNumber(notification->Type),
                 L", current state = 0x", hexNumber(notification->Data.EnterState.CurrentState), L", new state = 0x",
                 hexNumber(notification->Data.EnterState.NewState));
        break;
    case StateNotificationPostProcessState:
        LOG_INFO(L"onDevicePowerStateChangeNotification post process state, type = 0x", hexNumber(notification->Type),
                 L", current state = 0x", hexNumber(notification->Data.PostProcessState.CurrentState));
        break;
    case StateNotificationLeaveState:
        LOG_INFO(L"onDevicePowerStateChangeNotification leave state, type = 0x", hexNumber(notification->Type),
                 L", current state = 0x", hexNumber(notification->Data.LeaveState.CurrentState), L", new state = 0x",
                 hexNumber(notification->Data.LeaveState.NewState));
        break;
    default:
        LOG_INFO(L"onDevicePowerStateChangeNotification type = UNKNOWN");
        break;
    }
}

} // namespace

void registerPowerNotifications(PWDFDEVICE_INIT deviceInit) {
    const NTSTATUS status = WdfDeviceInitRegisterPowerStateChangeCallback(
        deviceInit, WdfDevStatePowerGotoDx, onDevicePowerStateChangeNotification, StateNotificationAllStates);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to register PowerStateChangeCallback, status = 0x", hex(status));
    }
}
