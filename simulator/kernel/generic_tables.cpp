// Balanced generic tables: AVL trees whose nodes live in the caller's memory, headers in front of the user data.

#include "avl_tree.h"
#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <cstring>

using namespace sim;

namespace {

using Links = RTL_BALANCED_LINKS;

void *userData(Links *node) {
    return node + 1;
}

void trace(TraceEvent::Kind kind, const void *table, const void *element) {
    if (kernel().trace.active()) {
        TraceEvent event{};
        event.kind = kind;
        event.table = table;
        event.element = element;
        event.hit = element != nullptr;
        kernel().trace.emit(event);
    }
}

void checkTable(PRTL_AVL_TABLE table, const char *routine, const void *callSite) {
    requireIrqlAtMost(DISPATCH_LEVEL, routine, callSite);
    if (currentThread().irql == DISPATCH_LEVEL) {
        kernel().pool.checkAccess(table, sizeof *table, routine, callSite);
    }
    if (table->CompareRoutine == nullptr || table->BalancedRoot.Parent != &table->BalancedRoot) {
        bugCheck("generic table", routine, "the table is not initialised, or was copied", callSite);
    }
}

/// Descends from the root. The compare routine gets the caller's buffer first, the stored element second.
TABLE_SEARCH_RESULT search(PRTL_AVL_TABLE table, void *buffer, Links *&nodeOrParent) {
    Links *node = table->BalancedRoot.RightChild;
    nodeOrParent = nullptr;
    TABLE_SEARCH_RESULT result = TableEmptyTree;
    while (node != nullptr) {
        nodeOrParent = node;
        switch (table->CompareRoutine(table, buffer, userData(node))) {
        case GenericLessThan:
            result = TableInsertAsLeft;
            node = node->LeftChild;
            break;
        case GenericGreaterThan:
            result = TableInsertAsRight;
            node = node->RightChild;
            break;
        default:
            return TableFoundNode;
        }
    }
    return result;
}

void resetCursor(PRTL_AVL_TABLE table) {
    table->OrderedPointer = nullptr;
    table->WhichOrderedElement = 0;
}

} // namespace

// learn.microsoft.com: RtlInitializeGenericTableAvl
extern "C" VOID RtlInitializeGenericTableAvl(PRTL_AVL_TABLE table, PRTL_AVL_COMPARE_ROUTINE compare,
                                             PRTL_AVL_ALLOCATE_ROUTINE allocate, PRTL_AVL_FREE_ROUTINE free,
                                             PVOID context) {
    kernel().pool.checkAccess(table, sizeof *table, "RtlInitializeGenericTableAvl", SIM_CALL_SITE);
    *table = {};
    table->BalancedRoot.Parent = &table->BalancedRoot;
    table->CompareRoutine = compare;
    table->AllocateRoutine = allocate;
    table->FreeRoutine = free;
    table->TableContext = context;
}

// learn.microsoft.com: RtlInsertElementGenericTableAvl
extern "C" PVOID RtlInsertElementGenericTableAvl(PRTL_AVL_TABLE table, PVOID buffer, CLONG bytes, PBOOLEAN isNew) {
    checkTable(table, "RtlInsertElementGenericTableAvl", SIM_CALL_SITE);
    Links *nodeOrParent = nullptr;
    const TABLE_SEARCH_RESULT result = search(table, buffer, nodeOrParent);
    return RtlInsertElementGenericTableFullAvl(table, buffer, bytes, isNew, nodeOrParent, result);
}

// learn.microsoft.com: RtlInsertElementGenericTableFullAvl
extern "C" PVOID RtlInsertElementGenericTableFullAvl(PRTL_AVL_TABLE table, PVOID buffer, CLONG bytes, PBOOLEAN isNew,
                                                     PVOID nodeOrParent, TABLE_SEARCH_RESULT searchResult) {
    checkTable(table, "RtlInsertElementGenericTableFullAvl", SIM_CALL_SITE);
    const auto report = [&](BOOLEAN added, PVOID element) {
        if (isNew != nullptr) {
            *isNew = added;
        }
        trace(TraceEvent::Kind::tableInsert, table, element);
        return element;
    };
    if (searchResult == TableFoundNode) {
        return report(FALSE, userData(static_cast<Links *>(nodeOrParent)));
    }
    auto *node = static_cast<Links *>(table->AllocateRoutine(table, static_cast<CLONG>(bytes + sizeof(Links))));
    if (node == nullptr) {
        return report(FALSE, nullptr);
    }
    *node = {};
    std::memcpy(userData(node), buffer, bytes);
    avl::insert(*table, node, static_cast<Links *>(nodeOrParent), searchResult == TableInsertAsLeft);
    ++table->NumberGenericTableElements;
    resetCursor(table);
    return report(TRUE, userData(node));
}

