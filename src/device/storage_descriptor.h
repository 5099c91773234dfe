#pragma once

#include <ntifs.h>

#include <ntddstor.h>

#include "support/pool_memory.h"

/// What a storage device says about itself: the standard descriptor and the strings behind it, as far as the device
/// returned them. Nothing in it is believed: what lies outside the returned bytes reads as zero or as an empty string.
/// PASSIVE_LEVEL.
class [[nodiscard]] StorageDescriptor {
  public:
    /// Asks `device` for the descriptor, a second time with more room when it says that it is larger. Returns the
    /// status of the stack, or STATUS_INSUFFICIENT_RESOURCES. Waits as long as the stack takes.
    NTSTATUS read(PDEVICE_OBJECT device);

    /// The fixed part; after a successful read() only.
    const STORAGE_DEVICE_DESCRIPTOR &header() const { return *memory_.as<STORAGE_DEVICE_DESCRIPTOR>(); }

    /// The string at `offset`: up to its NUL, the end of the returned bytes, or 32,766 characters, which is what
    /// its counted UTF-16 form can hold. Empty for offset 0 and for one behind the returned bytes.
    ANSI_STRING text(ULONG offset) const;

  private:
    NTSTATUS query(PDEVICE_OBJECT device, ULONG bytes);
    ULONG statedBytes() const;

    PoolMemory memory_; ///< never less than the fixed part
    ULONG held_ = 0;    ///< bytes that the device returned
};
