#include "call.h"
#include "device.h"
#include "table.h"

#include <cstring>

namespace sim::framework {

void Device::setState(const WDF_DEVICE_STATE &state) {
    std::lock_guard lock(mutex_);
    state_ = state;
}

WDF_DEVICE_STATE Device::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

void Device::forgetPassingStates() {
    std::lock_guard lock(mutex_);
    state_.Failed = WdfUseDefault;
    state_.Removed = WdfUseDefault;
    state_.ResourcesChanged = WdfUseDefault;
}

ULONG Device::applyState(ULONG bits) const {
    const WDF_DEVICE_STATE wanted = state();
    const auto apply = [&bits](WDF_TRI_STATE choice, ULONG bit) {
        bits = choice == WdfTrue ? bits | bit : choice == WdfFalse ? bits & ~bit : bits;
    };
    apply(wanted.Disabled, PNP_DEVICE_DISABLED);
    apply(wanted.DontDisplayInUI, PNP_DEVICE_DONT_DISPLAY_IN_UI);
    apply(wanted.Failed, PNP_DEVICE_FAILED);
    apply(wanted.NotDisableable, PNP_DEVICE_NOT_DISABLEABLE);
    apply(wanted.Removed, PNP_DEVICE_REMOVED);
    apply(wanted.ResourcesChanged, PNP_DEVICE_RESOURCE_REQUIREMENTS_CHANGED);
    return bits;
}

namespace {

constexpr ULONG newerStateSize = 0x20; ///< with one more tri-state, from 1.31 on

bool isUsable(const WDF_DEVICE_STATE &state) {
    for (const WDF_TRI_STATE choice : {state.Disabled, state.DontDisplayInUI, state.Failed, state.NotDisableable,
                                       state.Removed, state.ResourcesChanged}) {
        if (choice < WdfFalse || choice > WdfUseDefault) {
            return false;
        }
    }
    return state.Size == sizeof(WDF_DEVICE_STATE) || state.Size == newerStateSize;
}

// learn.microsoft.com: WdfDeviceSetDeviceState; framework source: faults are ignored without a word, and Plug and Play
// is told at once
VOID setDeviceState(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle, PWDF_DEVICE_STATE state) {
    const Call call{"WdfDeviceSetDeviceState", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Device &device = call.object<Device>(handle);
    call.pointer(state, "DeviceState");
    if (!isUsable(*state)) {
        return;
    }
    WDF_DEVICE_STATE known = *state;
    known.Size = sizeof(WDF_DEVICE_STATE);
    device.setState(known);
    if (kernel().invalidateDeviceState) {
        kernel().invalidateDeviceState(device.physical);
    }
}

// learn.microsoft.com: WdfDeviceGetDeviceState
VOID getDeviceState(PWDF_DRIVER_GLOBALS globals, WDFDEVICE handle, PWDF_DEVICE_STATE state) {
    const Call call{"WdfDeviceGetDeviceState", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    const Device &device = call.object<Device>(handle);
    call.pointer(state, "DeviceState");
    if (state->Size != sizeof(WDF_DEVICE_STATE)) {
        return;
    }
    *state = device.state();
}

} // namespace

void installDeviceStateRoutines(FunctionTable &table) {
    table.set(WdfDeviceSetDeviceStateTableIndex, PFN_WDFDEVICESETDEVICESTATE(setDeviceState));
    table.set(WdfDeviceGetDeviceStateTableIndex, PFN_WDFDEVICEGETDEVICESTATE(getDeviceState));
}

} // namespace sim::framework
