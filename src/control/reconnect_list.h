#pragma once

#include <ntifs.h>

#include "support/device_reference.h"

/// A device whose port is to be cycled.
struct DeviceToReconnect {
    LIST_ENTRY links;
    DeviceReference device; ///< the physical device object
};

/// Devices to reconnect, in the order in which they were found. PASSIVE_LEVEL.
class [[nodiscard]] ReconnectList {
  public:
    ReconnectList() { InitializeListHead(&entries_); }
    ~ReconnectList();
    ReconnectList(const ReconnectList &) = delete;
    ReconnectList &operator=(const ReconnectList &) = delete;

    /// Adds a device at the end and logs it. STATUS_INSUFFICIENT_RESOURCES, logged, leaves the list as it was.
    NTSTATUS append(PDEVICE_OBJECT device);

    bool empty() const { return IsListEmpty(&entries_) != FALSE; }
    bool contains(PDEVICE_OBJECT device) const;

    /// Calls `visit(device)` for each device in order until it answers a failure, which is returned.
    template<typename Visit>
    NTSTATUS forEach(Visit visit) const {
        for (PLIST_ENTRY links = entries_.Flink; links != &entries_; links = links->Flink) {
            const NTSTATUS status = visit(CONTAINING_RECORD(links, DeviceToReconnect, links)->device.get());
            if (!NT_SUCCESS(status)) {
                return status;
            }
        }
        return STATUS_SUCCESS;
    }

  private:
    LIST_ENTRY entries_;
};
