#include "device/device_state.h"

void disableDevice(WDFDEVICE device) {
    WDF_DEVICE_STATE state;
    WDF_DEVICE_STATE_INIT(&state);
    state.Disabled = WdfTrue;
    state.DontDisplayInUI = WdfTrue;
    WdfDeviceSetDeviceState(device, &state);
}
