// Objects: handles, attributes, contexts, the two sweeps of deletion, references.

#include "framework_fixture.h"

namespace sim::test {

namespace {

struct FirstContext {
    int number;
};
WDF_DECLARE_CONTEXT_TYPE(FirstContext);
struct SecondContext {
    char text[40];
};
WDF_DECLARE_CONTEXT_TYPE(SecondContext);

using Events = std::vector<std::string>;

class ObjectTest : public FrameworkTest {
  protected:
    ObjectTest() { loadDriver(); }

    template<char id>
    static VOID cleaned(WDFOBJECT) {
        noteEvent(std::string("clean ") + id);
    }
    template<char id>
    static VOID destroyed(WDFOBJECT) {
        noteEvent(std::string("destroy ") + id);
    }
    template<char id>
    static WDF_OBJECT_ATTRIBUTES noted(WDFOBJECT parent = nullptr) {
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.EvtCleanupCallback = cleaned<id>;
        attributes.EvtDestroyCallback = destroyed<id>;
        attributes.ParentObject = parent;
        return attributes;
    }
    static WDFCOLLECTION collection(WDF_OBJECT_ATTRIBUTES attributes) {
        WDFCOLLECTION handle = nullptr;
        EXPECT_EQ(WdfCollectionCreate(&attributes, &handle), STATUS_SUCCESS);
        return handle;
    }
    static NTSTATUS tryCreate(WDF_OBJECT_ATTRIBUTES &attributes) {
        WDFCOLLECTION handle = nullptr;
        const NTSTATUS status = WdfCollectionCreate(&attributes, &handle);
        if (NT_SUCCESS(status)) {
            WdfObjectDelete(handle);
        }
        return status;
    }
};

TEST_F(ObjectTest, WrongHandlesAreBugChecks) {
    WDFCOLLECTION handle = collection(noted<'a'>());
    UNICODE_STRING text;
    EXPECT_EQ(stoppedBy([&] { WdfStringGetUnicodeString(reinterpret_cast<WDFSTRING>(handle), &text); }),
              "framework handle");
    EXPECT_EQ(stoppedBy([&] { WdfCollectionGetCount(nullptr); }), "framework handle");
    EXPECT_EQ(stoppedBy([&] { WdfCollectionGetCount(reinterpret_cast<WDFCOLLECTION>(0x1230)); }), "framework handle");
    WdfObjectDelete(handle);
    EXPECT_EQ(stoppedBy([&] { WdfCollectionGetCount(handle); }), "framework handle");
    EXPECT_EQ(stoppedBy([&] { WdfCollectionCreate(nullptr, nullptr); }), "framework pointer");
}

TEST_F(ObjectTest, AttributesAreValidated) {
    WDF_OBJECT_ATTRIBUTES attributes = noted<'a'>();
    attributes.Size = 0x30;
    EXPECT_EQ(tryCreate(attributes), STATUS_INFO_LENGTH_MISMATCH);
    attributes = {};
    attributes.Size = sizeof(attributes);
    EXPECT_EQ(tryCreate(attributes), STATUS_WDF_OBJECT_ATTRIBUTES_INVALID);
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextSizeOverride = 16;
    EXPECT_EQ(tryCreate(attributes), STATUS_WDF_OBJECT_ATTRIBUTES_INVALID);
    WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, FirstContext);
    attributes.ContextSizeOverride = sizeof(FirstContext) - 1;
    EXPECT_EQ(tryCreate(attributes), STATUS_WDF_OBJECT_ATTRIBUTES_INVALID);
    attributes.ContextSizeOverride = sizeof(FirstContext) + 100;
    EXPECT_EQ(tryCreate(attributes), STATUS_SUCCESS);
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.SynchronizationScope = WdfSynchronizationScopeDevice;
    EXPECT_EQ(tryCreate(attributes), STATUS_WDF_SYNCHRONIZATION_SCOPE_INVALID);
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    EXPECT_EQ(tryCreate(attributes), STATUS_WDF_EXECUTION_LEVEL_INVALID);
}

TEST_F(ObjectTest, AllCleanupsOfATreePrecedeAllDestructions) {
    WDFCOLLECTION root = collection(noted<'r'>());
    WDFCOLLECTION first = collection(noted<'1'>(root));
    collection(noted<'2'>(root));
    collection(noted<'3'>(first));
    WdfObjectDelete(root);
    EXPECT_EQ(takeEvents(),
              (Events{"clean 3", "clean 1", "clean 2", "clean r", "destroy 3", "destroy 1", "destroy 2", "destroy r"}));
}

TEST_F(ObjectTest, AReferenceDelaysDestructionOnly) {
    WDFCOLLECTION root = collection(noted<'r'>());
    WDFCOLLECTION child = collection(noted<'1'>(root));
    WdfObjectReference(child);
    WdfObjectDelete(root);
    EXPECT_EQ(takeEvents(), (Events{"clean 1", "clean r", "destroy r"}));
    WdfObjectDereference(child);
    EXPECT_EQ(takeEvents(), Events{"destroy 1"});
}

TEST_F(ObjectTest, DroppingTheLastReferenceWithoutDeletionIsABugCheck) {
    WDFCOLLECTION handle = collection(noted<'a'>());
    EXPECT_EQ(stoppedBy([&] { WdfObjectDereference(handle); }), "framework object");
    WdfObjectReference(handle); // the refused drop has counted
    WdfObjectDelete(handle);
}

TEST_F(ObjectTest, ContextsAreZeroedAndFoundByTypeUntilTheEnd) {
    WDF_OBJECT_ATTRIBUTES attributes = noted<'a'>();
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, FirstContext);
    WDFCOLLECTION handle = collection(attributes);
    FirstContext *first = WdfObjectGet_FirstContext(handle);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->number, 0);
    EXPECT_EQ(WdfObjectGet_SecondContext(handle), nullptr);

    WDF_OBJECT_ATTRIBUTES more = noted<'b'>();
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&more, SecondContext);
    void *second = nullptr;
    EXPECT_EQ(WdfObjectAllocateContext(handle, &more, &second), STATUS_SUCCESS);
    EXPECT_EQ(second, WdfObjectGet_SecondContext(handle));
    EXPECT_EQ(WdfObjectContextGetObject(second), handle);
    void *again = nullptr;
    EXPECT_EQ(WdfObjectAllocateContext(handle, &more, &again), STATUS_OBJECT_NAME_EXISTS);
    EXPECT_EQ(again, second);
    WdfObjectDelete(handle);
    EXPECT_EQ(takeEvents(), (Events{"clean a", "clean b", "destroy a", "destroy b"}));
}

