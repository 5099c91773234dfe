// Balanced generic tables. No locking inside. learn.microsoft.com: RtlInitializeGenericTableAvl.
#pragma once

#include <ntdef.h>

typedef enum _TABLE_SEARCH_RESULT {
    TableEmptyTree,
    TableFoundNode,
    TableInsertAsLeft,
    TableInsertAsRight
} TABLE_SEARCH_RESULT;

typedef enum _RTL_GENERIC_COMPARE_RESULTS {
    GenericLessThan,
    GenericGreaterThan,
    GenericEqual
} RTL_GENERIC_COMPARE_RESULTS;

typedef struct _RTL_BALANCED_LINKS {
    struct _RTL_BALANCED_LINKS *Parent;
    struct _RTL_BALANCED_LINKS *LeftChild;
    struct _RTL_BALANCED_LINKS *RightChild;
    CHAR Balance;
    UCHAR Reserved[3];
} RTL_BALANCED_LINKS, *PRTL_BALANCED_LINKS;

struct _RTL_AVL_TABLE;
typedef RTL_GENERIC_COMPARE_RESULTS NTAPI RTL_AVL_COMPARE_ROUTINE(struct _RTL_AVL_TABLE *table, PVOID first,
                                                                  PVOID second);
typedef RTL_AVL_COMPARE_ROUTINE *PRTL_AVL_COMPARE_ROUTINE;
/// `bytes` counts the table's own 0x20-byte header too.
typedef PVOID NTAPI RTL_AVL_ALLOCATE_ROUTINE(struct _RTL_AVL_TABLE *table, CLONG bytes);
typedef RTL_AVL_ALLOCATE_ROUTINE *PRTL_AVL_ALLOCATE_ROUTINE;
/// `buffer` is what the allocate routine returned, header first.
typedef VOID NTAPI RTL_AVL_FREE_ROUTINE(struct _RTL_AVL_TABLE *table, PVOID buffer);
typedef RTL_AVL_FREE_ROUTINE *PRTL_AVL_FREE_ROUTINE;

typedef struct _RTL_AVL_TABLE {
    RTL_BALANCED_LINKS BalancedRoot;
    PVOID OrderedPointer;
    ULONG WhichOrderedElement;
    ULONG NumberGenericTableElements;
    ULONG DepthOfTree;
    PRTL_BALANCED_LINKS RestartKey;
    ULONG DeleteCount;
    PRTL_AVL_COMPARE_ROUTINE CompareRoutine;
    PRTL_AVL_ALLOCATE_ROUTINE AllocateRoutine;
    PRTL_AVL_FREE_ROUTINE FreeRoutine;
    PVOID TableContext;
} RTL_AVL_TABLE, *PRTL_AVL_TABLE;

EXTERN_C_START

NTSYSAPI VOID RtlInitializeGenericTableAvl(PRTL_AVL_TABLE table, PRTL_AVL_COMPARE_ROUTINE compare,
                                           PRTL_AVL_ALLOCATE_ROUTINE allocate, PRTL_AVL_FREE_ROUTINE free,
                                           PVOID context);
NTSYSAPI PVOID RtlInsertElementGenericTableAvl(PRTL_AVL_TABLE table, PVOID buffer, CLONG bytes, PBOOLEAN isNew);
NTSYSAPI PVOID RtlInsertElementGenericTableFullAvl(PRTL_AVL_TABLE table, PVOID buffer, CLONG bytes, PBOOLEAN isNew,
                                                   PVOID nodeOrParent, TABLE_SEARCH_RESULT searchResult);
NTSYSAPI BOOLEAN RtlDeleteElementGenericTableAvl(PRTL_AVL_TABLE table, PVOID buffer);
NTSYSAPI PVOID RtlLookupElementGenericTableAvl(PRTL_AVL_TABLE table, PVOID buffer);
NTSYSAPI PVOID RtlLookupElementGenericTableFullAvl(PRTL_AVL_TABLE table, PVOID buffer, PVOID *nodeOrParent,
                                                   TABLE_SEARCH_RESULT *searchResult);
NTSYSAPI PVOID RtlGetElementGenericTableAvl(PRTL_AVL_TABLE table, ULONG index);
NTSYSAPI ULONG RtlNumberGenericTableElementsAvl(PRTL_AVL_TABLE table);
NTSYSAPI BOOLEAN RtlIsGenericTableEmptyAvl(PRTL_AVL_TABLE table);
NTSYSAPI PVOID RtlEnumerateGenericTableAvl(PRTL_AVL_TABLE table, BOOLEAN restart);
NTSYSAPI PVOID RtlEnumerateGenericTableWithoutSplayingAvl(PRTL_AVL_TABLE table, PVOID *restartKey);

EXTERN_C_END
