#include "policy/rule_set.h"

#include "log/log.h"
#include "support/pool_memory.h"

namespace {

RTL_GENERIC_COMPARE_RESULTS NTAPI compareRules(PRTL_AVL_TABLE, PVOID first, PVOID second) {
    const UNICODE_STRING &a = static_cast<RuleEntry *>(first)->key;
    const UNICODE_STRING &b = static_cast<RuleEntry *>(second)->key;
    if (RtlCompareUnicodeString(&a, &b, TRUE) < 0) {
        return GenericLessThan;
    }
    return RtlCompareUnicodeString(&b, &a, TRUE) < 0 ? GenericGreaterThan : GenericEqual;
}

PVOID NTAPI allocateRule(PRTL_AVL_TABLE table, CLONG bytes) {
    if (table->TableContext == nullptr) {
        return nullptr;
    }
    return ExAllocatePool2(*static_cast<POOL_FLAGS *>(table->TableContext), bytes, tableEntryPoolTag);
}

VOID NTAPI freeRule(PRTL_AVL_TABLE, PVOID buffer) {
    // The table passes what allocateRule returned: its links, with the entry behind them.
    reinterpret_cast<RuleEntry *>(static_cast<PRTL_BALANCED_LINKS>(buffer) + 1)->text.release();
    ExFreePoolWithTag(buffer, tableEntryPoolTag);
}

bool holdsBackslash(const UNICODE_STRING &text) {
    for (USHORT index = 0; index < characterCount(text); ++index) {
        if (text.Buffer[index] == L'\\') {
            return true;
        }
    }
    return false;
}

} // namespace

void RuleSet::initialize() {
    poolFlags_ = POOL_FLAG_PAGED;
    RtlInitializeGenericTableAvl(&table_, compareRules, allocateRule, freeRule, &poolFlags_);
}

void RuleSet::clear() {
    for (;;) {
        PVOID restartKey = nullptr; // a fresh start each time: deleting leaves the old one dangling
        PVOID element = RtlEnumerateGenericTableWithoutSplayingAvl(&table_, &restartKey);
        if (element == nullptr) {
            return;
        }
        RtlDeleteElementGenericTableAvl(&table_, element);
    }
}

NTSTATUS RuleSet::putIdToContainerWithSerial(const UNICODE_STRING &rule, bool appendWildcard) {
    LOG_INFO(L"putIdToContainerWithSerial rule = ", rule);
    KString text;
    NTSTATUS status = text.copyFrom(rule);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init fullId, status = 0x", hex(status));
        return status;
    }
    if (appendWildcard && !holdsBackslash(text)) {
        status = text.append(literal(L"\\*"));
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to append path for fullId, status = 0x", hex(status));
            return status;
        }
    }
    if (!text.empty()) {
        status = RtlUpcaseUnicodeString(text.counted(), text.counted(), FALSE);
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to upper case for fullId, status = 0x", hex(status));
            return status;
        }
    }
    status = insert(text);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to put the fullId to container, status = 0x", hex(status));
    }
    return status;
}

NTSTATUS RuleSet::insert(KString &text) {
    RuleEntry entry{text.view(), static_cast<KString &&>(text)};
    BOOLEAN isNew = FALSE;
    auto *element = static_cast<RuleEntry *>(RtlInsertElementGenericTableAvl(&table_, &entry, sizeof(entry), &isNew));
    if (element == nullptr) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    if (isNew) {
        entry.text.forget(); // the table copied the bytes; its element owns the text
    } else {
        element->text = static_cast<KString &&>(entry.text);
        element->key = element->text.view();
    }
    return STATUS_SUCCESS;
}

const RuleEntry *RuleSet::find(const UNICODE_STRING &id) {
    RuleEntry wanted{id, KString{}};
    return static_cast<RuleEntry *>(RtlLookupElementGenericTableAvl(&table_, &wanted));
}

ULONG RuleSet::count() {
    return RtlNumberGenericTableElementsAvl(&table_);
}
