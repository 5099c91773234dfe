#include "driver/add_device_hook.h"

#include "support/locks.h"

namespace {

/// One AddDevice call that is under way; lies on the stack of its thread.
struct RunningAdd {
    LIST_ENTRY links;
    PDEVICE_OBJECT physicalDevice;
    NTSTATUS noted;
};

PDRIVER_ADD_DEVICE frameworkAddDevice;
FAST_MUTEX runningAddsMutex;
LIST_ENTRY runningAdds; // guarded by runningAddsMutex

/// Lists an add while it runs.
class [[nodiscard]] AddScope {
  public:
    explicit AddScope(RunningAdd &add) : add_(add) {
        FastMutexLock hold(runningAddsMutex);
        InsertTailList(&runningAdds, &add_.links);
    }
    ~AddScope() {
        FastMutexLock hold(runningAddsMutex);
        RemoveEntryList(&add_.links);
    }
    AddScope(const AddScope &) = delete;
    AddScope &operator=(const AddScope &) = delete;

  private:
    RunningAdd &add_;
};

NTSTATUS NTAPI addDevice(PDRIVER_OBJECT driverObject, PDEVICE_OBJECT physicalDevice) {
    RunningAdd add{{}, physicalDevice, STATUS_SUCCESS};
    AddScope scope(add);
    const NTSTATUS status = frameworkAddDevice(driverObject, physicalDevice);
    return NT_SUCCESS(status) ? add.noted : status;
}

} // namespace

void hookAddDevice(PDRIVER_OBJECT driverObject) {
    ExInitializeFastMutex(&runningAddsMutex);
    InitializeListHead(&runningAdds);
    frameworkAddDevice = driverObject->DriverExtension->AddDevice;
    driverObject->DriverExtension->AddDevice = addDevice;
}

void noteFailedAdd(PDEVICE_OBJECT physicalDevice, NTSTATUS status) {
    FastMutexLock hold(runningAddsMutex);
    for (PLIST_ENTRY links = runningAdds.Flink; links != &runningAdds; links = links->Flink) {
        auto *add = CONTAINING_RECORD(links, RunningAdd, links);
        if (add->physicalDevice == physicalDevice) {
            add->noted = status;
        }
    }
}
