#pragma once

#include <ntifs.h>

#include "log/kstring.h"

/// Hardware-id lists of devices that a rescan found blocked by their compatible ids and is about to cycle, oldest
/// first; duplicates are allowed. Ids are compared ignoring case. Operations take the lock themselves. PASSIVE_LEVEL.
class BlockedDeviceRegister {
  public:
    void initialize();
    /// Frees the entries and the lock.
    void destroy();

    /// Appends an entry. Logs what fails; nothing is added then.
    NTSTATUS add(PDEVICE_OBJECT device, const UNICODE_STRING &hardwareIds);
    bool contains(const UNICODE_STRING &hardwareIds);
    /// Frees the first entry with these ids; none is fine.
    void remove(const UNICODE_STRING &hardwareIds);
    void releaseAll();

  private:
    ERESOURCE lock_;
    LIST_ENTRY entries_;
};
