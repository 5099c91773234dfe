#include "string.h"

#include "call.h"
#include "driver.h"
#include "table.h"

namespace sim::framework {

UNICODE_STRING String::counted() {
    if (empty_) {
        return {};
    }
    const auto bytes = static_cast<USHORT>(text_.size() * sizeof(WCHAR));
    return {bytes, static_cast<USHORT>(bytes + sizeof(WCHAR)), reinterpret_cast<PWCH>(text_.data())};
}

namespace {

constexpr USHORT longestText = 0xFFFE - sizeof(WCHAR);

// learn.microsoft.com: WdfStringCreate
NTSTATUS stringCreate(PWDF_DRIVER_GLOBALS globals, PCUNICODE_STRING text, PWDF_OBJECT_ATTRIBUTES attributes,
                      WDFSTRING *handle) {
    const Call call{"WdfStringCreate", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    call.pointer(handle, "String");
    *handle = nullptr;
    NTSTATUS status = text ? validateString(text) : STATUS_SUCCESS;
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (text && text->Length > longestText) {
        return STATUS_INTEGER_OVERFLOW;
    }
    status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *string = new String(client, text ? toText(text) : std::u16string(), !text, call.site);
    return call.publish(*string, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfStringGetUnicodeString
VOID stringGetUnicodeString(PWDF_DRIVER_GLOBALS globals, WDFSTRING handle, PUNICODE_STRING result) {
    const Call call{"WdfStringGetUnicodeString", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    String &string = call.object<String>(handle);
    call.pointer(result, "UnicodeString");
    *result = string.counted();
}

} // namespace

void installStringRoutines(FunctionTable &table) {
    table.set(WdfStringCreateTableIndex, PFN_WDFSTRINGCREATE(stringCreate));
    table.set(WdfStringGetUnicodeStringTableIndex, PFN_WDFSTRINGGETUNICODESTRING(stringGetUnicodeString));
}

} // namespace sim::framework
