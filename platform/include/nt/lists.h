// Doubly linked lists with a head (learn.microsoft.com: "Singly and doubly linked lists").
// No locking; any IRQL for resident entries. Insertion and removal fast-fail when neighbouring links disagree.
#pragma once

#include <nt/fail.h>

FORCEINLINE VOID InitializeListHead(PLIST_ENTRY head) {
    head->Flink = head;
    head->Blink = head;
}

FORCEINLINE BOOLEAN IsListEmpty(const LIST_ENTRY *head) {
    return head->Flink == head;
}

FORCEINLINE VOID RtlpCheckListEntry(PLIST_ENTRY entry) {
    if (entry->Flink->Blink != entry || entry->Blink->Flink != entry) {
        RtlFailFast(FAST_FAIL_CORRUPT_LIST_ENTRY);
    }
}

/// Returns TRUE when the list became empty.
FORCEINLINE BOOLEAN RemoveEntryList(PLIST_ENTRY entry) {
    RtlpCheckListEntry(entry);
    PLIST_ENTRY next = entry->Flink;
    PLIST_ENTRY previous = entry->Blink;
    previous->Flink = next;
    next->Blink = previous;
    return next == previous;
}

/// Returns the head itself when the list is empty.
FORCEINLINE PLIST_ENTRY RemoveHeadList(PLIST_ENTRY head) {
    PLIST_ENTRY entry = head->Flink;
    RemoveEntryList(entry);
    return entry;
}

FORCEINLINE PLIST_ENTRY RemoveTailList(PLIST_ENTRY head) {
    PLIST_ENTRY entry = head->Blink;
    RemoveEntryList(entry);
    return entry;
}

FORCEINLINE VOID RtlpInsertBetween(PLIST_ENTRY previous, PLIST_ENTRY entry, PLIST_ENTRY next) {
    if (previous->Flink != next || next->Blink != previous) {
        RtlFailFast(FAST_FAIL_CORRUPT_LIST_ENTRY);
    }
    entry->Flink = next;
    entry->Blink = previous;
    previous->Flink = entry;
    next->Blink = entry;
}

FORCEINLINE VOID InsertTailList(PLIST_ENTRY head, PLIST_ENTRY entry) {
    RtlpInsertBetween(head->Blink, entry, head);
}

FORCEINLINE VOID InsertHeadList(PLIST_ENTRY head, PLIST_ENTRY entry) {
    RtlpInsertBetween(head, entry, head->Flink);
}
