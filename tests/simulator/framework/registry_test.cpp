// Registry keys, collections, strings, memory.

#include "framework_fixture.h"

#include <cstring>

namespace sim::test {

namespace {

using Bytes = std::vector<std::uint8_t>;

class RegistryTest : public FrameworkTest {
  protected:
    RegistryTest() {
        loadDriver();
        kernel.registry.makeKey(path);
    }
    ~RegistryTest() override {
        if (key) {
            WdfRegistryClose(key);
        }
    }
    void open(ACCESS_MASK access = KEY_READ | KEY_WRITE) {
        Text name(path);
        ASSERT_EQ(WdfRegistryOpenKey(nullptr, &name, access, nullptr, &key), STATUS_SUCCESS);
    }
    WDFCOLLECTION collection() {
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = key;
        WDFCOLLECTION handle = nullptr;
        EXPECT_EQ(WdfCollectionCreate(&attributes, &handle), STATUS_SUCCESS);
        return handle;
    }
    static std::u16string textAt(WDFCOLLECTION handle, ULONG index) {
        UNICODE_STRING text{};
        WdfStringGetUnicodeString(static_cast<WDFSTRING>(WdfCollectionGetItem(handle, index)), &text);
        return std::u16string(view(text));
    }
    NTSTATUS query(Bytes data, ULONG type = REG_MULTI_SZ, std::vector<std::u16string> *strings = nullptr) {
        kernel.registry.setValue(path, u"List", type, std::move(data));
        WDFCOLLECTION handle = collection();
        const NTSTATUS status = WdfRegistryQueryMultiString(key, &listName, nullptr, handle);
        for (ULONG index = 0; strings && index < WdfCollectionGetCount(handle); ++index) {
            strings->push_back(textAt(handle, index));
        }
        return status;
    }

