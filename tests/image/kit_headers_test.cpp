// What the kit's headers do inline: lists, interlocked operations, stack locations, structured exceptions.
#include <gtest/gtest.h>
#include <initguid.h>
#include <ntifs.h>
#include <usbiodef.h>
#include <wdf.h>

#include <excpt.h>

extern "C" [[noreturn]] void platformFailFast(unsigned code) {
    fprintf(stderr, "fast fail %u\n", code);
    abort();
}

extern "C" VOID KeInitializeEvent(PRKEVENT event, EVENT_TYPE type, BOOLEAN signalled) {
    event->Header.Type = type;
    event->Header.SignalState = signalled;
}

namespace {

struct Item {
    int number;
    LIST_ENTRY entry;
};

NTSTATUS guarded(NTSTATUS raised) {
    NTSTATUS caught = STATUS_SUCCESS;
    __try {
        if (raised != STATUS_SUCCESS) {
            throw PlatformStructuredException{raised};
        }
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        caught = GetExceptionCode();
    }
    return caught;
}

struct SampleContext {
    int value;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(SampleContext, getSampleContext)
struct OtherContext {
    long long values[3];
};
WDF_DECLARE_CONTEXT_TYPE(OtherContext);

} // namespace

TEST(KitLists, KeepTheOrderOfInsertion) {
    LIST_ENTRY head;
    InitializeListHead(&head);
    EXPECT_TRUE(IsListEmpty(&head));
    Item first{1, {}};
    Item second{2, {}};
    Item third{3, {}};
    InsertTailList(&head, &second.entry);
    InsertTailList(&head, &third.entry);
    InsertHeadList(&head, &first.entry);
    EXPECT_FALSE(RemoveEntryList(&second.entry));
    EXPECT_EQ(CONTAINING_RECORD(RemoveHeadList(&head), Item, entry)->number, 1);
    EXPECT_EQ(CONTAINING_RECORD(RemoveTailList(&head), Item, entry)->number, 3);
    EXPECT_TRUE(IsListEmpty(&head));
}

TEST(KitListsDeathTest, FastFailOnCorruption) {
    LIST_ENTRY head;
    InitializeListHead(&head);
    Item item{1, {}};
    InsertTailList(&head, &item.entry);
    Item another{2, {}};
    head.Flink = &head;
    EXPECT_DEATH(RemoveEntryList(&item.entry), "fast fail 3");
    EXPECT_DEATH(InsertHeadList(&head, &another.entry), "fast fail 3");
}

TEST(KitInterlocked, ReturnsWhatEachNamePromises) {
    LONG volatile number = 5;
    EXPECT_EQ(InterlockedIncrement(&number), 6);
    EXPECT_EQ(InterlockedDecrement(&number), 5);
    EXPECT_EQ(InterlockedExchangeAdd(&number, 3), 5);
    EXPECT_EQ(InterlockedAdd(&number, 2), 10);
    EXPECT_EQ(InterlockedExchange(&number, 1), 10);
    EXPECT_EQ(InterlockedOr(&number, 6), 1);
    EXPECT_EQ(InterlockedAnd(&number, 3), 7);
    EXPECT_EQ(InterlockedXor(&number, 1), 3);
    EXPECT_EQ(InterlockedCompareExchange(&number, 9, 4), 2);
    EXPECT_EQ(ReadAcquire(&number), 2);
    EXPECT_EQ(InterlockedCompareExchange(&number, 9, 2), 2);
    EXPECT_EQ(ReadNoFence(&number), 9);
    LONG64 volatile wide = 1LL << 40;
    EXPECT_EQ(InterlockedIncrement64(&wide), (1LL << 40) + 1);
    EXPECT_EQ(ReadAcquire64(&wide), (1LL << 40) + 1);
    int pointed = 0;
    PVOID volatile pointer = nullptr;
    EXPECT_EQ(InterlockedCompareExchangePointer(&pointer, &pointed, nullptr), nullptr);
    EXPECT_EQ(ReadPointerAcquire(&pointer), &pointed);
}

TEST(KitExceptions, ReachTheHandlerWithTheirCode) {
    EXPECT_EQ(guarded(STATUS_SUCCESS), STATUS_SUCCESS);
    EXPECT_EQ(guarded(STATUS_NO_MEMORY), STATUS_NO_MEMORY);
}

TEST(KitIrps, MoveBetweenStackLocations) {
    IO_STACK_LOCATION stack[3] = {};
    IRP irp{};
    irp.StackCount = 3;
    irp.CurrentLocation = 3;
    irp.Tail.Overlay.CurrentStackLocation = &stack[2];
    stack[2].MajorFunction = IRP_MJ_PNP;
    stack[2].Control = SL_INVOKE_ON_ERROR;
    stack[2].Context = &irp;
    stack[2].FileObject = reinterpret_cast<PFILE_OBJECT>(&irp);

    IoCopyCurrentIrpStackLocationToNext(&irp);
    EXPECT_EQ(stack[1].MajorFunction, IRP_MJ_PNP);
    EXPECT_EQ(stack[1].FileObject, stack[2].FileObject);
    EXPECT_EQ(stack[1].Control, 0);
    EXPECT_EQ(stack[1].Context, nullptr);

    IoSetCompletionRoutine(&irp, nullptr, &stack, TRUE, FALSE, TRUE);
    EXPECT_EQ(stack[1].Control, SL_INVOKE_ON_SUCCESS | SL_INVOKE_ON_CANCEL);
    IoMarkIrpPending(&irp);
    EXPECT_EQ(stack[2].Control, SL_INVOKE_ON_ERROR | SL_PENDING_RETURNED);

    irp.Tail.Overlay.CurrentStackLocation = &stack[1];
    irp.CurrentLocation = 2;
    IoSkipCurrentIrpStackLocation(&irp);
    EXPECT_EQ(IoGetCurrentIrpStackLocation(&irp), &stack[2]);
    EXPECT_EQ(irp.CurrentLocation, 3);
}

TEST(KitStrings, CountBytes) {
    DECLARE_CONST_UNICODE_STRING(declared, L"abc");
    EXPECT_EQ(declared.Length, 6);
    EXPECT_EQ(declared.MaximumLength, 8);
    const UNICODE_STRING constant = RTL_CONSTANT_STRING(L"abcd");
    EXPECT_EQ(constant.Length, 8);
    const ANSI_STRING narrow = RTL_CONSTANT_STRING("abcd");
    EXPECT_EQ(narrow.Length, 4);
    WCHAR room[4];
    UNICODE_STRING empty;
    RtlInitEmptyUnicodeString(&empty, room, sizeof(room));
    EXPECT_EQ(empty.MaximumLength, 8);
    EXPECT_EQ(empty.Length, 0);
}

TEST(KitContexts, AreKnownByTheAddressOfTheirRecord) {
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, SampleContext);
    ASSERT_NE(attributes.ContextTypeInfo, nullptr);
    EXPECT_EQ(attributes.ContextTypeInfo->UniqueType, attributes.ContextTypeInfo);
    EXPECT_EQ(attributes.ContextTypeInfo->Size, 0x28u);
    EXPECT_EQ(attributes.ContextTypeInfo->ContextSize, sizeof(SampleContext));
    EXPECT_STREQ(attributes.ContextTypeInfo->ContextName, "SampleContext");
    EXPECT_NE(WDF_GET_CONTEXT_TYPE_INFO(OtherContext), WDF_GET_CONTEXT_TYPE_INFO(SampleContext));
    EXPECT_EQ(WDF_GET_CONTEXT_TYPE_INFO(OtherContext)->ContextSize, 24u);
}

