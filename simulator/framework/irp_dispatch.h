#pragma once

#include <wdf.h>

namespace sim::framework {

class Device;

/// Every major function of a framework driver.
NTSTATUS dispatchIrp(PDEVICE_OBJECT deviceObject, PIRP irp);
/// The package that serves the major function of an IRP that needs no (more) preprocessing.
NTSTATUS dispatchToPackages(Device &device, PIRP irp);

// What the packages use to answer.
NTSTATUS completeIrp(PIRP irp, NTSTATUS status, ULONG_PTR information);
/// Skips the current stack location and calls the next lower driver.
NTSTATUS forwardIrp(Device &device, PIRP irp);
/// Copies the stack location down, calls the next lower driver and waits; the IRP comes back to be completed here.
NTSTATUS forwardIrpAndWait(Device &device, PIRP irp);

NTSTATUS dispatchPnp(Device &device, PIRP irp);
NTSTATUS dispatchPower(Device &device, PIRP irp);
NTSTATUS dispatchCreate(Device &device, PIRP irp);
NTSTATUS dispatchCleanup(Device &device, PIRP irp);
NTSTATUS dispatchClose(Device &device, PIRP irp);

} // namespace sim::framework
