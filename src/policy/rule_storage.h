#pragma once

#include <ntifs.h>

#include "policy/rule_set.h"

/// The administrator's rules for USB devices. The registry is the only source of truth: reload before each decision.
/// Operations take the lock themselves unless they say otherwise. PASSIVE_LEVEL.
class RuleStorage {
  public:
    void initializeRules();
    void initializeLock() { ExInitializeResourceLite(&lock_); }
    void clearRules();
    void deleteLock() { ExDeleteResourceLite(&lock_); }

    /// Empties the sets and reads them again. Logs what fails; the sets then hold what could be read.
    NTSTATUS reload();

    /// Whether one of the compatible ids, without its bus name, equals a blocked rule (ignoring case) or matches one as
    /// a pattern (case as written, and rules are upper case).
    bool isFilterable(const UNICODE_STRING &compatibleIds);

    /// Whether one of the hardware ids with this serial matches an allowed (read-only) rule. Logs the answer.
    bool isAllowed(const UNICODE_STRING &hardwareIds, const UNICODE_STRING &serial);
    bool isReadOnly(const UNICODE_STRING &hardwareIds, const UNICODE_STRING &serial);

    /// Whether the read-only set is one rule that begins with "*": whatever is not listed is read-only.
    bool isReadOnlyUnlisted();

  private:
    /// Whether "id without bus name\serial" of one of the hardware ids matches a rule of the set, ignoring case. False
    /// when memory runs out. The caller holds the lock.
    static bool matchWithSerial(const UNICODE_STRING &hardwareIds, const UNICODE_STRING &serial, RuleSet &rules);

    RuleSet allowed_;
    RuleSet blocked_;
    RuleSet readOnly_;
    ERESOURCE lock_;
};

/// The rules for Thunderbolt disks: the same values, matched against device ids without a serial. Operations take the
/// lock themselves. PASSIVE_LEVEL.
class ThunderboltRuleStorage {
  public:
    void initializeRules();
    void initializeLock() { ExInitializeResourceLite(&lock_); }
    void clearRules();
    void deleteLock() { ExDeleteResourceLite(&lock_); }

    /// Empties the sets and reads them again. Logs what fails; the sets then hold what could be read.
    NTSTATUS reload();

    /// Whether one of the hardware ids matches an allowed (read-only) rule, ignoring case. Logs the answer.
    bool isAllowed(const UNICODE_STRING &hardwareIds);
    bool isReadOnly(const UNICODE_STRING &hardwareIds);

  private:
    static bool matchWithoutSerial(const UNICODE_STRING &hardwareIds, RuleSet &rules);

    ERESOURCE lock_;
    RuleSet allowed_;
    RuleSet blocked_;
    RuleSet readOnly_;
};
