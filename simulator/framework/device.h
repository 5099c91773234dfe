#pragma once

#include "device_init.h"
#include "object.h"
#include "power.h"
#include "remove_lock.h"
#include "request_counter.h"

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

namespace sim::framework {

class Driver;
class FileObject;
class IoPackage;
class Queue;
class Target;

/// A framework device: a functional or filter device object with what the framework keeps for it.
class Device : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::device;

    Device(DeviceInit &init, const WDF_OBJECT_ATTRIBUTES *attributes, const void *callSite);
    ~Device() override;

    const char *deletionRefusal() const override { return "a Plug and Play device cannot be deleted by its driver"; }

    Driver &driver;
    const PDEVICE_OBJECT physical;
    const DeviceSettings settings;
    PDEVICE_OBJECT deviceObject = nullptr; ///< null once removed
    PDEVICE_OBJECT attached = nullptr;     ///< the next lower device of the stack
    WDF_EXECUTION_LEVEL executionLevel;
    WDF_SYNCHRONIZATION_SCOPE synchronizationScope;

    IoPackage *io = nullptr;
    Queue *general = nullptr; ///< where create requests pass through; no driver sees it
    Target *defaultTarget = nullptr;
    PowerMachine power;
    RemoveLock removeLock;
    RequestCounter handlerCalls; ///< requests that entered the driver
    RequestCounter passedDown;   ///< those that went to the lower driver without
    std::atomic<bool> started{false};
    std::atomic<bool> removing{false};

    bool filter() const { return settings.filter; }
    WDFDEVICE deviceHandle() const { return reinterpret_cast<WDFDEVICE>(handle()); }

    /// Creates the WDM device object and attaches it. STATUS_NO_SUCH_DEVICE when there is nothing to attach to.
    NTSTATUS attach();
    /// Undoes a creation that failed later in EvtDriverDeviceAdd.
    void deleteAfterFailedAdd();
    /// Power off, hardware released, interfaces withdrawn. Does nothing the second time.
    void stopForRemoval();
    /// Deletes the symbolic link and purges the power-managed queues.
    void withdrawInterfaces();
    /// Purges, disposes, detaches, destroys. `passDown` runs when everything but the WDM device is gone; the status it
    /// returns is returned.
    NTSTATUS tearDown(const std::function<NTSTATUS()> &passDown);

    // Device state bits (IRP_MN_QUERY_PNP_DEVICE_STATE).
    void setState(const WDF_DEVICE_STATE &state);
    WDF_DEVICE_STATE state() const;
    void forgetPassingStates(); ///< what a new start returns to default
    ULONG applyState(ULONG bits) const;

    // Symbolic link.
    NTSTATUS createSymbolicLink(std::u16string name);
    void deleteSymbolicLink();

    // File objects, found by the WDM file object.
    void addFileObject(FileObject &file);
    void removeFileObject(FileObject &file);
    FileObject *fileObject(PFILE_OBJECT file) const;

  protected:
    void beforeCleanup() override { drainDeferredDeletions(); }

  private:
    NTSTATUS nameOfPhysicalDevice(std::u16string &name) const;

    mutable std::mutex mutex_;
    WDF_DEVICE_STATE state_{};
    std::u16string linkName_;
    std::vector<FileObject *> files_;
};

/// The framework device behind a device object of a framework driver; null for any other device object.
Device *deviceOf(PDEVICE_OBJECT deviceObject);
/// The same with a reference, while somebody else may be removing it.
Device *referencedDeviceOf(PDEVICE_OBJECT deviceObject);

} // namespace sim::framework