// learn.microsoft.com: RtlDeleteElementGenericTableAvl. The free routine gets the header's address.
extern "C" BOOLEAN RtlDeleteElementGenericTableAvl(PRTL_AVL_TABLE table, PVOID buffer) {
    checkTable(table, "RtlDeleteElementGenericTableAvl", SIM_CALL_SITE);
    Links *node = nullptr;
    if (search(table, buffer, node) != TableFoundNode) {
        return FALSE;
    }
    if (node == table->RestartKey) {
        table->RestartKey = avl::predecessor(*table, node);
    }
    ++table->DeleteCount;
    avl::remove(*table, node);
    --table->NumberGenericTableElements;
    resetCursor(table);
    table->FreeRoutine(table, node);
    return TRUE;
}

// learn.microsoft.com: RtlLookupElementGenericTableAvl
extern "C" PVOID RtlLookupElementGenericTableAvl(PRTL_AVL_TABLE table, PVOID buffer) {
    checkTable(table, "RtlLookupElementGenericTableAvl", SIM_CALL_SITE);
    PVOID nodeOrParent = nullptr;
    TABLE_SEARCH_RESULT result = TableEmptyTree;
    return RtlLookupElementGenericTableFullAvl(table, buffer, &nodeOrParent, &result);
}

// learn.microsoft.com: RtlLookupElementGenericTableFullAvl
extern "C" PVOID RtlLookupElementGenericTableFullAvl(PRTL_AVL_TABLE table, PVOID buffer, PVOID *nodeOrParent,
                                                     TABLE_SEARCH_RESULT *searchResult) {
    checkTable(table, "RtlLookupElementGenericTableFullAvl", SIM_CALL_SITE);
    Links *node = nullptr;
    *searchResult = search(table, buffer, node);
    *nodeOrParent = node;
    const PVOID element = *searchResult == TableFoundNode ? userData(node) : nullptr;
    trace(TraceEvent::Kind::tableLookup, table, element);
    return element;
}

// learn.microsoft.com: RtlGetElementGenericTableAvl. The index counts in key order: the table keeps no other. The
// cursor that makes a walk by index fast is part of the table, so even this "read" writes to it: two threads must not
// call it at once (recalled).
extern "C" PVOID RtlGetElementGenericTableAvl(PRTL_AVL_TABLE table, ULONG index) {
    checkTable(table, "RtlGetElementGenericTableAvl", SIM_CALL_SITE);
    if (index >= table->NumberGenericTableElements) {
        return nullptr;
    }
    // WhichOrderedElement counts from 1 while OrderedPointer is set.
    auto *node = static_cast<Links *>(table->OrderedPointer);
    ULONG at = table->WhichOrderedElement;
    const ULONG wanted = index + 1;
    if (node == nullptr || wanted < at / 2) {
        node = avl::first(*table);
        at = 1;
    }
    for (; at < wanted; ++at) {
        node = avl::successor(*table, node);
    }
    for (; at > wanted; --at) {
        node = avl::predecessor(*table, node);
    }
    table->OrderedPointer = node;
    table->WhichOrderedElement = at;
    trace(TraceEvent::Kind::tableElement, table, userData(node));
    return userData(node);
}

// learn.microsoft.com: RtlNumberGenericTableElementsAvl
extern "C" ULONG RtlNumberGenericTableElementsAvl(PRTL_AVL_TABLE table) {
    checkTable(table, "RtlNumberGenericTableElementsAvl", SIM_CALL_SITE);
    return table->NumberGenericTableElements;
}

// learn.microsoft.com: RtlIsGenericTableEmptyAvl
extern "C" BOOLEAN RtlIsGenericTableEmptyAvl(PRTL_AVL_TABLE table) {
    checkTable(table, "RtlIsGenericTableEmptyAvl", SIM_CALL_SITE);
    return table->NumberGenericTableElements == 0;
}

// learn.microsoft.com: RtlEnumerateGenericTableAvl
extern "C" PVOID RtlEnumerateGenericTableAvl(PRTL_AVL_TABLE table, BOOLEAN restart) {
    checkTable(table, "RtlEnumerateGenericTableAvl", SIM_CALL_SITE);
    if (restart) {
        table->RestartKey = nullptr;
    }
    PVOID key = table->RestartKey;
    const PVOID element = RtlEnumerateGenericTableWithoutSplayingAvl(table, &key);
    table->RestartKey = static_cast<Links *>(key);
    return element;
}

// learn.microsoft.com: RtlEnumerateGenericTableWithoutSplayingAvl. The key holds the node's header.
extern "C" PVOID RtlEnumerateGenericTableWithoutSplayingAvl(PRTL_AVL_TABLE table, PVOID *restartKey) {
    checkTable(table, "RtlEnumerateGenericTableWithoutSplayingAvl", SIM_CALL_SITE);
    auto *last = static_cast<Links *>(*restartKey);
    Links *node = last == nullptr ? avl::first(*table) : avl::successor(*table, last);
    if (node == nullptr) {
        return nullptr;
    }
    *restartKey = node;
    trace(TraceEvent::Kind::tableElement, table, userData(node));
    return userData(node);
}
