// The stack cookie of the image.
#pragma once

#include <ntdef.h>

#ifdef _WIN32

extern "C" {
// Seeded by the loader, which finds it through the load configuration.
extern ULONG_PTR __security_cookie;

/// Called by every protected function before it returns. Any IRQL.
VOID __security_check_cookie(ULONG_PTR cookie);
}

/// Fast-fails with code 6 when the loader left the cookie at its default, as an image for Windows 8 or later must.
VOID requireSeededSecurityCookie();

#else

// A native build has its own compiler's stack protection.
inline VOID requireSeededSecurityCookie() {}

#endif
