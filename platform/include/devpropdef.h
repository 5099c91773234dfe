// Device property keys and types. DEFINE_DEVPROPKEY follows the rule of DEFINE_GUID.
// The macro part is read again on every inclusion, because <initguid.h> changes it.

#ifndef PLATFORM_DEVPROPDEF_TYPES
#define PLATFORM_DEVPROPDEF_TYPES

#include <ntdef.h>

typedef ULONG DEVPROPTYPE, *PDEVPROPTYPE;
typedef GUID DEVPROPGUID, *PDEVPROPGUID;
typedef ULONG DEVPROPID, *PDEVPROPID;

typedef struct _DEVPROPKEY {
    DEVPROPGUID fmtid;
    DEVPROPID pid;
} DEVPROPKEY, *PDEVPROPKEY;

#define DEVPROP_TYPEMOD_LIST 0x00002000
#define DEVPROP_TYPE_EMPTY 0x00000000
#define DEVPROP_TYPE_UINT32 0x00000007
#define DEVPROP_TYPE_GUID 0x0000000D
#define DEVPROP_TYPE_STRING 0x00000012
#define DEVPROP_TYPE_STRING_LIST (DEVPROP_TYPE_STRING | DEVPROP_TYPEMOD_LIST)

#endif

#undef DEFINE_DEVPROPKEY
#ifdef INITGUID
#define DEFINE_DEVPROPKEY(name, d1, d2, d3, b0, b1, b2, b3, b4, b5, b6, b7, id)                                        \
    EXTERN_C const DEVPROPKEY name;                                                                                    \
    PLATFORM_SHARED_CONSTANT DEVPROPKEY name = {{d1, d2, d3, {b0, b1, b2, b3, b4, b5, b6, b7}}, id}
#else
#define DEFINE_DEVPROPKEY(name, d1, d2, d3, b0, b1, b2, b3, b4, b5, b6, b7, id) EXTERN_C const DEVPROPKEY name
#endif
