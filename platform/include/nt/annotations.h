// Source annotations and calling-convention words: they document, and compile to nothing.
#pragma once

#define _In_
#define _In_opt_
#define _In_z_
#define _In_opt_z_
#define _In_reads_(count)
#define _In_reads_opt_(count)
#define _In_reads_bytes_(count)
#define _In_reads_bytes_opt_(count)
#define _In_range_(low, high)
#define _Out_
#define _Out_opt_
#define _Out_writes_(count)
#define _Out_writes_opt_(count)
#define _Out_writes_bytes_(count)
#define _Out_writes_bytes_opt_(count)
#define _Out_writes_to_(size, count)
#define _Out_writes_bytes_to_(size, count)
#define _Out_writes_bytes_to_opt_(size, count)
#define _Outptr_
#define _Outptr_opt_
#define _Outptr_result_maybenull_
#define _Inout_
#define _Inout_opt_
#define _Inout_updates_(count)
#define _Inout_updates_bytes_(count)
#define _Inout_updates_bytes_opt_(count)
#define _Reserved_
#define _Ret_maybenull_
#define _Ret_notnull_
#define _Check_return_
#define _Must_inspect_result_
#define _Success_(condition)
#define _Post_satisfies_(condition)
#define _Pre_satisfies_(condition)
#define _When_(condition, annotation)
#define _At_(target, annotation)
#define _Always_(annotation)
#define _Analysis_assume_(condition)
#define _Function_class_(name)
#define _Field_size_(count)
#define _Field_size_bytes_(count)
#define _Field_size_bytes_part_opt_(size, count)
#define _Guarded_by_(lock)
#define _Has_lock_kind_(kind)
#define _Acquires_lock_(lock)
#define _Releases_lock_(lock)
#define _Requires_lock_held_(lock)
#define _Requires_lock_not_held_(lock)
#define _Acquires_exclusive_lock_(lock)
#define _Acquires_shared_lock_(lock)
#define _IRQL_requires_(level)
#define _IRQL_requires_max_(level)
#define _IRQL_requires_min_(level)
#define _IRQL_requires_same_
#define _IRQL_raises_(level)
#define _IRQL_saves_
#define _IRQL_restores_
#define _IRQL_limited_to_(level)
#define _Use_decl_annotations_
#define _Strict_type_match_
#define _Kernel_entry_
#define _Interlocked_operand_
#define _Printf_format_string_

#define NTAPI
#define FASTCALL
#define STDCALL

#ifdef _WIN32
#define DECLSPEC_IMPORT __declspec(dllimport)
#define FORCEINLINE __forceinline
#else
#define DECLSPEC_IMPORT
#define FORCEINLINE inline __attribute__((always_inline))
#endif
#define NTSYSAPI DECLSPEC_IMPORT
#define NTKERNELAPI DECLSPEC_IMPORT
#define NTSYSCALLAPI DECLSPEC_IMPORT
#define DECLSPEC_NORETURN __attribute__((noreturn))
#define DECLSPEC_NOINLINE __attribute__((noinline))
#define DECLSPEC_ALIGN(bytes) __attribute__((aligned(bytes)))
// A member that starts a pointer-sized slot, whatever its own size.
#define POINTER_ALIGNMENT DECLSPEC_ALIGN(8)

#ifdef __cplusplus
#define EXTERN_C extern "C"
#define EXTERN_C_START extern "C" {
#define EXTERN_C_END }
#else
#error "These headers serve C++ sources only."
#endif

#define UNREFERENCED_PARAMETER(parameter) (void)(parameter)
#define UNREFERENCED_LOCAL_VARIABLE(variable) (void)(variable)
// Checked builds of the official kit assert IRQL <= APC_LEVEL here; release builds, like ours, emit nothing.
#define PAGED_CODE() (void)0
#define NT_ASSERT(condition) (void)0

#define FIELD_OFFSET(type, field) ((LONG) __builtin_offsetof(type, field))
#define UFIELD_OFFSET(type, field) ((ULONG) __builtin_offsetof(type, field))
#define RTL_FIELD_SIZE(type, field) (sizeof(((type *)0)->field))
#define RTL_SIZEOF_THROUGH_FIELD(type, field) (__builtin_offsetof(type, field) + RTL_FIELD_SIZE(type, field))
#define CONTAINING_RECORD(address, type, field) ((type *)((char *)(address) - __builtin_offsetof(type, field)))
#define RTL_NUMBER_OF(array) (sizeof(array) / sizeof((array)[0]))
#define ARRAYSIZE(array) RTL_NUMBER_OF(array)
