#pragma once

#include <ntifs.h>

namespace sim {

/// FsRtlIsNameInExpression, called from `callSite`. What the real routine raises is thrown as
/// PlatformStructuredException.
BOOLEAN isNameInExpression(PUNICODE_STRING expression, PUNICODE_STRING name, BOOLEAN ignoreCase, PWCH upcaseTable,
                           const void *callSite);

} // namespace sim
