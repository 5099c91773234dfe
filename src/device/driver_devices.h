#pragma once

#include <ntifs.h>

#include "support/pool_memory.h"
#include "support/text.h"

/// Names of the USB hub drivers, in the order in which they are asked.
inline constexpr UNICODE_STRING hubDriverNames[] = {literal(L"\\Driver\\USBHUB"), literal(L"\\Driver\\USBHUB3")};

/// The device objects of one driver, each referenced for the life of the list. PASSIVE_LEVEL.
class [[nodiscard]] DriverDevices {
  public:
    DriverDevices() = default;
    ~DriverDevices();
    DriverDevices(const DriverDevices &) = delete;
    DriverDevices &operator=(const DriverDevices &) = delete;

    /// Fills the list, which must be empty. STATUS_OBJECT_NAME_NOT_FOUND when no such driver is loaded;
    /// STATUS_INSUFFICIENT_RESOURCES; else the status of the kernel's enumeration.
    NTSTATUS enumerate(const UNICODE_STRING &driverName);

    PDEVICE_OBJECT *begin() const { return array_.as<PDEVICE_OBJECT>(); }
    PDEVICE_OBJECT *end() const { return begin() + count_; }

  private:
    NTSTATUS fill(PDRIVER_OBJECT driver);

    PoolMemory array_;
    ULONG count_ = 0;
};

/// Whether the device object is a physical one that Plug and Play has a node for.
bool isEnumeratedPhysicalDevice(PDEVICE_OBJECT device);
