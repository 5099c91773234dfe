#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "policy/rule_set.h"

/// Reads a REG_MULTI_SZ value of the open Parameters key and puts each string into `rules`, with the serial wildcard.
/// A list without strings is success. What fails is logged and returned; rules added before it stay. PASSIVE_LEVEL.
NTSTATUS queryMultiStringKey(const UNICODE_STRING &valueName, WDFKEY key, RuleSet &rules);

/// Reads a REG_SZ value whose rules are separated by spaces. A value without any data takes `defaultRules` instead.
/// Pieces over 65,535 bytes are skipped. What fails is logged and returned; rules added before it stay. PASSIVE_LEVEL.
NTSTATUS queryStringKey(const UNICODE_STRING &valueName, WDFKEY key, RuleSet &rules, const UNICODE_STRING &defaultRules,
                        bool appendWildcard);
