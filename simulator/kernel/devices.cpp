// Driver objects, device objects and device stacks.

#include "interleaving.h"
#include "internals.h"
#include "io.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace sim {

namespace {

constexpr CSHORT driverType = 4; ///< object type numbers of the I/O manager (recalled)
constexpr CSHORT deviceType = 3;
constexpr CSHORT deviceExtensionType = 13;

DeviceTable &deviceTable() {
    return kernel().internals->devices;
}

/// A driver object with everything that belongs to it.
struct DriverMemory {
    DRIVER_OBJECT object{};
    DRIVER_EXTENSION extension{};
    std::u16string name;
    std::u16string serviceName;
};

UNICODE_STRING countedString(std::u16string &text) {
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(WCHAR));
    return {bytes, static_cast<USHORT>(bytes + sizeof(WCHAR)), reinterpret_cast<PWCH>(text.data())};
}

NTSTATUS refuse(PDEVICE_OBJECT, PIRP irp) {
    irp->IoStatus.Status = STATUS_INVALID_DEVICE_REQUEST;
    irp->IoStatus.Information = 0;
    IofCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_INVALID_DEVICE_REQUEST;
}

std::string describeDevice(PDEVICE_OBJECT device) {
    return "device object " + hex(reinterpret_cast<std::uintptr_t>(device));
}

/// Takes a device off its driver's list. The table's lock is held.
void unlinkFromDriver(PDEVICE_OBJECT device) {
    for (PDEVICE_OBJECT *link = &device->DriverObject->DeviceObject; *link != nullptr; link = &(*link)->NextDevice) {
        if (*link == device) {
            *link = device->NextDevice;
            device->NextDevice = nullptr;
            return;
        }
    }
}

void destroyDevice(PDEVICE_OBJECT device) {
    PDRIVER_OBJECT driver = device->DriverObject;
    {
        std::lock_guard lock(deviceTable().mutex);
        deviceTable().devices.erase(device);
    }
    std::free(device->DeviceObjectExtension);
    std::free(device);
    if (kernel().objects.contains(driver)) {
        kernel().objects.dereference(driver, nullptr);
    }
}

/// IoDeleteDevice acts once nobody has the device open and nothing is attached to it any more: a bus driver deletes its
/// device while the one above, whose remove request is still under way, has yet to detach. The table's lock is held
/// since the change that may have been the last: another thread would delete the device meanwhile.
void deleteIfUnused(PDEVICE_OBJECT device) {
    DeviceState &state = deviceTable().devices.at(device);
    if (!state.deletePending || state.deleted || device->ReferenceCount != 0 || device->AttachedDevice != nullptr) {
        return;
    }
    state.deleted = true;
    unlinkFromDriver(device);
    kernel().objects.dereference(device, nullptr);
}

/// Zeroed memory of its own, so that the sanitizer sees its ends.
void *zeroedMemory(std::size_t bytes) {
    void *memory = nullptr;
    if (posix_memalign(&memory, 16, bytes) != 0) {
        throw std::bad_alloc();
    }
    return std::memset(memory, 0, bytes);
}

} // namespace

void requireDevice(const void *device, const char *routine, const void *callSite) {
    if (kernel().objects.typeOf(device, routine, callSite) != ObjectType::device) {
        bugCheck("object", routine, hex(reinterpret_cast<std::uintptr_t>(device)) + " is not a device object",
                 callSite);
    }
}

PDRIVER_OBJECT createDriverObject(std::u16string_view serviceName) {
    auto memory = std::make_unique<DriverMemory>();
    memory->serviceName = serviceName;
    memory->name = u"\\Driver\\" + memory->serviceName;
    DRIVER_OBJECT &driver = memory->object;
    driver.Type = driverType;
    driver.Size = sizeof(DRIVER_OBJECT);
    driver.DriverExtension = &memory->extension;
    driver.DriverName = countedString(memory->name);
    memory->extension.DriverObject = &driver;
    memory->extension.ServiceKeyName = countedString(memory->serviceName);
    std::fill(std::begin(driver.MajorFunction), std::end(driver.MajorFunction), refuse);
    DriverMemory *raw = memory.release();
    kernel().objects.insert(&driver, ObjectType::driver, raw->name, [raw] { delete raw; });
    return &driver;
}

