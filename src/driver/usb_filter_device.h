#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "log/kstring.h"
#include "myrtelhaven_service.h"
#include "policy/usb_mode.h"

/// Context of the filter that the driver puts on each USB device. Written during device add only.
struct UsbFilterDevice {
    WDFDEVICE device;
    ULONG filterable;  ///< 1 when the rules apply: the compatible ids match the blocked list; 0 for a composite parent
    UsbMode mode;      ///< the decision
    RuleType ruleType; ///< what the service is told beside it
    KString hardwareIds; ///< the whole list
    ServiceMessage message;
    bool denyWrite; ///< read-only by the device's access list, which has to last
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(UsbFilterDevice, usbFilterDeviceOf)

static_assert(__builtin_offsetof(UsbFilterDevice, filterable) == 0x08);
static_assert(__builtin_offsetof(UsbFilterDevice, hardwareIds) == 0x18);
static_assert(__builtin_offsetof(UsbFilterDevice, message) == 0x38);

/// The context of this driver's filter in the stack of a device; null when the stack has none. PASSIVE_LEVEL.
UsbFilterDevice *findUsbFilterDevice(PDEVICE_OBJECT device);

/// Puts a filter on a USB device, decides the device's mode, enforces it and tells the service.
/// `hardwareIds` is the whole list. Returns what device add returns. PASSIVE_LEVEL.
NTSTATUS createUsbFilterDevice(PWDFDEVICE_INIT deviceInit, const UNICODE_STRING &hardwareIds);
