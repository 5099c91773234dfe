#include "support/name_match.h"

#include <excpt.h>

namespace {

/// The only call of the driver that may raise. A function of its own, since the compiler expects exceptions from calls
/// alone.
[[gnu::noinline]] BOOLEAN callMatch(PUNICODE_STRING expression, PUNICODE_STRING name, BOOLEAN ignoreCase) {
    return FsRtlIsNameInExpression(expression, name, ignoreCase, nullptr);
}

} // namespace

bool matchesExpression(const UNICODE_STRING &expression, const UNICODE_STRING &name, CaseRule rule) {
    BOOLEAN matched = FALSE;
    // FsRtlIsNameInExpression raises STATUS_NO_MEMORY instead of returning it.
    __try {
        matched = callMatch(const_cast<PUNICODE_STRING>(&expression), const_cast<PUNICODE_STRING>(&name),
                            rule == CaseRule::ignoreCase);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        matched = FALSE;
    }
    return matched != FALSE;
}