TEST(KitContexts, AreFetchedThroughTheFunctionTable) {
    static SampleContext context{7};
    static PCWDF_OBJECT_CONTEXT_TYPE_INFO asked;
    WDFFUNC table[WDF_FUNCTION_TABLE_NUM_ENTRIES] = {};
    const PFN_WDFOBJECTGETTYPEDCONTEXTWORKER worker = [](PWDF_DRIVER_GLOBALS, WDFOBJECT,
                                                         PCWDF_OBJECT_CONTEXT_TYPE_INFO type) -> PVOID {
        asked = type;
        return &context;
    };
    table[WdfObjectGetTypedContextWorkerTableIndex] = reinterpret_cast<WDFFUNC>(worker);
    const WDFFUNC *const before = WdfFunctions;
    WdfFunctions = table;
    EXPECT_EQ(getSampleContext(&table)->value, 7);
    EXPECT_EQ(WdfObjectGetTypedContext(&table, SampleContext), &context);
    EXPECT_EQ(asked, WDF_GET_CONTEXT_TYPE_INFO(SampleContext));
    WdfFunctions = before;
}

TEST(KitMutex, StartsFree) {
    FAST_MUTEX mutex;
    memset(&mutex, 0xAA, sizeof(mutex));
    ExInitializeFastMutex(&mutex);
    EXPECT_EQ(mutex.Count, 1);
    EXPECT_EQ(mutex.Owner, nullptr);
    EXPECT_EQ(mutex.Contention, 0u);
    EXPECT_EQ(mutex.Event.Header.Type, SynchronizationEvent);
    EXPECT_EQ(mutex.Event.Header.SignalState, 0);
}

TEST(KitGuids, CompareByValue) {
    const GUID copy = GUID_DEVINTERFACE_USB_HUB;
    EXPECT_TRUE(copy == GUID_DEVINTERFACE_USB_HUB);
    EXPECT_FALSE(copy == GUID_DEVINTERFACE_USB_DEVICE);
}
