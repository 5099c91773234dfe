#include "install/registry_updater.h"

#include <wdf.h>

#include "install/class_filters.h"
#include "log/log.h"
#include "support/framework_guards.h"

namespace {

constexpr UNICODE_STRING serviceName = literal(L"TarvenholtMyrtelhavenDriver");
constexpr UNICODE_STRING serviceKeyPath =
    literal(L"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver");
constexpr ULONG notFound = 0xFFFFFFFF;

/// What is done to a list, given where the driver's name stands in it.
using EditList = NTSTATUS (*)(WDFCOLLECTION list, ULONG index);

WDF_OBJECT_ATTRIBUTES childOf(WDFOBJECT parent) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    return attributes;
}

NTSTATUS appendName(WDFCOLLECTION list, ULONG index) {
    if (index != notFound) {
        return STATUS_SUCCESS;
    }
    WDF_OBJECT_ATTRIBUTES attributes = childOf(list);
    WDFSTRING name = nullptr;
    NTSTATUS status = WdfStringCreate(&serviceName, &attributes, &name);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create wdf string, status = 0x", hex(status));
        return status;
    }
    status = WdfCollectionAdd(list, name);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to add wdf collection, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS removeName(WDFCOLLECTION list, ULONG index) {
    if (index != notFound) {
        WdfCollectionRemoveItem(list, index);
    }
    return STATUS_SUCCESS;
}

ULONG findName(WDFCOLLECTION list) {
    const ULONG count = WdfCollectionGetCount(list);
    for (ULONG index = 0; index < count; ++index) {
        UNICODE_STRING name{};
        WdfStringGetUnicodeString(static_cast<WDFSTRING>(WdfCollectionGetItem(list, index)), &name);
        if (equalIgnoringCase(name, serviceName)) {
            return index;
        }
    }
    return notFound;
}

NTSTATUS editList(WDFKEY key, const UNICODE_STRING &valueName, EditList edit) {
    WDF_OBJECT_ATTRIBUTES attributes = childOf(key);
    WDFCOLLECTION list = nullptr;
    NTSTATUS status = WdfCollectionCreate(&attributes, &list);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to create collection, status = 0x", hex(status));
        return status;
    }
    status = WdfRegistryQueryMultiString(key, &valueName, &attributes, list);
    if (status != STATUS_OBJECT_NAME_NOT_FOUND && !NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to query multistring, status = 0x", hex(status));
        return status;
    }
    status = edit(list, findName(list));
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to call callback, status = 0x", hex(status));
        return status;
    }
    status = WdfRegistryAssignMultiString(key, &valueName, list);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to assign the collection, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS doRegistryMultiString(const UNICODE_STRING &keyPath, const UNICODE_STRING &valueName, EditList edit) {
    LOG_INFO(L"RegistryUpdater doRegistryMultiString, name = ", valueName, L", value = ", serviceName, L", path = ",
             keyPath);
    RegistryKey key;
    const NTSTATUS status = WdfRegistryCreateKey(nullptr, &keyPath, KEY_READ | KEY_WRITE, REG_OPTION_NON_VOLATILE,
                                                 nullptr, WDF_NO_OBJECT_ATTRIBUTES, key.receive());
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to create multistring in registry, status = 0x", hex(status));
        return status;
    }
    return editList(key.get(), valueName, edit);
}

} // namespace

NTSTATUS addRegistryMultiString(const UNICODE_STRING &keyPath, const UNICODE_STRING &valueName) {
    return doRegistryMultiString(keyPath, valueName, appendName);
}

NTSTATUS removeRegistryMultiString(const UNICODE_STRING &keyPath, const UNICODE_STRING &valueName) {
    return doRegistryMultiString(keyPath, valueName, removeName);
}

void addClassFilters() {
    for (const ClassFilter &filter : classFilters) {
        LOG_INFO(L"RegistryUpdater addRegistryMultiString, name = ", filter.valueName, L", value = ", serviceName,
                 L", path = ", filter.keyPath);
        (void)addRegistryMultiString(filter.keyPath, filter.valueName);
    }
}

void removeClassFilters() {
    for (const ClassFilter &filter : classFilters) {
        LOG_INFO(L"RegistryUpdater removeRegistryMultiString, name = ", filter.valueName, L", value = ", serviceName,
                 L", path = ", filter.keyPath);
        (void)removeRegistryMultiString(filter.keyPath, filter.valueName);
    }
}

NTSTATUS setDriverStartType(StartType type) {
    LOG_INFO(L"RegistryUpdater setDriverStartType, type = ", decimal(static_cast<ULONG>(type)), L", path = ",
             serviceKeyPath);
    RegistryKey key;
    NTSTATUS status = WdfRegistryOpenKey(nullptr, &serviceKeyPath, KEY_WRITE, WDF_NO_OBJECT_ATTRIBUTES, key.receive());
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to open registry key, status = 0x", hex(status), L", path = ",
                  serviceKeyPath);
        return status;
    }
    const UNICODE_STRING valueName = literal(L"Start");
    status = WdfRegistryAssignULong(key.get(), &valueName, static_cast<ULONG>(type));
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"RegistryUpdater failed to assign ulong value to registry key, status = 0x", hex(status));
    }
    return status;
}
