#include "call.h"
#include "table.h"

namespace sim::framework {

namespace {

// learn.microsoft.com: WdfObjectGetTypedContextWorker
PVOID getTypedContext(PWDF_DRIVER_GLOBALS globals, WDFOBJECT handle, PCWDF_OBJECT_CONTEXT_TYPE_INFO typeInfo) {
    const Call call{"WdfObjectGetTypedContextWorker", SIM_CALL_SITE};
    call.client(globals);
    call.pointer(typeInfo, "TypeInfo");
    return call.anyObject(handle).contextOf(typeInfo);
}

// learn.microsoft.com: WdfObjectAllocateContext
NTSTATUS allocateContext(PWDF_DRIVER_GLOBALS globals, WDFOBJECT handle, PWDF_OBJECT_ATTRIBUTES attributes,
                         PVOID *context) {
    const Call call{"WdfObjectAllocateContext", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Object &object = call.anyObject(handle);
    call.pointer(attributes, "ContextAttributes");
    if (context) {
        *context = nullptr;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    const NTSTATUS status = validateAttributes(attributes, {.parentAllowed = false});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (!attributes->ContextTypeInfo) {
        return STATUS_WDF_OBJECT_ATTRIBUTES_INVALID;
    }
    return object.addContext(attributes, context);
}

// learn.microsoft.com: WdfObjectContextGetObject
WDFOBJECT contextGetObject(PWDF_DRIVER_GLOBALS globals, PVOID context) {
    const Call call{"WdfObjectContextGetObject", SIM_CALL_SITE};
    call.client(globals);
    call.pointer(context, "ContextPointer");
    Object *object = objectFromContext(context);
    if (!object) {
        call.violation("framework pointer",
                       hex(reinterpret_cast<std::uintptr_t>(context)) + " is not the context of a live object");
    }
    return object->handle();
}

// learn.microsoft.com: WdfObjectDelete
VOID deleteObject(PWDF_DRIVER_GLOBALS globals, WDFOBJECT handle) {
    const Call call{"WdfObjectDelete", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Object &object = call.anyObject(handle);
    if (const char *refusal = object.deletionRefusal()) {
        call.violation("framework object", refusal);
    }
    object.remove();
}

// learn.microsoft.com: WdfObjectReferenceActual
VOID referenceObject(PWDF_DRIVER_GLOBALS globals, WDFOBJECT handle, PVOID, LONG, PCHAR) {
    const Call call{"WdfObjectReferenceActual", SIM_CALL_SITE};
    call.client(globals);
    call.anyObject(handle).reference();
}

// learn.microsoft.com: WdfObjectDereferenceActual
VOID dereferenceObject(PWDF_DRIVER_GLOBALS globals, WDFOBJECT handle, PVOID, LONG, PCHAR) {
    const Call call{"WdfObjectDereferenceActual", SIM_CALL_SITE};
    call.client(globals);
    call.anyObject(handle).dereference(call.routine, call.site);
}

} // namespace

void installObjectRoutines(FunctionTable &table) {
    table.set(WdfObjectGetTypedContextWorkerTableIndex, PFN_WDFOBJECTGETTYPEDCONTEXTWORKER(getTypedContext));
    table.set(WdfObjectAllocateContextTableIndex, PFN_WDFOBJECTALLOCATECONTEXT(allocateContext));
    table.set(WdfObjectContextGetObjectTableIndex, PFN_WDFOBJECTCONTEXTGETOBJECT(contextGetObject));
    table.set(WdfObjectDeleteTableIndex, PFN_WDFOBJECTDELETE(deleteObject));
    table.set(WdfObjectReferenceActualTableIndex, PFN_WDFOBJECTREFERENCEACTUAL(referenceObject));
    table.set(WdfObjectDereferenceActualTableIndex, PFN_WDFOBJECTDEREFERENCEACTUAL(dereferenceObject));
}

} // namespace sim::framework