TEST_F(ObjectTest, NothingIsMadeUnderAnObjectThatIsBeingDeleted) {
    static NTSTATUS childStatus;
    static NTSTATUS contextStatus;
    WDF_OBJECT_ATTRIBUTES attributes = noted<'a'>();
    attributes.EvtCleanupCallback = [](WDFOBJECT object) {
        WDF_OBJECT_ATTRIBUTES child = noted<'c'>(object);
        WDFCOLLECTION handle = reinterpret_cast<WDFCOLLECTION>(8);
        childStatus = WdfCollectionCreate(&child, &handle);
        EXPECT_EQ(handle, nullptr);
        WDF_OBJECT_ATTRIBUTES context = noted<'d'>();
        WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&context, FirstContext);
        contextStatus = WdfObjectAllocateContext(object, &context, nullptr);
        WdfObjectDelete(object); // begun before: ignored
    };
    WdfObjectDelete(collection(attributes));
    EXPECT_EQ(childStatus, STATUS_DELETE_PENDING);
    EXPECT_EQ(contextStatus, STATUS_DELETE_PENDING);
    EXPECT_EQ(takeEvents(), Events{"destroy a"}); // the child that was refused called nobody
}

TEST_F(ObjectTest, TheDriverObjectIsNotTheDriversToDelete) {
    EXPECT_EQ(stoppedBy([&] { WdfObjectDelete(driver); }), "framework object");
}

TEST_F(ObjectTest, PassiveObjectsDeletedAtDispatchGoLater) {
    WDF_OBJECT_ATTRIBUTES attributes = noted<'s'>();
    WDFSTRING string = nullptr;
    ASSERT_EQ(WdfStringCreate(nullptr, &attributes, &string), STATUS_SUCCESS);
    kernel.workers.pause();
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { WdfObjectDelete(string); }), "");
    EXPECT_EQ(takeEvents(), Events{});
    kernel.workers.resume();
    kernel.workers.drain();
    EXPECT_EQ(takeEvents(), (Events{"clean s", "destroy s"}));
}

TEST_F(ObjectTest, LeaksNameTypeAndParent) {
    WDFCOLLECTION root = collection(noted<'r'>());
    const std::vector<std::string> leaks = framework::leaks();
    ASSERT_EQ(leaks.size(), 2u); // the driver object too
    const std::string all = leaks[0] + leaks[1];
    EXPECT_NE(all.find("WDFCOLLECTION of WDFDRIVER"), std::string::npos);
    WdfObjectDelete(root);
}

} // namespace

} // namespace sim::test
