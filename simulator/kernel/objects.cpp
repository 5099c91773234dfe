// The object manager as drivers call it.

#include "object_types.h"

#include "generic_rights.h"
#include "handles.h"
#include "kernel.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

using namespace sim;

namespace {

_OBJECT_TYPE driverType{ObjectType::driver};
POBJECT_TYPE driverTypePointer = &driverType;

bool typeFits(POBJECT_TYPE wanted, ObjectType actual) {
    return wanted == nullptr || wanted->type == actual;
}

/// The directory part of a name, empty for one at the root.
std::u16string_view directoryOf(std::u16string_view name) {
    return name.substr(0, name.rfind(u'\\'));
}

} // namespace

namespace sim {

void requireKernelHandle(ULONG attributes, const char *routine, const void *callSite) {
    if ((attributes & OBJ_KERNEL_HANDLE) == 0 && currentThread().processId != 4) {
        bugCheck("handle", routine,
                 "opened without OBJ_KERNEL_HANDLE in process " + std::to_string(currentThread().processId), callSite);
    }
}

} // namespace sim

extern "C" POBJECT_TYPE *IoDriverObjectType = &driverTypePointer;

// learn.microsoft.com: ObfReferenceObject
extern "C" LONG_PTR ObfReferenceObject(PVOID object) {
    requireIrqlAtMost(DISPATCH_LEVEL, "ObfReferenceObject", SIM_CALL_SITE);
    return kernel().objects.reference(object, SIM_CALL_SITE);
}

// learn.microsoft.com: ObDereferenceObject
extern "C" LONG_PTR ObfDereferenceObject(PVOID object) {
    requireIrqlAtMost(DISPATCH_LEVEL, "ObfDereferenceObject", SIM_CALL_SITE);
    return kernel().objects.dereference(object, SIM_CALL_SITE);
}

// learn.microsoft.com: ObOpenObjectByPointer. Any access is granted to kernel mode.
extern "C" NTSTATUS ObOpenObjectByPointer(PVOID object, ULONG attributes, PACCESS_STATE accessState,
                                          ACCESS_MASK desiredAccess, POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                          PHANDLE handle) {
    constexpr auto routine = "ObOpenObjectByPointer";
    const void *callSite = SIM_CALL_SITE;
    requireIrqlAtMost(APC_LEVEL, routine, callSite);
    const ObjectType actual = kernel().objects.typeOf(object, routine, callSite);
    requireKernelHandle(attributes, routine, callSite);
    if (accessState != nullptr || mode != KernelMode) {
        notSimulated(routine, "an access state, or a user-mode access check", callSite);
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    if (!typeFits(type, actual)) {
        return STATUS_OBJECT_TYPE_MISMATCH;
    }
    *handle = kernel().objects.openHandle(object, mapGenericRights(desiredAccess), callSite,
                                          (attributes & OBJ_KERNEL_HANDLE) != 0);
    return STATUS_SUCCESS;
}

// learn.microsoft.com: ObReferenceObjectByHandle
extern "C" NTSTATUS ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK desiredAccess, POBJECT_TYPE type,
                                              KPROCESSOR_MODE mode, PVOID *object,
                                              POBJECT_HANDLE_INFORMATION information) {
    constexpr auto routine = "ObReferenceObjectByHandle";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    ACCESS_MASK granted = 0;
    void *body = kernel().objects.bodyOf(handle, &granted);
    if (body == nullptr) {
        return STATUS_INVALID_HANDLE;
    }
    if (!typeFits(type, kernel().objects.typeOf(body, routine, callSite))) {
        return STATUS_OBJECT_TYPE_MISMATCH;
    }
    if (mode != KernelMode && (desiredAccess & ~granted) != 0) {
        return STATUS_ACCESS_DENIED;
    }
    kernel().objects.reference(body, callSite);
    *object = body;
    if (information != nullptr) {
        *information = {0, granted};
    }
    return STATUS_SUCCESS;
}

// Exported but not documented: behaviour recalled.
extern "C" NTSTATUS ObReferenceObjectByName(PUNICODE_STRING name, ULONG attributes, PACCESS_STATE, ACCESS_MASK,
                                            POBJECT_TYPE type, KPROCESSOR_MODE, PVOID, PVOID *object) {
    constexpr auto routine = "ObReferenceObjectByName";
    const void *callSite = SIM_CALL_SITE;
    requirePassive(routine, callSite);
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    const std::u16string_view text = view(*name);
    if (!text.starts_with(u'\\')) {
        return STATUS_OBJECT_PATH_SYNTAX_BAD;
    }
    const NamedObject found(text, (attributes & OBJ_CASE_INSENSITIVE) != 0);
    if (found.get() == nullptr) {
        return kernel().objects.directoryExists(directoryOf(text)) ? STATUS_OBJECT_NAME_NOT_FOUND
                                                                   : STATUS_OBJECT_PATH_NOT_FOUND;
    }
    if (!typeFits(type, kernel().objects.typeOf(found.get(), routine, callSite))) {
        return STATUS_OBJECT_TYPE_MISMATCH;
    }
    kernel().objects.reference(found.get(), callSite);
    *object = found.get();
    return STATUS_SUCCESS;
}

// learn.microsoft.com: ZwClose
extern "C" NTSTATUS ZwClose(HANDLE handle) {
    requirePassive("ZwClose", SIM_CALL_SITE);
    if (!kernel().objects.closeHandle(handle)) {
        bugCheck("handle", "ZwClose",
                 "handle " + hex(reinterpret_cast<std::uintptr_t>(handle)) + " is not open (bug check 0x93)",
                 SIM_CALL_SITE);
    }
    return STATUS_SUCCESS;
}