    const std::u16string path = u"\\Registry\\Machine\\Software\\Test";
    Text listName{u"List"};
    WDFKEY key = nullptr;
};

TEST_F(RegistryTest, OpenAndCreate) {
    Text missing(u"\\Registry\\Machine\\Software\\Absent");
    Text deep(u"\\Registry\\Machine\\Software\\Absent\\Below");
    EXPECT_EQ(WdfRegistryOpenKey(nullptr, &missing, KEY_READ, nullptr, &key), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(WdfRegistryCreateKey(nullptr, &deep, KEY_READ, 0, nullptr, nullptr, &key), STATUS_OBJECT_NAME_NOT_FOUND);
    ULONG disposition = 0;
    ASSERT_EQ(WdfRegistryCreateKey(nullptr, &missing, KEY_READ, 0, &disposition, nullptr, &key), STATUS_SUCCESS);
    EXPECT_EQ(disposition, 1u);
    WDFKEY child = nullptr;
    Text below(u"Below");
    ASSERT_EQ(WdfRegistryCreateKey(key, &below, KEY_WRITE, 0, nullptr, nullptr, &child), STATUS_SUCCESS);
    EXPECT_TRUE(kernel.registry.keyExists(u"\\Registry\\Machine\\Software\\Absent\\Below"));
    WdfRegistryClose(child);
}

TEST_F(RegistryTest, RightsOfTheHandleCount) {
    open(KEY_READ);
    EXPECT_EQ(WdfRegistryAssignULong(key, &listName, 1), STATUS_ACCESS_DENIED);
    WdfRegistryClose(key);
    open(KEY_WRITE);
    EXPECT_EQ(WdfRegistryAssignULong(key, &listName, 7), STATUS_SUCCESS);
    EXPECT_EQ(kernel.registry.dword(path, u"LIST"), 7u);
    EXPECT_EQ(WdfRegistryQueryMultiString(key, &listName, nullptr, collection()), STATUS_ACCESS_DENIED);
}

TEST_F(RegistryTest, MultiStringTable) {
    open();
    Text absent(u"Absent");
    EXPECT_EQ(WdfRegistryQueryMultiString(key, &absent, nullptr, collection()), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(query({'a', 0, 0, 0, 0, 0}, REG_SZ), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(query({}, REG_SZ), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(query({}), STATUS_RESOURCE_DATA_NOT_FOUND);
    EXPECT_EQ(query({0}), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(query({0, 0}), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(query({'a', 0, 0, 0}), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(query({'a', 0, 0, 0, 0, 0, 0}), STATUS_OBJECT_TYPE_MISMATCH);
    std::vector<std::u16string> strings;
    EXPECT_EQ(query({0, 0, 0, 0}, REG_MULTI_SZ, &strings), STATUS_SUCCESS);
    EXPECT_TRUE(strings.empty());
    EXPECT_EQ(query({'a', 0, 'b', 0, 0, 0, 'c', 0, 0, 0, 0, 0}, REG_MULTI_SZ, &strings), STATUS_SUCCESS);
    EXPECT_EQ(strings, (std::vector<std::u16string>{u"ab", u"c"}));
    strings.clear();
    EXPECT_EQ(query({'a', 0, 0, 0, 0, 0, 'c', 0, 0, 0, 0, 0}, REG_MULTI_SZ, &strings), STATUS_SUCCESS);
    EXPECT_EQ(strings, std::vector<std::u16string>{u"a"});
}

TEST_F(RegistryTest, StringsBeyondWhatCanBeCountedAreCut) {
    open();
    for (const std::size_t units : {32'765u, 32'766u, 32'767u, 32'768u, 65'536u, 100'000u}) {
        std::u16string list(units, u'x');
        list += std::u16string_view(u"\0next\0\0", 7);
        std::vector<std::uint8_t> bytes(2 * list.size());
        std::memcpy(bytes.data(), list.data(), bytes.size());
        std::vector<std::u16string> strings;
        EXPECT_EQ(query(bytes, REG_MULTI_SZ, &strings), STATUS_SUCCESS);
        EXPECT_EQ(strings, (std::vector<std::u16string>{std::u16string(std::min(units, 32'766ul), u'x'), u"next"}));
    }
}

TEST_F(RegistryTest, ItemsAreAppendedAndOutliveTheCollection) {
    open();
    kernel.registry.setMultiString(path, u"List", {u"one", u"two"});
    WDFCOLLECTION handle = collection();
    ASSERT_EQ(WdfRegistryQueryMultiString(key, &listName, nullptr, handle), STATUS_SUCCESS);
    ASSERT_EQ(WdfRegistryQueryMultiString(key, &listName, nullptr, handle), STATUS_SUCCESS);
    EXPECT_EQ(WdfCollectionGetCount(handle), 4u);
    EXPECT_EQ(WdfCollectionGetItem(handle, 4), nullptr);
    const WDFOBJECT first = WdfCollectionGetItem(handle, 0);
    WdfCollectionRemoveItem(handle, 0);
    UNICODE_STRING text;
    WdfStringGetUnicodeString(static_cast<WDFSTRING>(first), &text); // its parent, the driver, keeps it
    EXPECT_EQ(view(text), u"one");
    EXPECT_EQ(textAt(handle, 0), u"two");
    EXPECT_EQ(stoppedBy([&] { WdfCollectionRemoveItem(handle, 3); }), "framework verifier");
}

TEST_F(RegistryTest, AssignedListsReadBack) {
    open();
    WDFCOLLECTION handle = collection();
    ASSERT_EQ(WdfRegistryAssignMultiString(key, &listName, handle), STATUS_SUCCESS);
    const auto empty = kernel.registry.value(path, u"List");
    EXPECT_EQ(empty->type, ULONG(REG_MULTI_SZ));
    EXPECT_EQ(empty->data, Bytes(4));
    Text text(u"entry");
    WDFSTRING string = nullptr;
    ASSERT_EQ(WdfStringCreate(&text, nullptr, &string), STATUS_SUCCESS);
    ASSERT_EQ(WdfCollectionAdd(handle, string), STATUS_SUCCESS);
    ASSERT_EQ(WdfCollectionAdd(handle, string), STATUS_SUCCESS);
    ASSERT_EQ(WdfRegistryAssignMultiString(key, &listName, handle), STATUS_SUCCESS);
    EXPECT_EQ(kernel.registry.multiString(path, u"List"), (std::vector<std::u16string>{u"entry", u"entry"}));
    ASSERT_EQ(WdfCollectionAdd(handle, handle), STATUS_SUCCESS);
    EXPECT_EQ(WdfRegistryAssignMultiString(key, &listName, handle), STATUS_INVALID_PARAMETER);
    WdfCollectionRemoveItem(handle, 2);
}

TEST_F(RegistryTest, Memory) {
    open();
    WDFMEMORY memory = nullptr;
    ULONG type = 0;
    kernel.registry.setValue(path, u"List", REG_SZ, {});
    EXPECT_EQ(WdfRegistryQueryMemory(key, &listName, PagedPool, nullptr, &memory, &type),
              STATUS_RESOURCE_DATA_NOT_FOUND);
    kernel.registry.setString(path, u"List", u"abc");
    ASSERT_EQ(WdfRegistryQueryMemory(key, &listName, PagedPool, nullptr, &memory, &type), STATUS_SUCCESS);
    EXPECT_EQ(type, ULONG(REG_SZ));
    size_t size = 0;
    EXPECT_EQ(std::memcmp(WdfMemoryGetBuffer(memory, &size), u"abc", 8), 0);
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryTest, ReadsAreTraced) {
    open();
    std::vector<std::pair<std::u16string, NTSTATUS>> reads;
    kernel.trace.setObserver([&](const TraceEvent &event) {
        if (event.kind == TraceEvent::Kind::registryValueRead) {
            reads.emplace_back(event.text, event.status);
        }
    });
    query({0, 0, 0, 0});
    Text absent(u"Absent");
    WdfRegistryQueryMultiString(key, &absent, nullptr, collection());
    ASSERT_EQ(reads.size(), 2u);
    EXPECT_EQ(reads[0], std::make_pair(std::u16string(u"List"), NTSTATUS(STATUS_SUCCESS)));
    EXPECT_EQ(reads[1], std::make_pair(std::u16string(u"Absent"), NTSTATUS(STATUS_OBJECT_NAME_NOT_FOUND)));
}

TEST_F(RegistryTest, ChildrenOfAKeyGoWithIt) {
    open();
    static bool closed;
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = key;
    attributes.EvtCleanupCallback = [](WDFOBJECT) { closed = true; };
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 16, &memory, nullptr), STATUS_SUCCESS);
    WdfRegistryClose(key);
    key = nullptr;
    EXPECT_TRUE(closed);
    EXPECT_EQ(stoppedBy([&] { WdfMemoryGetBuffer(memory, nullptr); }), "framework handle");
}

TEST_F(RegistryTest, PassiveLevelOnly) {
    open();
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { query({0, 0, 0, 0}); }), "irql");
}

class MemoryTest : public FrameworkTest {
  protected:
    MemoryTest() { loadDriver(); }
};

TEST_F(MemoryTest, SizesAndBuffers) {
    WDFMEMORY memory = nullptr;
    void *buffer = &memory;
    EXPECT_EQ(WdfMemoryCreate(nullptr, NonPagedPool, 0, 0, &memory, &buffer), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(buffer, nullptr);
    ASSERT_EQ(WdfMemoryCreate(nullptr, NonPagedPool, 0, 10, &memory, &buffer), STATUS_SUCCESS);
    size_t size = 0;
    EXPECT_EQ(WdfMemoryGetBuffer(memory, &size), buffer);
    EXPECT_EQ(size, 10u);
    char own[4] = {1, 2, 3, 4};
    EXPECT_EQ(WdfMemoryCreatePreallocated(nullptr, own, 0, &memory), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(stoppedBy([&] { WdfMemoryCreatePreallocated(nullptr, nullptr, 4, &memory); }), "framework pointer");
    ASSERT_EQ(WdfMemoryCreatePreallocated(nullptr, own, 4, &memory), STATUS_SUCCESS);
    EXPECT_EQ(WdfMemoryGetBuffer(memory, nullptr), own);
    WdfObjectDelete(memory);
    EXPECT_EQ(own[3], 4);
}

TEST_F(MemoryTest, Strings) {
    WDFSTRING string = nullptr;
    UNICODE_STRING text{2, 2, nullptr};
    EXPECT_EQ(WdfStringCreate(&text, nullptr, &string), STATUS_INVALID_PARAMETER);
    WCHAR letters[] = {'a', 'b', 'c'};
    text = {3, 6, letters};
    EXPECT_EQ(WdfStringCreate(&text, nullptr, &string), STATUS_INVALID_PARAMETER);
    text = {4, 2, letters};
    EXPECT_EQ(WdfStringCreate(&text, nullptr, &string), STATUS_INVALID_PARAMETER);
    ASSERT_EQ(WdfStringCreate(nullptr, nullptr, &string), STATUS_SUCCESS);
    WdfStringGetUnicodeString(string, &text);
    EXPECT_EQ(text.Buffer, nullptr);
    text = {4, 6, letters};
    ASSERT_EQ(WdfStringCreate(&text, nullptr, &string), STATUS_SUCCESS);
    WdfStringGetUnicodeString(string, &text);
    EXPECT_EQ(view(text), u"ab");
    EXPECT_EQ(text.Buffer[2], 0);
    EXPECT_NE(text.Buffer, letters);
}

TEST_F(MemoryTest, CollectionsFailForLackOfMemoryWithTheirOwnStatus) {
    WDFCOLLECTION collection = nullptr;
    ASSERT_EQ(WdfCollectionCreate(nullptr, &collection), STATUS_SUCCESS);
    kernel.faults.failNamed("WdfCollectionAdd", 1, std::nullopt, false);
    kernel.faults.arm(true);
    EXPECT_EQ(WdfCollectionAdd(collection, driver), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(WdfCollectionGetCount(collection), 0u);
    kernel.faults.arm(false);
}

} // namespace

} // namespace sim::test
