// Widths of the basic types.
#include "check.h"
#include <wdf.h>

template<size_t bytes, typename... Types>
constexpr bool allHaveSize = ((sizeof(Types) == bytes) && ...);

static_assert(allHaveSize<1, BOOLEAN, UCHAR, CHAR, CCHAR, KIRQL, KPROCESSOR_MODE>);
static_assert(allHaveSize<2, USHORT, SHORT, CSHORT, WCHAR, wchar_t>);
static_assert(allHaveSize<4, ULONG, LONG, NTSTATUS, ACCESS_MASK, LCID, DEVPROPTYPE, SECURITY_INFORMATION, KPRIORITY,
                          CLONG, POOL_TYPE, EVENT_TYPE, DEVICE_REGISTRY_PROPERTY, WDF_TRI_STATE>);
static_assert(allHaveSize<8, PVOID, HANDLE, SIZE_T, ULONG_PTR, KSPIN_LOCK, ERESOURCE_THREAD, LONGLONG, POOL_FLAGS,
                          WDFOBJECT, WDFDRIVER, WDFDEVICE, WDFCONTEXT, PWDFDEVICE_INIT>);
static_assert(allHaveSize<16, GUID, UNICODE_STRING, LIST_ENTRY>);

static_assert(wchar_t(-1) > 0, "wide characters are unsigned");
static_assert(PAGE_SIZE == 0x1000 && MEMORY_ALLOCATION_ALIGNMENT == 16);
CHECK_SAME(WDFOBJECT, void *);
CHECK_SAME(WDFCONTEXT, void *);
#ifdef _WIN32
CHECK_SAME(LONG, long);
CHECK_SAME(ULONG, unsigned long);
#endif
CHECK_SAME(SIZE_T, size_t);
CHECK_SAME(WCHAR, wchar_t);
