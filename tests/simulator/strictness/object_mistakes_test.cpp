// What a driver does wrong with kernel objects, framework objects, handles, work items and requests.

#include "wrong_driver.h"

namespace sim::strictness {
namespace {

constexpr ULONG objectTag = 'jbOW';

WDFMEMORY newMemory(WDFOBJECT parent = nullptr) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    static char buffer[16];
    WDFMEMORY memory = nullptr;
    (void)WdfMemoryCreatePreallocated(&attributes, buffer, sizeof buffer, &memory);
    return memory;
}

void dereferenceOnceTooOften(WDFDEVICE, PDEVICE_OBJECT physicalDevice) {
    ObReferenceObject(physicalDevice);
    ObDereferenceObject(physicalDevice);
    for (int count = 0; count < 100; ++count) {
        ObDereferenceObject(physicalDevice);
    }
}

void dereferenceMemory(WDFDEVICE, PDEVICE_OBJECT) {
    ObDereferenceObject(ExAllocatePool2(POOL_FLAG_NON_PAGED, 64, objectTag));
}

void forgetADeviceReference(WDFDEVICE, PDEVICE_OBJECT physicalDevice) {
    ObReferenceObject(physicalDevice);
}

void closeTwice(WDFDEVICE, PDEVICE_OBJECT physicalDevice) {
    HANDLE handle = nullptr;
    (void)ObOpenObjectByPointer(physicalDevice, OBJ_KERNEL_HANDLE, nullptr, READ_CONTROL, nullptr, KernelMode, &handle);
    ZwClose(handle);
    ZwClose(handle);
}

void forgetAHandle(WDFDEVICE, PDEVICE_OBJECT physicalDevice) {
    HANDLE handle = nullptr;
    (void)ObOpenObjectByPointer(physicalDevice, OBJ_KERNEL_HANDLE, nullptr, READ_CONTROL, nullptr, KernelMode, &handle);
}

void forgetAWorkItem(WDFDEVICE, PDEVICE_OBJECT physicalDevice) {
    (void)IoAllocateWorkItem(physicalDevice);
}

void useADeletedObject(WDFDEVICE, PDEVICE_OBJECT) {
    WDFMEMORY memory = newMemory();
    WdfObjectDelete(memory);
    WdfObjectDelete(memory);
}

void useAHandleOfAnotherType(WDFDEVICE device, PDEVICE_OBJECT) {
    WdfWaitLockRelease(reinterpret_cast<WDFWAITLOCK>(device));
}

void useNoHandle(WDFDEVICE, PDEVICE_OBJECT) {
    WdfObjectDelete(nullptr);
}

void releaseAReferenceNeverTaken(WDFDEVICE, PDEVICE_OBJECT) {
    WDFMEMORY memory = newMemory();
    WdfObjectDereference(memory);
    WdfObjectDereference(memory);
}

void forgetAFrameworkReference(WDFDEVICE, PDEVICE_OBJECT) {
    WdfObjectReference(newMemory());
}

void deleteTheDevice(WDFDEVICE device, PDEVICE_OBJECT) {
    WdfObjectDelete(device);
}

INSTANTIATE_TEST_SUITE_P(
    Objects, CaughtMistakes,
    testing::Values(
        Mistake{"DereferencedTooOften", dereferenceOnceTooOften, "object", "ObfDereferenceObject", ""},
        Mistake{"DereferencedMemory", dereferenceMemory, "object", "ObfDereferenceObject", ""},
        Mistake{"ClosedTwice", closeTwice, "handle", "ZwClose", ""},
        Mistake{"DeletedTwice", useADeletedObject, "framework (object|handle)", "WdfObjectDelete", ""},
        Mistake{"HandleOfAnotherType", useAHandleOfAnotherType, "framework handle", "WdfWaitLockRelease", ""},
        Mistake{"NoHandle", useNoHandle, "framework (object|handle)", "WdfObjectDelete", ""},
        Mistake{"ReferenceNeverTaken", releaseAReferenceNeverTaken, "framework object", "WdfObjectDereferenceActual",
                "last reference"},
        Mistake{"DeviceDeletedByHand", deleteTheDevice, "framework (object|handle|verifier)", "WdfObjectDelete", ""},
        Mistake{"ForgottenDeviceReference", forgetADeviceReference, "", "", "reference.*forgetADeviceReference"},
        Mistake{"ForgottenHandle", forgetAHandle, "", "handle", "forgetAHandle"},
        Mistake{"ForgottenWorkItem", forgetAWorkItem, "", "work item", "forgetAWorkItem"},
        Mistake{"ForgottenFrameworkReference", forgetAFrameworkReference, "", "WDFMEMORY",
                "forgetAFrameworkReference|newMemory"}),
    nameOf);

} // namespace
} // namespace sim::strictness
