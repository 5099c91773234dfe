#include "driver_under_test.h"

#include "../kernel/io.h"
#include "../kernel/kernel.h"
#include "../kernel/thread.h"
#include "../kernel/violation.h"
#include "services.h"

#include <stdexcept>

namespace sim::machine {

// learn.microsoft.com: DRIVER_INITIALIZE. The registry path is the system's and goes away after the call.
NTSTATUS DriverUnderTest::load() {
    const std::lock_guard guard(mutex_);
    if (object_ != nullptr) {
        return STATUS_SUCCESS;
    }
    image_ = openImage_();
    object_ = createDriverObject(driverService);
    object_->DriverStart = image_->start();
    object_->DriverSize = image_->size();
    NTSTATUS status = STATUS_SUCCESS;
    {
        std::u16string path = Services::keyOf(driverService);
        const auto bytes = static_cast<USHORT>(path.size() * sizeof(WCHAR));
        UNICODE_STRING registryPath{bytes, static_cast<USHORT>(bytes + sizeof(WCHAR)),
                                    reinterpret_cast<PWCH>(path.data())};
        const CallbackContract contract("DriverEntry");
        status = image_->callEntry(object_, &registryPath);
    }
    kernel().workers.settle();
    if (!NT_SUCCESS(status)) {
        if (object_->DeviceObject != nullptr) {
            bugCheck("driver entry", "DriverEntry", "it failed and left a device object", nullptr);
        }
        retire();
    }
    return status;
}

PDRIVER_OBJECT DriverUnderTest::object() const {
    const std::lock_guard guard(mutex_);
    return object_;
}

// learn.microsoft.com: DRIVER_UNLOAD. A driver that is being unloaded leaves the name space first (recalled).
void DriverUnderTest::unload() {
    const std::lock_guard guard(mutex_);
    if (object_ == nullptr) {
        return;
    }
    if (object_->DriverUnload == nullptr) {
        throw std::logic_error("the driver has no unload routine");
    }
    if (anyDeviceAttached()) {
        throw std::logic_error("a device of the driver is still in use: a handle is open on its stack");
    }
    kernel().objects.removeName(object_);
    {
        const CallbackContract contract("DriverUnload");
        object_->DriverUnload(object_);
    }
    kernel().workers.settle();
    if (object_->DeviceObject != nullptr) {
        bugCheck("driver unload", "DriverUnload", "a device object of the driver is left", nullptr);
    }
    retire();
}

bool DriverUnderTest::inUse() const {
    const std::lock_guard guard(mutex_);
    return object_ != nullptr && anyDeviceAttached();
}

bool DriverUnderTest::anyDeviceAttached() const {
    for (PDEVICE_OBJECT device = object_->DeviceObject; device != nullptr; device = device->NextDevice) {
        if (device->DeviceObjectExtension->AttachedTo != nullptr) {
            return true;
        }
    }
    return false;
}

void DriverUnderTest::retire() {
    retired_.push_back({std::move(image_), object_});
    deleteDriverObject(object_);
    object_ = nullptr;
    std::erase_if(retired_, [](const Retired &one) { return !kernel().objects.contains(one.object); });
}

void DriverUnderTest::switchOff() {
    try {
        unload();
    } catch (const std::logic_error &) {
        static_cast<void>(image_.release()); // its code may still be wanted by what it left behind
    }
    kernel().workers.drain();
    retired_.clear();
}

void DriverUnderTest::unmapUnused() {
    const std::lock_guard guard(mutex_);
    std::erase_if(retired_, [](const Retired &one) { return !kernel().objects.contains(one.object); });
}

} // namespace sim::machine
