// Basic types of the kernel interfaces, the same widths on every target:
// LONG and ULONG have 32 bits, WCHAR has 16, pointers have 64.
#pragma once

#include <nt/annotations.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#ifndef _WIN32
#include <string.h>
#endif

static_assert(sizeof(wchar_t) == 2, "compile with -fshort-wchar: wide literals are UTF-16 at these interfaces");
static_assert(static_cast<char>(-1) < 0, "compile with -fsigned-char: CHAR and CCHAR are signed at these interfaces");
static_assert(sizeof(void *) == 8, "only 64-bit targets are supported");

typedef void VOID;
typedef void *PVOID;
typedef const void *PCVOID;
typedef char CHAR, *PCHAR, CCHAR, *PCCHAR;
typedef const char *PCCH;
typedef char *PCH;
typedef unsigned char UCHAR, *PUCHAR;
typedef const UCHAR *PCUCHAR;
typedef short SHORT, *PSHORT, CSHORT;
typedef unsigned short USHORT, *PUSHORT;
typedef int INT, *PINT;
typedef unsigned int UINT, *PUINT;
#ifdef _WIN32
typedef long LONG, *PLONG;
typedef unsigned long ULONG, *PULONG;
#else
typedef int LONG, *PLONG;
typedef unsigned int ULONG, *PULONG;
#endif
typedef ULONG CLONG, *PCLONG;
typedef const ULONG *PCULONG;
typedef long long LONGLONG, *PLONGLONG, LONG64, *PLONG64;
typedef unsigned long long ULONGLONG, *PULONGLONG, ULONG64, *PULONG64, DWORD64;
typedef signed char INT8;
typedef unsigned char UINT8;
typedef signed short INT16;
typedef unsigned short UINT16;
typedef signed int INT32;
typedef unsigned int UINT32;
typedef long long INT64;
typedef unsigned long long UINT64;
typedef __INTPTR_TYPE__ LONG_PTR, *PLONG_PTR, INT_PTR, *PINT_PTR;
typedef __UINTPTR_TYPE__ ULONG_PTR, *PULONG_PTR, UINT_PTR, *PUINT_PTR;
typedef ULONG_PTR SIZE_T, *PSIZE_T;
typedef LONG_PTR SSIZE_T, *PSSIZE_T;
typedef UCHAR BOOLEAN, *PBOOLEAN;
typedef UCHAR KIRQL, *PKIRQL;
typedef CCHAR KPROCESSOR_MODE;
typedef LONG KPRIORITY;
typedef ULONG LOGICAL;
typedef ULONG LCID, *PLCID;
typedef USHORT LANGID;
typedef ULONG_PTR KSPIN_LOCK, *PKSPIN_LOCK;
typedef ULONG_PTR ERESOURCE_THREAD, *PERESOURCE_THREAD;
typedef LONG NTSTATUS, *PNTSTATUS;
typedef PVOID HANDLE, *PHANDLE;
typedef ULONG ACCESS_MASK, *PACCESS_MASK;
typedef PVOID PSID;
typedef PVOID PSECURITY_DESCRIPTOR;
typedef ULONG SECURITY_INFORMATION, *PSECURITY_INFORMATION;
typedef USHORT SECURITY_DESCRIPTOR_CONTROL, *PSECURITY_DESCRIPTOR_CONTROL;

typedef wchar_t WCHAR, *PWCHAR, *PWCH, *PWSTR, *PZZWSTR;
typedef const WCHAR *PCWCH, *PCWSTR, *PCZZWSTR;
typedef CHAR *PSTR, *PSZ;
typedef const CHAR *PCSTR, *PCSZ;

#ifndef NULL
#define NULL 0
#endif
#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

#define MAXUCHAR 0xff
#define MAXUSHORT 0xffff
#define MAXULONG 0xffffffff
#define MAXLONG 0x7fffffff
#define MAXLONGLONG 0x7fffffffffffffffLL
#define MAXULONGLONG 0xffffffffffffffffULL
#define UNICODE_NULL ((WCHAR)0)
#define UNICODE_STRING_MAX_BYTES ((USHORT)65534)
#define UNICODE_STRING_MAX_CHARS (32767)
#define ANSI_NULL ((CHAR)0)

