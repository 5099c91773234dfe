#include "device.h"

#include "../kernel/io.h"
#include "call.h"
#include "driver.h"
#include "file_object.h"
#include "io_package.h"
#include "queue.h"
#include "table.h"
#include "target.h"

#include <algorithm>
#include <mutex>

namespace sim::framework {

namespace {

/// Where create requests pass through: never off, one callback, no sight of it for the driver.
WDF_IO_QUEUE_CONFIG generalQueueConfig() {
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchParallel);
    return config;
}

/// Guards the way from a device object to its framework device, which ends with its removal.
std::mutex &extensionMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace

Device::Device(DeviceInit &init, const WDF_OBJECT_ATTRIBUTES *attributes, const void *callSite)
    : Object(init.driver.client(), objectType, callSite), driver(init.driver), physical(init.physicalDevice),
      settings(init.settings), executionLevel(init.driver.executionLevel),
      synchronizationScope(init.driver.synchronizationScope), power(*this) {
    if (attributes && attributes->ExecutionLevel != WdfExecutionLevelInheritFromParent) {
        executionLevel = attributes->ExecutionLevel;
    }
    if (attributes && attributes->SynchronizationScope != WdfSynchronizationScopeInheritFromParent) {
        synchronizationScope = attributes->SynchronizationScope;
    }
    WDF_DEVICE_STATE_INIT(&state_);
    io = new IoPackage(*this);
    io->adopt(*this);
    io->reference();
    general = new Queue(*this, generalQueueConfig(), false, true, nullptr);
    general->hidden = true;
    general->adopt(*io);
    general->reference();
}

Device::~Device() {
    for (Object *part :
         {static_cast<Object *>(defaultTarget), static_cast<Object *>(general), static_cast<Object *>(io)}) {
        if (part) {
            part->dereference("WDFDEVICE", nullptr);
        }
    }
}

// learn.microsoft.com: WdfDeviceCreate; framework source: what a filter copies from the device below
NTSTATUS Device::attach() {
    constexpr ULONG copiedFlags = DO_BUFFERED_IO | DO_DIRECT_IO | DO_POWER_PAGABLE | DO_POWER_INRUSH;
    deviceObject = createDevice(driver.driverObject, 0, FILE_DEVICE_UNKNOWN, FILE_DEVICE_SECURE_OPEN);
    if (!deviceObject) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    deviceObject->DeviceExtension = primaryContext();
    deviceObject->Flags |= DO_BUFFERED_IO | DO_POWER_PAGABLE;
    if (!attachDevice(deviceObject, physical, &attached)) {
        deleteDevice(deviceObject);
        deviceObject = nullptr;
        return STATUS_NO_SUCH_DEVICE;
    }
    if (filter()) {
        deviceObject->Flags = (deviceObject->Flags & ~copiedFlags) | (attached->Flags & copiedFlags);
        deviceObject->DeviceType = attached->DeviceType;
        deviceObject->Characteristics = attached->Characteristics;
    }
    if (!settings.preprocess.empty()) {
        ++deviceObject->StackSize;
    }
    defaultTarget = new Target(*this, attached);
    defaultTarget->adopt(*this);
    defaultTarget->reference();
    ++driver.devices;
    return STATUS_SUCCESS;
}

void Device::withdrawInterfaces() {
    deleteSymbolicLink();
    io->purgeQueues(true);
}

void Device::stopForRemoval() {
    removing = true;
    if (started.exchange(false)) {
        power.stop();
        power.releaseHardware();
    }
    withdrawInterfaces();
}

// Framework source: cleanup callbacks run while the device is still attached
NTSTATUS Device::tearDown(const std::function<NTSTATUS()> &passDown) {
    removing = true;
    io->purgeQueues(false);
    beginDeletion();
    disposeTree();
    destroyChildren();
    drainDeferredDeletions();
    removeLock.waitAndClose();
    const NTSTATUS status = passDown ? passDown() : STATUS_SUCCESS;
    deleteSymbolicLink();
    detachDevice(attached);
    {
        const std::lock_guard lock(extensionMutex());
        deviceObject->DeviceExtension = nullptr;
        deleteDevice(deviceObject);
    }
    --driver.devices;
    giveUpBirthReference();
    return status;
}

void Device::deleteAfterFailedAdd() {
    tearDown({});
}

void Device::addFileObject(FileObject &file) {
    std::lock_guard lock(mutex_);
    files_.push_back(&file);
}

void Device::removeFileObject(FileObject &file) {
    std::lock_guard lock(mutex_);
    std::erase(files_, &file);
}

FileObject *Device::fileObject(PFILE_OBJECT wdmFile) const {
    std::lock_guard lock(mutex_);
    const auto found = std::find_if(files_.begin(), files_.end(),
                                    [wdmFile](const FileObject *file) { return file->wdmFile == wdmFile; });
    return wdmFile && found != files_.end() ? *found : nullptr;
}

Device *referencedDeviceOf(PDEVICE_OBJECT deviceObject) {
    const std::lock_guard lock(extensionMutex());
    Device *device = deviceOf(deviceObject);
    if (device != nullptr) {
        device->reference();
    }
    return device;
}

Device *deviceOf(PDEVICE_OBJECT deviceObject) {
    Object *object = objectFromContext(deviceObject->DeviceExtension);
    return object && object->type == ObjectType::device ? static_cast<Device *>(object) : nullptr;
}

} // namespace sim::framework
