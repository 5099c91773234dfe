#include "policy/registry_rules.h"

#include "log/log.h"

namespace {

/// A text that may be longer than a UNICODE_STRING can count.
struct LongText {
    const WCHAR *characters = nullptr;
    size_t count = 0;
};

/// Whether the value is a REG_MULTI_SZ of a single NUL, which is how editors store an empty list. The framework
/// answers a type mismatch for it.
bool isLoneNulMultiString(const UNICODE_STRING &valueName, WDFKEY key) {
    WCHAR character = L'x';
    ULONG bytes = 0;
    ULONG type = REG_NONE;
    const NTSTATUS status = WdfRegistryQueryValue(key, &valueName, sizeof(character), &character, &bytes, &type);
    return NT_SUCCESS(status) && type == REG_MULTI_SZ && bytes == sizeof(character) && character == L'\0';
}

/// Whether the value is a REG_SZ without any data. The framework can't hand out an empty memory object for it.
bool isEmptyString(const UNICODE_STRING &valueName, WDFKEY key) {
    ULONG bytes = 0;
    ULONG type = REG_NONE;
    const NTSTATUS status = WdfRegistryQueryValue(key, &valueName, 0, nullptr, &bytes, &type);
    return NT_SUCCESS(status) && type == REG_SZ && bytes == 0;
}

NTSTATUS queryMultiString(const UNICODE_STRING &valueName, WDFKEY key, WDFCOLLECTION strings) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = strings;
    const NTSTATUS status = WdfRegistryQueryMultiString(key, &valueName, &attributes, strings);
    // A list without strings is no failure here, whichever way it is stored.
    if (status == STATUS_RESOURCE_DATA_NOT_FOUND ||
        (status == STATUS_OBJECT_TYPE_MISMATCH && isLoneNulMultiString(valueName, key))) {
        return STATUS_SUCCESS;
    }
    return status;
}

NTSTATUS putRule(const UNICODE_STRING &rule, RuleSet &rules, bool appendWildcard) {
    const NTSTATUS status = rules.putIdToContainerWithSerial(rule, appendWildcard);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"forEachStringCallFunc failed callback, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS putPiece(const LongText &piece, RuleSet &rules, bool appendWildcard) {
    if (piece.count * sizeof(WCHAR) >= 0x10000) {
        LOG_ERROR(L"Max rule size more then USHRT_MAX. The rule will be skipped");
        return STATUS_SUCCESS;
    }
    // Cut at the first NUL, so that the one that ends the stored text is no part of a rule.
    const UNICODE_STRING rule = fieldText(piece.characters, static_cast<USHORT>(piece.count));
    return rule.Length == 0 ? STATUS_SUCCESS : putRule(rule, rules, appendWildcard);
}

/// Splits at blanks only; tabs and commas belong to a rule.
NTSTATUS putPieces(const LongText &text, RuleSet &rules, bool appendWildcard) {
    size_t start = 0;
    for (size_t index = 0; index <= text.count; ++index) {
        if (index < text.count && text.characters[index] != L' ') {
            continue;
        }
        const NTSTATUS status = putPiece({text.characters + start, index - start}, rules, appendWildcard);
        if (!NT_SUCCESS(status)) {
            return status;
        }
        start = index + 1;
    }
    return STATUS_SUCCESS;
}

/// The text of a REG_SZ value, owned by the key.
NTSTATUS queryText(const UNICODE_STRING &valueName, WDFKEY key, LongText &text) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = key;
    WDFMEMORY memory = nullptr;
    ULONG type = REG_NONE;
    const NTSTATUS status = WdfRegistryQueryMemory(key, &valueName, PagedPool, &attributes, &memory, &type);
    if (status == STATUS_RESOURCE_DATA_NOT_FOUND && isEmptyString(valueName, key)) {
        return STATUS_SUCCESS;
    }
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to wdf query memory, status = 0x", hex(status));
        return status;
    }
    if (type != REG_SZ) {
        LOG_ERROR(L"Invalid parameter when wdf query memory");
        return STATUS_INVALID_PARAMETER;
    }
    size_t bytes = 0;
    text.characters = static_cast<const WCHAR *>(WdfMemoryGetBuffer(memory, &bytes));
    text.count = bytes / sizeof(WCHAR);
    return STATUS_SUCCESS;
}

} // namespace

NTSTATUS queryMultiStringKey(const UNICODE_STRING &valueName, WDFKEY key, RuleSet &rules) {
    LOG_INFO(L"Query multistring key, parameter = ", valueName);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = key;
    WDFCOLLECTION strings = nullptr;
    NTSTATUS status = WdfCollectionCreate(&attributes, &strings);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to create a collection, status = 0x", hex(status));
        return status;
    }
    status = queryMultiString(valueName, key, strings);
    if (status == STATUS_OBJECT_TYPE_MISMATCH) {
        LOG_INFO(L"Value type in registry is not multistring");
        return status;
    }
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to query multistring, status = 0x", hex(status));
        return status;
    }
    const ULONG count = WdfCollectionGetCount(strings);
    for (ULONG index = 0; index < count; ++index) {
        UNICODE_STRING rule{};
        WdfStringGetUnicodeString(static_cast<WDFSTRING>(WdfCollectionGetItem(strings, index)), &rule);
        status = putRule(rule, rules, true);
        if (!NT_SUCCESS(status)) {
            return status;
        }
    }
    return STATUS_SUCCESS;
}

NTSTATUS queryStringKey(const UNICODE_STRING &valueName, WDFKEY key, RuleSet &rules, const UNICODE_STRING &defaultRules,
                        bool appendWildcard) {
    LOG_INFO(L"Query string key, parameter = ", valueName);
    LongText text;
    const NTSTATUS status = queryText(valueName, key, text);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    // Only a value without a single character is empty; one that holds just its NUL has no rules and no default.
    if (text.count == 0 && defaultRules.Length > 0) {
        LOG_INFO(L"Rules in registry is empty, use default value = ", defaultRules);
        text = {defaultRules.Buffer, characterCount(defaultRules)};
    }
    return putPieces(text, rules, appendWildcard);
}
