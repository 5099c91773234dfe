#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "log/kstring.h"
#include "myrtelhaven_service.h"
#include "policy/usb_mode.h"
#include "support/pool_memory.h"

/// Context of the filter that the driver puts on each USB device. Written during device add only, by its thread; other
/// threads may read it while it is listed and they hold the filters' mutex.
struct UsbFilterDevice {
    WDFDEVICE device;
    ULONG filterable;  ///< 1 when the rules apply: the compatible ids match the blocked list; 0 for a composite parent
    UsbMode mode;      ///< the decision
    RuleType ruleType; ///< what the service is told beside it
    KString hardwareIds; ///< the whole list
    ServiceMessage message;
    bool denyWrite;              ///< read-only by the device's access list, which has to last
    PDEVICE_OBJECT deviceObject; ///< set when it is listed
    LIST_ENTRY links; ///< in DriverContext::usbFilters from the end of the device add to the end of the filter
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(UsbFilterDevice, usbFilterDeviceOf)

static_assert(__builtin_offsetof(UsbFilterDevice, filterable) == 0x08);
static_assert(__builtin_offsetof(UsbFilterDevice, hardwareIds) == 0x18);
static_assert(__builtin_offsetof(UsbFilterDevice, message) == 0x38);

/// A copy of the filter in some device's stack: the filter itself may end any time, its device being unplugged.
class [[nodiscard]] UsbFilterCopy {
  public:
    UsbFilterCopy() = default;
    ~UsbFilterCopy();
    UsbFilterCopy(const UsbFilterCopy &) = delete;
    UsbFilterCopy &operator=(const UsbFilterCopy &) = delete;

    /// Copies what a decision needs. STATUS_NOT_FOUND when this driver has no USB filter in the stack;
    /// STATUS_DEVICE_NOT_READY while its device is being added or removed; STATUS_INSUFFICIENT_RESOURCES.
    /// PASSIVE_LEVEL.
    NTSTATUS take(PDEVICE_OBJECT device);
    UsbFilterDevice &get() const { return *memory_.as<UsbFilterDevice>(); }

  private:
    PoolMemory memory_;
};

/// What was decided for a USB device. Allowed when this driver has no USB filter in the device's stack; Unknown when it
/// has one that is not decided or has ended, its device being unplugged. PASSIVE_LEVEL.
UsbMode usbModeOf(PDEVICE_OBJECT device);

/// Puts a filter on a USB device, decides the device's mode, enforces it and tells the service.
/// `hardwareIds` is the whole list. Returns what device add returns. PASSIVE_LEVEL.
NTSTATUS createUsbFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds);
