#pragma once

#include <ntifs.h>

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Makes a driver object named "\Driver\NAME" with an extension, every major function set to a routine that completes
/// STATUS_INVALID_DEVICE_REQUEST. The object manager owns it; deleteDriverObject drops the creator's reference.
PDRIVER_OBJECT createDriverObject(std::u16string_view serviceName);
void deleteDriverObject(PDRIVER_OBJECT driver);

/// IoCreateDevice: heads the driver's device list; DO_DEVICE_INITIALIZING is set. `extensionSize` bytes, zeroed.
/// A device object's memory is 16-aligned, followed by its extension; DeviceObjectExtension is always present.
PDEVICE_OBJECT createDevice(PDRIVER_OBJECT driver, ULONG extensionSize, ULONG deviceType, ULONG characteristics,
                            std::u16string_view name = {});
/// IoAttachDeviceToDeviceStack: returns the device that was the top, null when the target is going away. `attachedTo`
/// gets the same before anybody can find the source in the stack and send to it (IoAttachDeviceToDeviceStackSafe).
PDEVICE_OBJECT attachDevice(PDEVICE_OBJECT source, PDEVICE_OBJECT target, PDEVICE_OBJECT *attachedTo = nullptr);
void detachDevice(PDEVICE_OBJECT lower); ///< IoDetachDevice
/// IoDeleteDevice: drops shutdown registration and name at once, and leaves the driver's list as soon as the device is
/// not open any more (DEVICE_OBJECT::ReferenceCount) and nothing is attached to it; memory goes with the last
/// reference. The device must have been detached from the one below.
void deleteDevice(PDEVICE_OBJECT device);
bool isDeletePending(PDEVICE_OBJECT device);
/// Counts a file object that was opened on the device or has been closed. False when the device is being deleted.
bool deviceOpened(PDEVICE_OBJECT device);
void deviceClosed(PDEVICE_OBJECT device);
PDEVICE_OBJECT topOfStack(PDEVICE_OBJECT device);           ///< no reference added
PDEVICE_OBJECT referencedTopOfStack(PDEVICE_OBJECT device); ///< with one of the machine's, no driver's
PDEVICE_OBJECT bottomOfStack(PDEVICE_OBJECT device);        ///< no reference added

/// The top of a stack, held while a request to it is under way: somebody else may take the stack apart meanwhile.
class TopOfStack {
  public:
    explicit TopOfStack(PDEVICE_OBJECT anyDeviceOfStack);
    ~TopOfStack();
    TopOfStack(const TopOfStack &) = delete;
    TopOfStack &operator=(const TopOfStack &) = delete;

    PDEVICE_OBJECT get() const { return device_; }

  private:
    const PDEVICE_OBJECT device_;
};

/// An IRP with `stackSize` locations, owned by its creator until it is completed or freed (IoAllocateIrp/IoFreeIrp).
/// Live IRPs are tracked; double completion and completion of a freed IRP stop the run.
PIRP allocateIrp(CCHAR stackSize, const void *callSite);
void freeIrp(PIRP irp);
/// IoReuseIrp: as fresh from allocateIrp, with `status` in its status block. Its creator must have it back.
void reuseIrp(PIRP irp, NTSTATUS status);
/// The IRP belongs to the calling thread from now on, for IoGetRequestorProcessId.
void setIrpThread(PIRP irp);
/// Sends an IRP whose next stack location is filled in, waits until it comes back and leaves it to its creator. Returns
/// the final status; information and buffers are in the IRP.
NTSTATUS sendAndWait(PDEVICE_OBJECT device, PIRP irp);

/// Sends a PnP IRP to the top of a device's stack and waits. Status is preset to STATUS_NOT_SUPPORTED.
/// `fill` may set parameters of the first stack location.
struct PnpResult {
    NTSTATUS status;
    ULONG_PTR information;
};
PnpResult sendPnpIrp(PDEVICE_OBJECT anyDeviceOfStack, UCHAR minor, void (*fill)(PIO_STACK_LOCATION, void *),
                     void *context);

/// Sends a power IRP to the top of a device's stack and waits. learn.microsoft.com: IRP_MN_SET_POWER.
NTSTATUS sendPowerIrp(PDEVICE_OBJECT anyDeviceOfStack, UCHAR minor, POWER_STATE_TYPE type, POWER_STATE state,
                      POWER_ACTION action);

/// IoCancelIrp: sets Cancel and calls the cancel routine if one is set. True when a routine was called. The routine
/// runs with the cancel lock held at DISPATCH_LEVEL and must give the lock back with
/// releaseCancelLock(irp->CancelIrql).
bool cancelIrp(PIRP irp);
KIRQL acquireCancelLock(); ///< returns the IRQL to go back to
void releaseCancelLock(KIRQL irql);

/// IRPs allocated and not yet freed, one line each, for the leak report.
std::vector<std::string> leakedIrps();

/// Sends IRP_MJ_SHUTDOWN to each registered device, last registered first.
void sendShutdown();

} // namespace sim
