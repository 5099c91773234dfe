// Fast failure of a natively built driver. learn.microsoft.com: "__fastfail" (bug check 0x139).

#include "violation.h"

#include <ntifs.h>

extern "C" void platformFailFast(unsigned code) {
    const char *meaning = "";
    switch (code) {
    case FAST_FAIL_STACK_COOKIE_CHECK_FAILURE:
        meaning = " (stack cookie)";
        break;
    case FAST_FAIL_CORRUPT_LIST_ENTRY:
        meaning = " (corrupt list entry)";
        break;
    case FAST_FAIL_RANGE_CHECK_FAILURE:
        meaning = " (range check)";
        break;
    default:
        break;
    }
    sim::bugCheck("fast fail", "RtlFailFast", "code " + std::to_string(code) + meaning + ", bug check 0x139",
                  SIM_CALL_SITE);
}
