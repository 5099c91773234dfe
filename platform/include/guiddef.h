// GUIDs. DEFINE_GUID declares; in a file that includes <initguid.h> first it defines.
// The macro part is read again on every inclusion, because <initguid.h> changes it.

#ifndef PLATFORM_GUIDDEF_TYPES
#define PLATFORM_GUIDDEF_TYPES

#include <ntdef.h>

typedef struct _GUID {
    ULONG Data1;
    USHORT Data2;
    USHORT Data3;
    UCHAR Data4[8];
} GUID, *LPGUID;
typedef const GUID *LPCGUID;
#define REFGUID const GUID &

inline bool IsEqualGUID(REFGUID first, REFGUID second) {
    return __builtin_memcmp(&first, &second, sizeof(GUID)) == 0;
}
inline bool operator==(REFGUID first, REFGUID second) {
    return IsEqualGUID(first, second);
}

// A value that several files of an image may define, and that any other file may refer to.
#ifdef _WIN32
#define PLATFORM_SHARED_CONSTANT __declspec(selectany) constexpr
#else
#define PLATFORM_SHARED_CONSTANT [[gnu::used]] inline constexpr
#endif

#endif

#undef DEFINE_GUID
#ifdef INITGUID
#define DEFINE_GUID(name, d1, d2, d3, b0, b1, b2, b3, b4, b5, b6, b7)                                                  \
    EXTERN_C const GUID name;                                                                                          \
    PLATFORM_SHARED_CONSTANT GUID name = {d1, d2, d3, {b0, b1, b2, b3, b4, b5, b6, b7}}
#else
#define DEFINE_GUID(name, d1, d2, d3, b0, b1, b2, b3, b4, b5, b6, b7) EXTERN_C const GUID name
#endif
