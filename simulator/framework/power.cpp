#include "power.h"

#include "../kernel/thread.h"
#include "call.h"
#include "device.h"
#include "io_package.h"
#include "resource_list.h"

namespace sim::framework {

namespace {

/// Where the machine goes after the policy owner has agreed to leave D0 (framework source: power state machine).
constexpr ULONG afterGotoDx = 0x359;

/// Calls one of the device's event callbacks.
template<typename Callback, typename... Arguments>
auto callEvent(const char *name, Callback callback, Arguments... arguments) {
    CallbackContract contract(name);
    return callback(arguments...);
}

} // namespace

bool isSimulatedPowerState(ULONG state) {
    return state == WdfDevStatePowerGotoDx || state == WdfDevStatePowerGotoDxNP;
}

void PowerMachine::notify(WDF_STATE_NOTIFICATION_TYPE type, ULONG state, ULONG current, ULONG next) {
    const auto found = device_.settings.powerStateCallbacks.find(state);
    if (found == device_.settings.powerStateCallbacks.end() || !(found->second.types & type)) {
        return;
    }
    WDF_DEVICE_POWER_NOTIFICATION_DATA data{};
    data.Type = type;
    data.Data.EnterState.CurrentState = static_cast<WDF_DEVICE_POWER_STATE>(current);
    data.Data.EnterState.NewState = static_cast<WDF_DEVICE_POWER_STATE>(next);
    CallbackContract contract("EvtDevicePowerStateChange");
    found->second.routine(device_.deviceHandle(), &data);
}

// Framework source: order of the notifications around a change of state
void PowerMachine::enter(ULONG newState, const std::function<void()> &work) {
    const ULONG oldState = state_;
    notify(StateNotificationLeaveState, oldState, oldState, newState);
    notify(StateNotificationEnterState, newState, oldState, newState);
    state_ = newState;
    if (work) {
        work();
    }
    notify(StateNotificationPostProcessState, newState, newState, 0);
}

NTSTATUS PowerMachine::d0Entry(WDF_POWER_DEVICE_STATE previous) {
    const auto callback = device_.settings.pnpPower.EvtDeviceD0Entry;
    return callback ? callEvent("EvtDeviceD0Entry", callback, device_.deviceHandle(), previous) : STATUS_SUCCESS;
}

void PowerMachine::d0Exit(WDF_POWER_DEVICE_STATE target) {
    inD0_ = false;
    if (const auto callback = device_.settings.pnpPower.EvtDeviceD0Exit) {
        callEvent("EvtDeviceD0Exit", callback, device_.deviceHandle(), target);
    }
}

NTSTATUS PowerMachine::prepareHardware() {
    const auto callback = device_.settings.pnpPower.EvtDevicePrepareHardware;
    if (!callback) {
        return STATUS_SUCCESS;
    }
    const ResourceLists lists(device_);
    return callEvent("EvtDevicePrepareHardware", callback, device_.deviceHandle(), lists.raw(), lists.translated());
}

void PowerMachine::releaseHardware() {
    if (const auto callback = device_.settings.pnpPower.EvtDeviceReleaseHardware) {
        const ResourceLists lists(device_);
        callEvent("EvtDeviceReleaseHardware", callback, device_.deviceHandle(), lists.translated());
    }
}

void PowerMachine::holdQueues() {
    const auto callback = device_.settings.pnpPower.EvtDeviceSelfManagedIoSuspend;
    if (callback && selfManagedIoStarted_) {
        callEvent("EvtDeviceSelfManagedIoSuspend", callback, device_.deviceHandle());
    }
    device_.io->holdManagedQueues();
}

void PowerMachine::releaseQueues() {
    device_.io->releaseManagedQueues();
    const auto &callbacks = device_.settings.pnpPower;
    const auto callback =
        selfManagedIoStarted_ ? callbacks.EvtDeviceSelfManagedIoRestart : callbacks.EvtDeviceSelfManagedIoInit;
    if (callback) {
        callEvent("EvtDeviceSelfManagedIo", callback, device_.deviceHandle());
    }
    selfManagedIoStarted_ = true;
}

NTSTATUS PowerMachine::start() {
    state_ = WdfDevStatePowerDecideD0State;
    const NTSTATUS status = d0Entry(WdfPowerDeviceD3Final);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    inD0_ = true;
    releaseQueues();
    state_ = WdfDevStatePowerD0;
    return STATUS_SUCCESS;
}

void PowerMachine::stop() {
    if (inD0_) {
        holdQueues();
        d0Exit(WdfPowerDeviceD3Final);
    }
    state_ = WdfDevStatePowerStopped;
    const auto &callbacks = device_.settings.pnpPower;
    if (!selfManagedIoStarted_) {
        return;
    }
    if (callbacks.EvtDeviceSelfManagedIoFlush) {
        callEvent("EvtDeviceSelfManagedIoFlush", callbacks.EvtDeviceSelfManagedIoFlush, device_.deviceHandle());
    }
    selfManagedIoStarted_ = false;
    if (callbacks.EvtDeviceSelfManagedIoCleanup) {
        callEvent("EvtDeviceSelfManagedIoCleanup", callbacks.EvtDeviceSelfManagedIoCleanup, device_.deviceHandle());
    }
}

void PowerMachine::goDx(DEVICE_POWER_STATE target) {
    if (!inD0_) {
        return;
    }
    const bool pageable = device_.deviceObject->Flags & DO_POWER_PAGABLE;
    enter(pageable ? WdfDevStatePowerGotoDx : WdfDevStatePowerGotoDxNP, [this] { holdQueues(); });
    enter(afterGotoDx);
    d0Exit(static_cast<WDF_POWER_DEVICE_STATE>(target));
    state_ = pageable ? WdfDevStatePowerDx : WdfDevStatePowerDxNP;
    lastLowState_ = target;
}

void PowerMachine::resume() {
    if (inD0_ || lastLowState_ == PowerDeviceUnspecified) {
        return;
    }
    if (!NT_SUCCESS(d0Entry(static_cast<WDF_POWER_DEVICE_STATE>(lastLowState_)))) {
        notSimulated("EvtDeviceD0Entry", "a device that fails to come back to D0", nullptr);
    }
    lastLowState_ = PowerDeviceUnspecified;
    inD0_ = true;
    releaseQueues();
    state_ = WdfDevStatePowerD0;
}

} // namespace sim::framework
