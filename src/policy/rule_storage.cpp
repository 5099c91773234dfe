#include "policy/rule_storage.h"

#include "device/identifiers.h"
#include "log/log.h"
#include "policy/rule_loader.h"
#include "support/locks.h"
#include "support/name_match.h"

namespace {

constexpr UNICODE_STRING defaultBlockedRules =
    literal(L"Class_e0 Class_ff Class_0b Class_06 Class_08 MS_COMP_MTP MS_COMP_PTP");

bool matchesAnyRule(RuleSet &rules, const UNICODE_STRING &id, CaseRule rule) {
    return rules.anyRule([&](const UNICODE_STRING &text) { return matchesExpression(text, id, rule); });
}

/// "id\serial", as rules for hardware ids are matched. Logs what fails.
NTSTATUS makeFullId(const UNICODE_STRING &id, const UNICODE_STRING &serial, KString &fullId) {
    NTSTATUS status = fullId.copyFrom(id);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to init fullId, status = 0x", hex(status));
        return status;
    }
    status = fullId.append(literal(L"\\"));
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to append fullId, status = 0x", hex(status));
        return status;
    }
    status = fullId.append(serial);
    if (!NT_SUCCESS(status)) {
        LOG_ERROR(L"Failed to append serial to fullId, status = 0x", hex(status));
    }
    return status;
}

} // namespace

void RuleStorage::initializeRules() {
    allowed_.initialize();
    blocked_.initialize();
    readOnly_.initialize();
}

void RuleStorage::clearRules() {
    readOnly_.clear();
    blocked_.clear();
    allowed_.clear();
}

NTSTATUS RuleStorage::reload() {
    return reloadRules(lock_, {allowed_, blocked_, readOnly_, defaultBlockedRules, true});
}

bool RuleStorage::isFilterable(const UNICODE_STRING &compatibleIds) {
    SharedLock hold(lock_);
    return anyOfMultiSz(compatibleIds, [this](const UNICODE_STRING &compatibleId) {
        const UNICODE_STRING id = idWithoutBus(compatibleId);
        // The lookup ignores case, the patterns don't; kept so on purpose.
        return blocked_.find(id) != nullptr || matchesAnyRule(blocked_, id, CaseRule::asWritten);
    });
}

bool RuleStorage::matchWithSerial(const UNICODE_STRING &hardwareIds, const UNICODE_STRING &serial, RuleSet &rules) {
    bool matched = false;
    // Ends with the first match, or with the first id for which memory runs out.
    (void)anyOfMultiSz(hardwareIds, [&](const UNICODE_STRING &hardwareId) {
        KString fullId;
        if (!NT_SUCCESS(makeFullId(idWithoutBus(hardwareId), serial, fullId))) {
            return true;
        }
        matched = matchesAnyRule(rules, fullId, CaseRule::ignoreCase);
        return matched;
    });
    return matched;
}

bool RuleStorage::isAllowed(const UNICODE_STRING &hardwareIds, const UNICODE_STRING &serial) {
    SharedLock hold(lock_);
    const bool result = matchWithSerial(hardwareIds, serial, allowed_);
    LOG_INFO(L"Check request isAllowed, hardwareIds = ", hardwareIds, L", serial = ", serial, L", result = ",
             flag(result));
    return result;
}

bool RuleStorage::isReadOnly(const UNICODE_STRING &hardwareIds, const UNICODE_STRING &serial) {
    SharedLock hold(lock_);
    const bool result = matchWithSerial(hardwareIds, serial, readOnly_);
    LOG_INFO(L"Check request isReadOnly, hardwareIds = ", hardwareIds, L", serial = ", serial, L", result = ",
             flag(result));
    return result;
}

bool RuleStorage::isReadOnlyUnlisted() {
    SharedLock hold(lock_);
    return readOnly_.count() == 1 &&
           readOnly_.anyRule([](const UNICODE_STRING &rule) { return rule.Length > 0 && rule.Buffer[0] == L'*'; });
}

void ThunderboltRuleStorage::initializeRules() {
    allowed_.initialize();
    blocked_.initialize();
    readOnly_.initialize();
}

void ThunderboltRuleStorage::clearRules() {
    readOnly_.clear();
    blocked_.clear();
    allowed_.clear();
}

NTSTATUS ThunderboltRuleStorage::reload() {
    return reloadRules(lock_, {allowed_, blocked_, readOnly_, UNICODE_STRING{}, false});
}

bool ThunderboltRuleStorage::matchWithoutSerial(const UNICODE_STRING &hardwareIds, RuleSet &rules) {
    bool matched = false;
    (void)anyOfMultiSz(hardwareIds, [&](const UNICODE_STRING &hardwareId) {
        KString id;
        const NTSTATUS status = id.copyFrom(idWithoutBus(hardwareId));
        if (!NT_SUCCESS(status)) {
            LOG_ERROR(L"Failed to init fullId, status = 0x", hex(status));
            return true;
        }
        matched = rules.anyRule([&](const UNICODE_STRING &rule) {
            LOG_INFO(L"Rule=", rule, L" fullId=", id);
            return matchesExpression(rule, id, CaseRule::ignoreCase);
        });
        return matched;
    });
    return matched;
}

bool ThunderboltRuleStorage::isAllowed(const UNICODE_STRING &hardwareIds) {
    SharedLock hold(lock_);
    const bool result = matchWithoutSerial(hardwareIds, allowed_);
    LOG_INFO(L"Check request isAllowed, hardwareIds = ", hardwareIds, L", result = ", flag(result));
    return result;
}

bool ThunderboltRuleStorage::isReadOnly(const UNICODE_STRING &hardwareIds) {
    SharedLock hold(lock_);
    const bool result = matchWithoutSerial(hardwareIds, readOnly_);
    LOG_INFO(L"Check request isReadOnly, hardwareIds = ", hardwareIds, L", result = ", flag(result));
    return result;
}