// Severity lives in the two top bits of a status: 0 success, 1 information, 2 warning, 3 error.
#define NT_SUCCESS(status) (((NTSTATUS)(status)) >= 0)
#define NT_INFORMATION(status) ((((ULONG)(status)) >> 30) == 1)
#define NT_WARNING(status) ((((ULONG)(status)) >> 30) == 2)
#define NT_ERROR(status) ((((ULONG)(status)) >> 30) == 3)

#define LANG_NEUTRAL 0x00
#define SUBLANG_NEUTRAL 0x00
#define SORT_DEFAULT 0x0
#define LOCALE_NEUTRAL ((LCID)0)

typedef union _LARGE_INTEGER {
    struct {
        ULONG LowPart;
        LONG HighPart;
    };
    struct {
        ULONG LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union _ULARGE_INTEGER {
    struct {
        ULONG LowPart;
        ULONG HighPart;
    };
    struct {
        ULONG LowPart;
        ULONG HighPart;
    } u;
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

typedef struct _LUID {
    ULONG LowPart;
    LONG HighPart;
} LUID, *PLUID;

typedef struct _LIST_ENTRY {
    struct _LIST_ENTRY *Flink;
    struct _LIST_ENTRY *Blink;
} LIST_ENTRY, *PLIST_ENTRY;

typedef struct _SINGLE_LIST_ENTRY {
    struct _SINGLE_LIST_ENTRY *Next;
} SINGLE_LIST_ENTRY, *PSINGLE_LIST_ENTRY;

// Lengths count bytes; Buffer need not be terminated.
typedef struct _UNICODE_STRING {
    USHORT Length;
    USHORT MaximumLength;
    PWCH Buffer;
} UNICODE_STRING, *PUNICODE_STRING;
typedef const UNICODE_STRING *PCUNICODE_STRING;

typedef struct _STRING {
    USHORT Length;
    USHORT MaximumLength;
    PCHAR Buffer;
} STRING, *PSTRING, ANSI_STRING, *PANSI_STRING, OEM_STRING, *POEM_STRING;
typedef const STRING *PCSTRING, *PCANSI_STRING, *PCOEM_STRING;

typedef struct _OBJECT_ATTRIBUTES {
    ULONG Length;
    HANDLE RootDirectory;
    PUNICODE_STRING ObjectName;
    ULONG Attributes;
    PVOID SecurityDescriptor;
    PVOID SecurityQualityOfService;
} OBJECT_ATTRIBUTES, *POBJECT_ATTRIBUTES;

#define OBJ_INHERIT 0x00000002L
#define OBJ_PERMANENT 0x00000010L
#define OBJ_EXCLUSIVE 0x00000020L
#define OBJ_CASE_INSENSITIVE 0x00000040L
#define OBJ_OPENIF 0x00000080L
#define OBJ_OPENLINK 0x00000100L
#define OBJ_KERNEL_HANDLE 0x00000200L
#define OBJ_FORCE_ACCESS_CHECK 0x00000400L
#define OBJ_VALID_ATTRIBUTES 0x00001FF2L

#define InitializeObjectAttributes(attributes, name, flags, root, descriptor)                                          \
    {                                                                                                                  \
        (attributes)->Length = sizeof(OBJECT_ATTRIBUTES);                                                              \
        (attributes)->RootDirectory = (root);                                                                          \
        (attributes)->Attributes = (flags);                                                                            \
        (attributes)->ObjectName = (name);                                                                             \
        (attributes)->SecurityDescriptor = (descriptor);                                                               \
        (attributes)->SecurityQualityOfService = NULL;                                                                 \
    }

// The counted-string structures are not const-correct; literals reach them through this cast.
template<typename Character, size_t length>
constexpr Character *platformLiteral(const Character (&literal)[length]) {
    return const_cast<Character *>(literal);
}

#define RTL_CONSTANT_STRING(literal) {sizeof(literal) - sizeof((literal)[0]), sizeof(literal), platformLiteral(literal)}

#define DECLARE_CONST_UNICODE_STRING(variable, literal)                                                                \
    const WCHAR variable##_buffer[] = literal;                                                                         \
    const UNICODE_STRING variable = {sizeof(literal) - sizeof(WCHAR), sizeof(literal), (PWCH)variable##_buffer}

#define DECLARE_UNICODE_STRING_SIZE(variable, characters)                                                              \
    WCHAR variable##_buffer[characters];                                                                               \
    UNICODE_STRING variable = {0, (characters) * sizeof(WCHAR), variable##_buffer}

#include <guiddef.h>
#include <ntstatus.h>
