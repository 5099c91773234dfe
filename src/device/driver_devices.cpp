#include "device/driver_devices.h"

#include "device/device_layouts.h"
#include "support/device_reference.h"

// Exported by the kernel, but declared in no official header.
extern "C" {
NTKERNELAPI NTSTATUS ObReferenceObjectByName(PUNICODE_STRING name, ULONG attributes, PACCESS_STATE accessState,
                                             ACCESS_MASK desiredAccess, POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                             PVOID parseContext, PVOID *object);
extern NTKERNELAPI POBJECT_TYPE *IoDriverObjectType;
}

DriverDevices::~DriverDevices() {
    for (PDEVICE_OBJECT device : *this) {
        ObDereferenceObject(device);
    }
}

NTSTATUS DriverDevices::enumerate(const UNICODE_STRING &driverName) {
    UNICODE_STRING name = driverName;
    PVOID driver = nullptr;
    NTSTATUS status = ObReferenceObjectByName(&name, OBJ_CASE_INSENSITIVE, nullptr, 0, *IoDriverObjectType, KernelMode,
                                              nullptr, &driver);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    status = fill(static_cast<PDRIVER_OBJECT>(driver));
    ObDereferenceObject(driver);
    return status;
}

NTSTATUS DriverDevices::fill(PDRIVER_OBJECT driver) {
    ULONG count = 0;
    const NTSTATUS status = IoEnumerateDeviceObjectList(driver, nullptr, 0, &count);
    if (status != STATUS_BUFFER_TOO_SMALL) {
        return status;
    }
    // Not paged: the kernel fills it under a spin lock.
    const ULONG bytes = count * static_cast<ULONG>(sizeof(PDEVICE_OBJECT));
    array_ = PoolMemory(POOL_FLAG_NON_PAGED, bytes);
    if (!array_) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    // A driver that gained devices since says STATUS_BUFFER_TOO_SMALL again, with as many as fit, all referenced.
    ULONG present = 0;
    const NTSTATUS filled = IoEnumerateDeviceObjectList(driver, array_.as<PDEVICE_OBJECT>(), bytes, &present);
    count_ = present < count ? present : count;
    return filled;
}

bool isEnumeratedPhysicalDevice(PDEVICE_OBJECT device) {
    const auto base = DeviceReference::adopt(IoGetDeviceAttachmentBaseRef(device));
    return base.get() == device && deviceNodeOf(device) != nullptr;
}
