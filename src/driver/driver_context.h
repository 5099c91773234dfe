#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "control/blocked_device_register.h"
#include "control/control_device.h"
#include "log/kstring.h"
#include "log/logger.h"
#include "policy/rule_storage.h"

/// The one driver-wide record, context of the framework driver object: built by DriverEntry, torn down by the driver
/// object's cleanup. In non-paged memory, which its locks need.
struct DriverContext {
    ControlDevice *controlDevice; ///< null: not available, and every filterable device is blocked
    RuleStorage ruleStorage;
    ThunderboltRuleStorage thunderboltRuleStorage;
    ULONG callbackMode;           ///< 0 rules decide; other: the service does when it is registered; 2: see fallback
    ULONG callbackTimeout;        ///< seconds that one question to the service may take; 0: no limit
    ULONG callbackFallbackAction; ///< with mode 2 and no service: 1 read-only, else blocked
    BlockedDeviceRegister blockedDevices;
    Logger logger;
    FAST_MUTEX usbFilterMutex; ///< guards usbFilters and, while it is held, keeps the filters in it from ending
    LIST_ENTRY usbFilters;     ///< the UsbFilterDevice of each device whose add is over
    FAST_MUTEX notUsbHubMutex; ///< guards notUsbHubText
    KString notUsbHubText;     ///< a line for each USB device without a USB hub driver among its ancestors
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(DriverContext, driverContextOf)

/// The record of the loaded driver. Any IRQL; it exists from WdfDriverCreate to the driver object's cleanup.
inline DriverContext &getDriverContext() {
    return *driverContextOf(WdfGetDriver());
}

/// The control device, or null while there is none.
inline ControlDevice *findControlDevice() {
    return __atomic_load_n(&getDriverContext().controlDevice, __ATOMIC_ACQUIRE);
}

inline void setControlDevice(ControlDevice *control) {
    __atomic_store_n(&getDriverContext().controlDevice, control, __ATOMIC_RELEASE);
}

/// Builds the record in the framework's zeroed memory, up to the first log line. PASSIVE_LEVEL, no other thread yet.
void buildDriverContext(DriverContext &context, PDRIVER_OBJECT driver);

/// Releases what the record owns, the log first. PASSIVE_LEVEL, all devices are gone.
void destroyDriverContext(DriverContext &context);
