#include "registry_key.h"

#include "collection.h"
#include "string.h"
#include "table.h"

#include <cstring>

namespace sim::framework {

namespace {

NTSTATUS writeValue(const RegistryKey &key, PCUNICODE_STRING name, ULONG type, std::vector<std::uint8_t> data) {
    NTSTATUS status = validateString(name);
    if (NT_SUCCESS(status)) {
        status = key.check(KEY_SET_VALUE);
    }
    if (NT_SUCCESS(status)) {
        kernel().registry.setValue(key.path(), toText(name), type, std::move(data));
    }
    return status;
}

std::vector<std::uint8_t> toBytes(const std::u16string &text) {
    std::vector<std::uint8_t> bytes(text.size() * sizeof(WCHAR));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

// learn.microsoft.com: WdfRegistryAssignMultiString; framework source: an empty collection writes two NULs
NTSTATUS assignMultiString(PWDF_DRIVER_GLOBALS globals, WDFKEY keyHandle, PCUNICODE_STRING name,
                           WDFCOLLECTION collectionHandle) {
    const Call call{"WdfRegistryAssignMultiString", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(keyHandle);
    call.pointer(name, "ValueName");
    Collection &collection = call.object<Collection>(collectionHandle);
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    std::u16string list;
    for (std::size_t index = 0; index < collection.count(); ++index) {
        Object *item = collection.item(index);
        if (item->type != ObjectType::string) {
            return STATUS_INVALID_PARAMETER;
        }
        list += static_cast<String *>(item)->text();
        list.push_back(u'\0');
    }
    if (list.empty()) {
        list.push_back(u'\0');
    }
    list.push_back(u'\0');
    return writeValue(key, name, REG_MULTI_SZ, toBytes(list));
}

// learn.microsoft.com: WdfRegistryAssignULong
NTSTATUS assignULong(PWDF_DRIVER_GLOBALS globals, WDFKEY keyHandle, PCUNICODE_STRING name, ULONG number) {
    const Call call{"WdfRegistryAssignULong", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(keyHandle);
    call.pointer(name, "ValueName");
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    std::vector<std::uint8_t> bytes(sizeof(number));
    std::memcpy(bytes.data(), &number, sizeof(number));
    return writeValue(key, name, REG_DWORD, std::move(bytes));
}

} // namespace

void installRegistryAssignRoutines(FunctionTable &table) {
    table.set(WdfRegistryAssignMultiStringTableIndex, PFN_WDFREGISTRYASSIGNMULTISTRING(assignMultiString));
    table.set(WdfRegistryAssignULongTableIndex, PFN_WDFREGISTRYASSIGNULONG(assignULong));
}

} // namespace sim::framework