void deleteDriverObject(PDRIVER_OBJECT driver) {
    kernel().objects.removeName(driver);
    kernel().objects.dereference(driver, nullptr);
}

PDEVICE_OBJECT createDevice(PDRIVER_OBJECT driver, ULONG extensionSize, ULONG type, ULONG characteristics,
                            std::u16string_view name) {
    auto *device = static_cast<PDEVICE_OBJECT>(zeroedMemory(sizeof(DEVICE_OBJECT) + extensionSize));
    auto *extension = static_cast<PDEVOBJ_EXTENSION>(zeroedMemory(sizeof(DEVOBJ_EXTENSION)));
    extension->Type = deviceExtensionType;
    extension->DeviceObject = device;
    device->Type = deviceType;
    device->Size = static_cast<USHORT>(sizeof(DEVICE_OBJECT) + extensionSize);
    device->DriverObject = driver;
    device->Flags = DO_DEVICE_INITIALIZING;
    device->Characteristics = characteristics;
    device->DeviceType = type;
    device->StackSize = 1;
    device->DeviceExtension = extensionSize == 0 ? nullptr : device + 1;
    device->DeviceObjectExtension = extension;
    kernel().objects.reference(driver, nullptr);
    kernel().objects.insert(device, ObjectType::device, std::u16string(name), [device] { destroyDevice(device); });
    std::lock_guard lock(deviceTable().mutex);
    deviceTable().devices.emplace(device, DeviceState{});
    device->NextDevice = driver->DeviceObject;
    driver->DeviceObject = device;
    return device;
}

PDEVICE_OBJECT attachDevice(PDEVICE_OBJECT source, PDEVICE_OBJECT target, PDEVICE_OBJECT *attachedTo) {
    PDEVICE_OBJECT top = nullptr;
    {
        std::lock_guard lock(deviceTable().mutex);
        top = topOfStack(target);
        if (isDeletePending(top)) {
            return nullptr;
        }
        top->AttachedDevice = source;
        source->DeviceObjectExtension->AttachedTo = top;
        source->StackSize = static_cast<CCHAR>(top->StackSize + 1);
        source->AlignmentRequirement = top->AlignmentRequirement;
        source->SectorSize = top->SectorSize;
        if (attachedTo != nullptr) {
            *attachedTo = top;
        }
    }
    mayInterleave(); // from here on others find the source in the stack
    return top;
}

void detachDevice(PDEVICE_OBJECT lower) {
    std::lock_guard lock(deviceTable().mutex);
    if (lower->AttachedDevice == nullptr) {
        bugCheck("device stack", "IoDetachDevice", "nothing is attached to " + describeDevice(lower), nullptr);
    }
    lower->AttachedDevice->DeviceObjectExtension->AttachedTo = nullptr;
    lower->AttachedDevice = nullptr;
    deleteIfUnused(lower);
}

void deleteDevice(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    DeviceState &state = deviceTable().devices.at(device);
    if (state.deletePending) {
        bugCheck("device object", "IoDeleteDevice", describeDevice(device) + " is deleted twice", nullptr);
    }
    if (device->DeviceObjectExtension->AttachedTo != nullptr) {
        bugCheck("device object", "IoDeleteDevice", describeDevice(device) + " is still attached", nullptr);
    }
    state.deletePending = true;
    device->Flags &= ~DO_SHUTDOWN_REGISTERED;
    std::erase(deviceTable().shutdownList, device);
    kernel().objects.removeName(device);
    deleteIfUnused(device);
}

bool isDeletePending(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    const auto found = deviceTable().devices.find(device);
    return found == deviceTable().devices.end() || found->second.deletePending;
}

bool deviceOpened(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    if (isDeletePending(device)) {
        return false;
    }
    __atomic_fetch_add(&device->ReferenceCount, 1, __ATOMIC_ACQ_REL); // removal looks at it without the lock
    return true;
}

void deviceClosed(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    __atomic_fetch_sub(&device->ReferenceCount, 1, __ATOMIC_ACQ_REL);
    deleteIfUnused(device);
}

