#include "registry_key.h"

#include "collection.h"
#include "driver.h"
#include "memory.h"
#include "string.h"
#include "table.h"

#include <algorithm>
#include <cstring>

namespace sim::framework {

namespace {

/// Reads one value through an open key. STATUS_OBJECT_NAME_NOT_FOUND when it is absent.
NTSTATUS readValue(const RegistryKey &key, PCUNICODE_STRING name, RegistryValue &value) {
    NTSTATUS status = validateString(name);
    if (NT_SUCCESS(status)) {
        status = key.check(KEY_QUERY_VALUE);
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const std::u16string text = toText(name);
    const std::optional<RegistryValue> found = kernel().registry.value(key.path(), text);
    status = found ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
    if (kernel().trace.active()) {
        TraceEvent event;
        event.kind = TraceEvent::Kind::registryValueRead;
        event.text = text;
        event.status = status;
        kernel().trace.emit(event);
    }
    if (found) {
        value = *found;
    }
    return status;
}

// Framework source: the type is looked at before the data; the list must end in two NULs.
NTSTATUS validateMultiString(const RegistryValue &value) {
    if (value.type != REG_MULTI_SZ) {
        return STATUS_OBJECT_TYPE_MISMATCH;
    }
    const std::size_t bytes = value.data.size();
    if (bytes == 0) {
        return STATUS_RESOURCE_DATA_NOT_FOUND;
    }
    constexpr std::size_t twoCharacters = 2 * sizeof(WCHAR);
    const bool terminated = bytes >= twoCharacters && bytes % 2 == 0 &&
                            std::memcmp(value.data.data() + bytes - twoCharacters, "\0\0\0\0", twoCharacters) == 0;
    return terminated ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

// A string object is made of each as of terminated text, and counts in 16 bits: longer text is cut (inferred).
constexpr std::size_t longestString = 0xFFFC / sizeof(WCHAR);

std::vector<std::u16string> splitMultiString(const std::vector<std::uint8_t> &data) {
    std::u16string text(data.size() / sizeof(WCHAR), u'\0');
    std::memcpy(text.data(), data.data(), data.size());
    std::vector<std::u16string> strings;
    for (std::size_t begin = 0; text[begin] != u'\0';) {
        const std::size_t end = text.find(u'\0', begin);
        strings.push_back(text.substr(begin, std::min(end - begin, longestString)));
        begin = end + 1;
    }
    return strings;
}

// learn.microsoft.com: WdfRegistryQueryMultiString; framework source: what was added before a failure is removed again
NTSTATUS queryMultiString(PWDF_DRIVER_GLOBALS globals, WDFKEY keyHandle, PCUNICODE_STRING name,
                          PWDF_OBJECT_ATTRIBUTES attributes, WDFCOLLECTION collectionHandle) {
    const Call call{"WdfRegistryQueryMultiString", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(keyHandle);
    call.pointer(name, "ValueName");
    Collection &collection = call.object<Collection>(collectionHandle);
    NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    RegistryValue value;
    status = readValue(key, name, value);
    if (NT_SUCCESS(status)) {
        status = validateMultiString(value);
    }
    if (!NT_SUCCESS(status)) {
        return status;
    }
    Object &parent = call.parent(attributes, call.driver(client));
    const std::size_t before = collection.count();
    for (const std::u16string &text : splitMultiString(value.data)) {
        auto *string = new String(client, text, false, call.site);
        status = call.publish<WDFSTRING>(*string, attributes, parent, nullptr);
        if (!NT_SUCCESS(status)) {
            collection.clearFrom(before);
            return status;
        }
        collection.add(*string);
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfRegistryQueryMemory
NTSTATUS queryMemory(PWDF_DRIVER_GLOBALS globals, WDFKEY keyHandle, PCUNICODE_STRING name, POOL_TYPE poolType,
                     PWDF_OBJECT_ATTRIBUTES attributes, WDFMEMORY *handle, PULONG valueType) {
    const Call call{"WdfRegistryQueryMemory", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(keyHandle);
    call.pointer(name, "ValueName");
    call.pointer(handle, "Memory");
    *handle = nullptr;
    NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    RegistryValue value;
    status = readValue(key, name, value);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (value.data.empty()) {
        return STATUS_RESOURCE_DATA_NOT_FOUND;
    }
    status = createFilledMemory(call, client, value.data, poolType, attributes, handle);
    if (NT_SUCCESS(status) && valueType) {
        *valueType = value.type;
    }
    return status;
}

// learn.microsoft.com: WdfRegistryQueryValue; framework source: type and length are told also when the data does not
// fit
NTSTATUS queryValue(PWDF_DRIVER_GLOBALS globals, WDFKEY keyHandle, PCUNICODE_STRING name, ULONG length, PVOID buffer,
                    PULONG valueLength, PULONG valueType) {
    const Call call{"WdfRegistryQueryValue", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(keyHandle);
    call.pointer(name, "ValueName");
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    RegistryValue value;
    const NTSTATUS status = readValue(key, name, value);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (valueLength) {
        *valueLength = static_cast<ULONG>(value.data.size());
    }
    if (valueType) {
        *valueType = value.type;
    }
    if (value.data.size() > length) {
        return STATUS_BUFFER_OVERFLOW;
    }
    if (buffer && !value.data.empty()) {
        std::memcpy(buffer, value.data.data(), value.data.size());
    }
    return STATUS_SUCCESS;
}

// learn.microsoft.com: WdfRegistryQueryULong
NTSTATUS queryULong(PWDF_DRIVER_GLOBALS globals, WDFKEY keyHandle, PCUNICODE_STRING name, PULONG number) {
    const Call call{"WdfRegistryQueryULong", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(keyHandle);
    call.pointer(name, "ValueName");
    call.pointer(number, "Value");
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    RegistryValue value;
    const NTSTATUS status = readValue(key, name, value);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (value.type != REG_DWORD || value.data.size() != sizeof(ULONG)) {
        return STATUS_OBJECT_TYPE_MISMATCH;
    }
    std::memcpy(number, value.data.data(), sizeof(ULONG));
    return STATUS_SUCCESS;
}

using QueryULong = NTSTATUS (*)(PWDF_DRIVER_GLOBALS, WDFKEY, PCUNICODE_STRING, PULONG);

} // namespace

void installRegistryQueryRoutines(FunctionTable &table) {
    table.set(WdfRegistryQueryMultiStringTableIndex, PFN_WDFREGISTRYQUERYMULTISTRING(queryMultiString));
    table.set(WdfRegistryQueryMemoryTableIndex, PFN_WDFREGISTRYQUERYMEMORY(queryMemory));
    table.set(WdfRegistryQueryValueTableIndex, PFN_WDFREGISTRYQUERYVALUE(queryValue));
    table.set(WdfRegistryQueryULongTableIndex, static_cast<QueryULong>(queryULong));
}

} // namespace sim::framework
