#include "security_cookie.h"

#include <nt/fail.h>

namespace {

// The value that the loader recognises and replaces.
constexpr ULONG_PTR defaultCookie = 0x00002B992DDFA232;

} // namespace

ULONG_PTR __security_cookie = defaultCookie;

__attribute__((no_stack_protector)) VOID __security_check_cookie(ULONG_PTR cookie) {
    if (cookie != __security_cookie) {
        RtlFailFast(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE);
    }
}

__attribute__((no_stack_protector)) VOID requireSeededSecurityCookie() {
    // Read as the loader left it: the compiler knows only the initial value.
    const ULONG_PTR cookie = *const_cast<volatile ULONG_PTR *>(&__security_cookie);
    if (cookie == 0 || cookie == defaultCookie) {
        RtlFailFast(FAST_FAIL_GS_COOKIE_INIT);
    }
}

// The compiler asks for this marker in an image that uses floating-point registers.
extern "C" int _fltused;
int _fltused = 1;