PDEVICE_OBJECT topOfStack(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    while (device->AttachedDevice != nullptr) {
        device = device->AttachedDevice;
    }
    return device;
}

PDEVICE_OBJECT referencedTopOfStack(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    PDEVICE_OBJECT top = topOfStack(device);
    kernel().objects.reference(top, nullptr);
    return top;
}

PDEVICE_OBJECT bottomOfStack(PDEVICE_OBJECT device) {
    std::lock_guard lock(deviceTable().mutex);
    while (device->DeviceObjectExtension->AttachedTo != nullptr) {
        device = device->DeviceObjectExtension->AttachedTo;
    }
    return device;
}

} // namespace sim

using namespace sim;

// learn.microsoft.com: IoGetAttachedDeviceReference
extern "C" PDEVICE_OBJECT IoGetAttachedDeviceReference(PDEVICE_OBJECT device) {
    requireIrqlAtMost(DISPATCH_LEVEL, "IoGetAttachedDeviceReference", SIM_CALL_SITE);
    requireDevice(device, "IoGetAttachedDeviceReference", SIM_CALL_SITE);
    std::lock_guard lock(deviceTable().mutex);
    PDEVICE_OBJECT top = topOfStack(device);
    kernel().objects.reference(top, SIM_CALL_SITE);
    return top;
}

// learn.microsoft.com: IoGetDeviceAttachmentBaseRef
extern "C" PDEVICE_OBJECT IoGetDeviceAttachmentBaseRef(PDEVICE_OBJECT device) {
    requireIrqlAtMost(DISPATCH_LEVEL, "IoGetDeviceAttachmentBaseRef", SIM_CALL_SITE);
    requireDevice(device, "IoGetDeviceAttachmentBaseRef", SIM_CALL_SITE);
    std::lock_guard lock(deviceTable().mutex);
    PDEVICE_OBJECT base = bottomOfStack(device);
    kernel().objects.reference(base, SIM_CALL_SITE);
    return base;
}

// learn.microsoft.com: IoGetLowerDeviceObject. Which of the two must not be going away is recalled.
extern "C" PDEVICE_OBJECT IoGetLowerDeviceObject(PDEVICE_OBJECT device) {
    requireIrqlAtMost(DISPATCH_LEVEL, "IoGetLowerDeviceObject", SIM_CALL_SITE);
    requireDevice(device, "IoGetLowerDeviceObject", SIM_CALL_SITE);
    std::lock_guard lock(deviceTable().mutex);
    PDEVICE_OBJECT lower = device->DeviceObjectExtension->AttachedTo;
    if (lower == nullptr || isDeletePending(device) || isDeletePending(lower)) {
        return nullptr;
    }
    kernel().objects.reference(lower, SIM_CALL_SITE);
    return lower;
}

// learn.microsoft.com: IoEnumerateDeviceObjectList. That entries of a list that is too short are referenced is
// recalled.
extern "C" NTSTATUS IoEnumerateDeviceObjectList(PDRIVER_OBJECT driver, PDEVICE_OBJECT *list, ULONG listBytes,
                                                PULONG deviceCount) {
    constexpr auto routine = "IoEnumerateDeviceObjectList";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    if (kernel().objects.typeOf(driver, routine, callSite) != ObjectType::driver) {
        bugCheck("object", routine, "the first argument is not a driver object", callSite);
    }
    if (list != nullptr) {
        kernel().pool.checkAccess(list, listBytes, routine, callSite);
        if (const auto block = kernel().pool.blockAt(list); block && block->paged) {
            bugCheck("irql", routine, "the list lies in paged pool but is filled under a spin lock", callSite);
        }
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    std::lock_guard lock(deviceTable().mutex);
    const ULONG room = list == nullptr ? 0 : listBytes / static_cast<ULONG>(sizeof(PDEVICE_OBJECT));
    ULONG count = 0;
    for (PDEVICE_OBJECT device = driver->DeviceObject; device != nullptr; device = device->NextDevice, ++count) {
        if (count < room) {
            kernel().objects.reference(device, callSite);
            list[count] = device;
        }
    }
    *deviceCount = count;
    return count <= room ? STATUS_SUCCESS : STATUS_BUFFER_TOO_SMALL;
}
