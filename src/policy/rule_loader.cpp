#include "policy/rule_loader.h"

#include <wdf.h>

#include "log/log.h"
#include "policy/registry_rules.h"
#include "support/framework_guards.h"
#include "support/locks.h"

namespace {

/// Reads one value into its set. A list that is read as REG_MULTI_SZ leaves `status` as it was, on purpose.
void readRules(const UNICODE_STRING &valueName, WDFKEY key, RuleSet &rules, const UNICODE_STRING &defaultRules,
               bool appendWildcard, NTSTATUS &status) {
    if (!NT_SUCCESS(queryMultiStringKey(valueName, key, rules))) {
        status = queryStringKey(valueName, key, rules, defaultRules, appendWildcard);
    }
}

NTSTATUS readAllRules(const RuleSources &sources) {
    RegistryKey key;
    NTSTATUS status =
        WdfDriverOpenParametersRegistryKey(WdfGetDriver(), GENERIC_READ, WDF_NO_OBJECT_ATTRIBUTES, key.receive());
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to open key, status = 0x", hex(status));
        return status;
    }
    readRules(literal(L"BlockedCompatibleIds"), key.get(), sources.blocked, sources.defaultBlocked, false, status);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to read blocked rules key, status = 0x", hex(status));
        return status;
    }
    const UNICODE_STRING noDefault{};
    const bool wildcard = sources.stringsMatchAnySerial;
    readRules(literal(L"AllowedHardwareIds"), key.get(), sources.allowed, noDefault, wildcard, status);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to read allowed rules key, status = 0x", hex(status));
    }
    readRules(literal(L"ReadOnlyHardwareIds"), key.get(), sources.readOnly, noDefault, wildcard, status);
    // Also told when it was the allowed list that failed, on purpose.
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to read readonly rules key, status = 0x", hex(status));
    }
    return status;
}

} // namespace

NTSTATUS reloadRules(ERESOURCE &lock, const RuleSources &sources) {
    ExclusiveLock hold(lock);
    LOG_INFO(L"Release the rule storage resources");
    sources.allowed.clear();
    sources.blocked.clear();
    sources.readOnly.clear();
    return readAllRules(sources);
}
