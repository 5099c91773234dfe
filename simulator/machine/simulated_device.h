#pragma once

#include "remove_lock.h"

#include <ntifs.h>

#include <atomic>
#include <string_view>

namespace sim::machine {

/// A device object of one of the machine's own drivers. The C++ object lives until the machine ends, so a request that
/// comes after the removal finds somebody who refuses it.
class SimulatedDevice {
  public:
    virtual ~SimulatedDevice() = default;
    SimulatedDevice(const SimulatedDevice &) = delete;
    SimulatedDevice &operator=(const SimulatedDevice &) = delete;

    PDEVICE_OBJECT object() const { return object_; }

    /// The constructor is through. Somebody else may find the device in its stack before that; what he sends waits.
    void madeWhole();

    /// Every major function of the machine's own drivers.
    static NTSTATUS dispatch(PDEVICE_OBJECT device, PIRP irp);

  protected:
    SimulatedDevice() = default;

    /// Makes the device object behind this. The name may be empty.
    void create(PDRIVER_OBJECT driver, ULONG deviceType, ULONG characteristics, std::u16string_view name);
    void markInitialized() { object_->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING); }

    /// Called inside the remove lock; completes the IRP or passes it on.
    virtual NTSTATUS handle(PIRP irp, PIO_STACK_LOCATION location) = 0;

    /// Completes with a status; `information` is left alone by the second form.
    static NTSTATUS complete(PIRP irp, NTSTATUS status, ULONG_PTR information);
    static NTSTATUS completeAsIs(PIRP irp);

    RemoveLock removeLock_;
    PDEVICE_OBJECT object_ = nullptr;

  private:
    std::atomic<bool> whole_ = false;
};

} // namespace sim::machine
