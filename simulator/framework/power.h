#pragma once

#include <wdf.h>

#include <functional>

namespace sim::framework {

class Device;

constexpr ULONG notPageableState = 0x8000;
constexpr ULONG firstPowerState = WdfDevStatePowerObjectCreated;
constexpr ULONG endOfPowerStates = 0x369; ///< the 1.33 library's end marker

/// The states that the simulated power machine passes through; callbacks on any other would never be called.
bool isSimulatedPowerState(ULONG state);

/// A device's power: which state it is in, the callbacks on the way, and the queues that power manages. Driven from the
/// thread of the PnP or power IRP; PnP and power IRPs of one device never overlap.
class PowerMachine {
  public:
    explicit PowerMachine(Device &device) : device_(device) {}

    /// First entry into D0, after the lower drivers have started. The status of the first callback that failed.
    NTSTATUS start();
    /// Out of D0 for good: removal, surprise removal.
    void stop();
    /// Sleep, hibernation, shutdown, idle: a set-power IRP for a low device power state.
    void goDx(DEVICE_POWER_STATE target);
    /// Back to D0.
    void resume();
    bool inD0() const { return inD0_; }

    NTSTATUS prepareHardware();
    void releaseHardware();

  private:
    void enter(ULONG newState, const std::function<void()> &work = {});
    void notify(WDF_STATE_NOTIFICATION_TYPE type, ULONG state, ULONG current, ULONG next);
    void holdQueues();
    void releaseQueues();
    NTSTATUS d0Entry(WDF_POWER_DEVICE_STATE previous);
    void d0Exit(WDF_POWER_DEVICE_STATE target);

    Device &device_;
    ULONG state_ = WdfDevStatePowerObjectCreated;
    bool inD0_ = false;
    bool selfManagedIoStarted_ = false;
    DEVICE_POWER_STATE lastLowState_ = PowerDeviceUnspecified;
};

/// What the power policy owner of a stack asks for when a system power IRP has come: sends a device power IRP to the
/// top of the stack and waits.
NTSTATUS requestDevicePower(PDEVICE_OBJECT deviceObject, DEVICE_POWER_STATE state, POWER_ACTION action);

} // namespace sim::framework
