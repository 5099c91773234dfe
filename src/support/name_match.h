#pragma once

#include <ntifs.h>

/// ignoreCase upcases the name only: the expression must be upper case to match letters at all.
enum class CaseRule { asWritten, ignoreCase };

/// Whether the whole name matches the expression (* ? and the DOS wildcards < > "). Not enough memory for the match
/// counts as no match. PASSIVE_LEVEL.
bool matchesExpression(const UNICODE_STRING &expression, const UNICODE_STRING &name, CaseRule rule);
