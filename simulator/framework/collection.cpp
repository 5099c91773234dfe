#include "collection.h"

#include "call.h"
#include "driver.h"
#include "table.h"

namespace sim::framework {

void Collection::add(Object &object) {
    object.reference();
    items_.push_back(&object);
}

void Collection::removeAt(std::size_t index) {
    Object *object = items_[index];
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
    object->dereference("WdfCollectionRemoveItem", nullptr);
}

void Collection::clearFrom(std::size_t first) {
    while (items_.size() > first) {
        removeAt(items_.size() - 1);
    }
}

namespace {

// learn.microsoft.com: WdfCollectionCreate
NTSTATUS collectionCreate(PWDF_DRIVER_GLOBALS globals, PWDF_OBJECT_ATTRIBUTES attributes, WDFCOLLECTION *handle) {
    const Call call{"WdfCollectionCreate", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    call.pointer(handle, "Collection");
    *handle = nullptr;
    const NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *collection = new Collection(client, call.site);
    return call.publish(*collection, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfCollectionAdd
NTSTATUS collectionAdd(PWDF_DRIVER_GLOBALS globals, WDFCOLLECTION handle, WDFOBJECT item) {
    const Call call{"WdfCollectionAdd", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Collection &collection = call.object<Collection>(handle);
    Object &object = call.anyObject(item);
    if (const auto failure = call.injectedFailure(STATUS_UNSUCCESSFUL)) {
        return *failure;
    }
    collection.add(object);
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfCollectionGetCount
ULONG collectionGetCount(PWDF_DRIVER_GLOBALS globals, WDFCOLLECTION handle) {
    const Call call{"WdfCollectionGetCount", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    return static_cast<ULONG>(call.object<Collection>(handle).count());
}

// learn.microsoft.com: WdfCollectionGetItem
WDFOBJECT collectionGetItem(PWDF_DRIVER_GLOBALS globals, WDFCOLLECTION handle, ULONG index) {
    const Call call{"WdfCollectionGetItem", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    const Object *object = call.object<Collection>(handle).item(index);
    return object ? object->handle() : nullptr;
}

// learn.microsoft.com: WdfCollectionRemoveItem
VOID collectionRemoveItem(PWDF_DRIVER_GLOBALS globals, WDFCOLLECTION handle, ULONG index) {
    const Call call{"WdfCollectionRemoveItem", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Collection &collection = call.object<Collection>(handle);
    if (index >= collection.count()) {
        call.violation("framework verifier",
                       "index " + std::to_string(index) + " of a collection of " + std::to_string(collection.count()));
    }
    collection.removeAt(index);
}

} // namespace

void installCollectionRoutines(FunctionTable &table) {
    table.set(WdfCollectionCreateTableIndex, PFN_WDFCOLLECTIONCREATE(collectionCreate));
    table.set(WdfCollectionAddTableIndex, PFN_WDFCOLLECTIONADD(collectionAdd));
    table.set(WdfCollectionGetCountTableIndex, PFN_WDFCOLLECTIONGETCOUNT(collectionGetCount));
    table.set(WdfCollectionGetItemTableIndex, PFN_WDFCOLLECTIONGETITEM(collectionGetItem));
    table.set(WdfCollectionRemoveItemTableIndex, PFN_WDFCOLLECTIONREMOVEITEM(collectionRemoveItem));
}

} // namespace sim::framework
