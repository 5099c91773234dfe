#include "fail_fast.h"

#include "violation.h"

#include <ntifs.h>

// learn.microsoft.com: "__fastfail" (bug check 0x139)
void sim::failFast(unsigned code, const void *callSite) {
    const char *meaning = "";
    switch (code) {
    case FAST_FAIL_STACK_COOKIE_CHECK_FAILURE:
        meaning = " (stack cookie)";
        break;
    case FAST_FAIL_CORRUPT_LIST_ENTRY:
        meaning = " (corrupt list entry)";
        break;
    case FAST_FAIL_GS_COOKIE_INIT:
        meaning = " (stack cookie not seeded)";
        break;
    case FAST_FAIL_RANGE_CHECK_FAILURE:
        meaning = " (range check)";
        break;
    default:
        break;
    }
    sim::bugCheck("fast fail", "RtlFailFast", "code " + std::to_string(code) + meaning + ", bug check 0x139", callSite);
}

// What a natively built driver calls in place of the instruction.
extern "C" void platformFailFast(unsigned code) {
    sim::failFast(code, SIM_CALL_SITE);
}
