#include "kernel_fixture.h"

#include <cstring>
#include <vector>

extern "C" NTSTATUS RtlQueryRegistryValuesEx(ULONG, PCWSTR, PRTL_QUERY_REGISTRY_TABLE, PVOID, PVOID);

namespace sim::test {

namespace {

struct Call {
    std::u16string name;
    ULONG type;
    std::vector<std::uint8_t> data;
    PVOID entryContext;
};

struct Calls {
    std::vector<Call> made;
    NTSTATUS answer = STATUS_SUCCESS;
};

NTSTATUS record(PWSTR name, ULONG type, PVOID data, ULONG length, PVOID context, PVOID entryContext) {
    auto *calls = static_cast<Calls *>(context);
    const auto *bytes = static_cast<const std::uint8_t *>(data);
    calls->made.push_back({reinterpret_cast<const char16_t *>(name), type, {bytes, bytes + length}, entryContext});
    return calls->answer;
}

std::vector<std::uint8_t> bytesOf(std::u16string_view text) {
    std::vector<std::uint8_t> bytes(text.size() * 2);
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

class RegistryQueryTest : public KernelTest {
  protected:
    RegistryQueryTest() { kernel.registry.makeKey(key); }

    RTL_QUERY_REGISTRY_TABLE entry(const char16_t *name, ULONG flags = 0) {
        RTL_QUERY_REGISTRY_TABLE result{};
        result.QueryRoutine = record;
        result.Flags = flags;
        result.Name = const_cast<PWSTR>(wide(name));
        return result;
    }

    NTSTATUS query(std::vector<RTL_QUERY_REGISTRY_TABLE> table, const char16_t *path = nullptr) {
        table.push_back({});
        calls.made.clear();
        const char16_t *full = path != nullptr ? path : key;
        return RtlQueryRegistryValues(RTL_REGISTRY_ABSOLUTE, wide(full), table.data(), &calls, nullptr);
    }

    void set(std::u16string_view name, ULONG type, std::vector<std::uint8_t> data) {
        kernel.registry.setValue(key, name, type, std::move(data));
    }

    static constexpr const char16_t *key = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Test";
    Calls calls;
};

TEST_F(RegistryQueryTest, numberIsDeliveredWithTheStoredSpelling) {
    kernel.registry.setDword(key, u"LogLevel", 0x01020304);
    int target = 0;
    RTL_QUERY_REGISTRY_TABLE wanted = entry(u"LOGLEVEL", RTL_QUERY_REGISTRY_REQUIRED);
    wanted.EntryContext = &target;
    EXPECT_EQ(query({wanted}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(calls.made[0].name, u"LogLevel");
    EXPECT_EQ(calls.made[0].type, REG_DWORD);
    EXPECT_EQ(calls.made[0].data, (std::vector<std::uint8_t>{4, 3, 2, 1}));
    EXPECT_EQ(calls.made[0].entryContext, &target);
}

TEST_F(RegistryQueryTest, missingKeyFailsBeforeAnyCall) {
    EXPECT_EQ(query({entry(u"A")}, u"\\Registry\\Machine\\None"), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_TRUE(calls.made.empty());
}

TEST_F(RegistryQueryTest, missingRequiredValueEndsTheTable) {
    kernel.registry.setDword(key, u"B", 1);
    EXPECT_EQ(query({entry(u"A", RTL_QUERY_REGISTRY_REQUIRED), entry(u"B")}), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_TRUE(calls.made.empty());
}

TEST_F(RegistryQueryTest, missingOptionalValueIsSkipped) {
    kernel.registry.setDword(key, u"B", 1);
    EXPECT_EQ(query({entry(u"A"), entry(u"B")}), STATUS_SUCCESS);
    EXPECT_EQ(calls.made.size(), 1u);
}

TEST_F(RegistryQueryTest, defaultIsDeliveredEvenWhereRequired) {
    RTL_QUERY_REGISTRY_TABLE wanted = entry(u"A", RTL_QUERY_REGISTRY_REQUIRED);
    wanted.DefaultType = REG_SZ;
    wanted.DefaultData = const_cast<PWSTR>(wide(u"hi"));
    EXPECT_EQ(query({wanted}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(calls.made[0].name, u"A");
    EXPECT_EQ(calls.made[0].data, bytesOf(std::u16string_view(u"hi\0", 3)));
}

TEST_F(RegistryQueryTest, valuesThatCountAsAbsent) {
    set(u"None", REG_NONE, {1, 2});
    EXPECT_EQ(query({entry(u"None", RTL_QUERY_REGISTRY_REQUIRED)}), STATUS_OBJECT_NAME_NOT_FOUND);
    set(u"Empty", REG_SZ, {});
    RTL_QUERY_REGISTRY_TABLE wanted = entry(u"Empty");
    wanted.DefaultType = REG_SZ;
    wanted.DefaultData = const_cast<PWSTR>(wide(u"x"));
    EXPECT_EQ(query({wanted}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(calls.made[0].data, bytesOf(std::u16string_view(u"x\0", 2)));
    EXPECT_EQ(query({entry(u"Empty", RTL_QUERY_REGISTRY_REQUIRED)}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_TRUE(calls.made[0].data.empty());
}

TEST_F(RegistryQueryTest, routinesFailureEndsTheTableExceptTooSmall) {
    kernel.registry.setDword(key, u"A", 1);
    calls.answer = STATUS_OBJECT_TYPE_MISMATCH;
    EXPECT_EQ(query({entry(u"A"), entry(u"A")}), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(calls.made.size(), 1u);
    calls.answer = STATUS_BUFFER_TOO_SMALL;
    EXPECT_EQ(query({entry(u"A"), entry(u"A")}), STATUS_SUCCESS);
    EXPECT_EQ(calls.made.size(), 2u);
}

TEST_F(RegistryQueryTest, listIsDeliveredStringByString) {
    kernel.registry.setMultiString(key, u"List", {u"one", u"two"});
    EXPECT_EQ(query({entry(u"List")}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 2u);
    EXPECT_EQ(calls.made[0].type, REG_SZ);
    EXPECT_EQ(calls.made[0].data, bytesOf(std::u16string_view(u"one\0", 4)));
    EXPECT_EQ(calls.made[1].data, bytesOf(std::u16string_view(u"two\0", 4)));
    EXPECT_EQ(query({entry(u"List", RTL_QUERY_REGISTRY_NOEXPAND)}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(calls.made[0].type, REG_MULTI_SZ);
    EXPECT_EQ(calls.made[0].data.size(), 18u);
}

TEST_F(RegistryQueryTest, oddLists) {
    set(u"List", REG_MULTI_SZ, bytesOf(std::u16string_view(u"a\0\0b\0\0", 6)));
    query({entry(u"List")});
    ASSERT_EQ(calls.made.size(), 3u);
    EXPECT_EQ(calls.made[1].data, bytesOf(std::u16string_view(u"\0", 1)));
    set(u"List", REG_MULTI_SZ, bytesOf(std::u16string_view(u"a\0b", 3)));
    query({entry(u"List")});
    ASSERT_EQ(calls.made.size(), 2u);
    EXPECT_EQ(calls.made[1].data, bytesOf(std::u16string_view(u"b\0", 2)));
    set(u"List", REG_MULTI_SZ, bytesOf(std::u16string_view(u"a\0", 2)));
    query({entry(u"List")});
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(calls.made[0].data, bytesOf(std::u16string_view(u"a\0", 2)));
}

TEST_F(RegistryQueryTest, emptyLists) {
    set(u"List", REG_MULTI_SZ, {});
    EXPECT_EQ(query({entry(u"List")}), STATUS_SUCCESS);
    EXPECT_TRUE(calls.made.empty());
    set(u"List", REG_MULTI_SZ, {0, 0});
    EXPECT_EQ(query({entry(u"List")}), STATUS_SUCCESS);
    EXPECT_TRUE(calls.made.empty());
    set(u"List", REG_MULTI_SZ, {0, 0, 0, 0});
    EXPECT_EQ(query({entry(u"List")}), STATUS_SUCCESS);
    ASSERT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(calls.made[0].data, (std::vector<std::uint8_t>{0, 0}));
    RTL_QUERY_REGISTRY_TABLE wanted = entry(u"Missing");
    wanted.DefaultType = REG_MULTI_SZ;
    wanted.DefaultData = const_cast<PWSTR>(wide(u"\0"));
    wanted.DefaultLength = 4;
    EXPECT_EQ(query({wanted}), STATUS_SUCCESS);
    EXPECT_TRUE(calls.made.empty());
}

TEST_F(RegistryQueryTest, expandableText) {
    set(u"Plain", REG_EXPAND_SZ, bytesOf(std::u16string_view(u"abc\0", 4)));
    query({entry(u"Plain")});
    EXPECT_EQ(calls.made.at(0).type, REG_EXPAND_SZ);
    set(u"Path", REG_EXPAND_SZ, bytesOf(std::u16string_view(u"%SystemRoot%\\x\0", 15)));
    query({entry(u"Path")});
    EXPECT_EQ(calls.made.at(0).type, REG_SZ);
    EXPECT_EQ(calls.made.at(0).data, bytesOf(std::u16string_view(u"C:\\Windows\\x\0", 13)));
    query({entry(u"Path", RTL_QUERY_REGISTRY_NOEXPAND)});
    EXPECT_EQ(calls.made.at(0).type, REG_EXPAND_SZ);
    EXPECT_EQ(calls.made.at(0).data.size(), 30u);
}

TEST_F(RegistryQueryTest, relativePaths) {
    kernel.registry.setDword(key, u"A", 5);
    std::vector<RTL_QUERY_REGISTRY_TABLE> table{entry(u"A"), {}};
    EXPECT_EQ(RtlQueryRegistryValues(RTL_REGISTRY_SERVICES, wide(u"Test"), table.data(), &calls, nullptr),
              STATUS_SUCCESS);
    EXPECT_EQ(calls.made.size(), 1u);
    EXPECT_EQ(RtlQueryRegistryValues(RTL_REGISTRY_CONTROL | RTL_REGISTRY_OPTIONAL, wide(u"None"), table.data(), &calls,
                                     nullptr),
              STATUS_SUCCESS);
}

TEST_F(RegistryQueryTest, badTables) {
    EXPECT_EQ(query({entry(u"A", RTL_QUERY_REGISTRY_DIRECT)}), STATUS_INVALID_PARAMETER);
    RTL_QUERY_REGISTRY_TABLE subkey = entry(nullptr, RTL_QUERY_REGISTRY_SUBKEY);
    EXPECT_EQ(query({subkey}), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(stoppedBy([this] { query({entry(u"A", RTL_QUERY_REGISTRY_DELETE)}); }), "not simulated");
    auto *paged = static_cast<PRTL_QUERY_REGISTRY_TABLE>(
        ExAllocatePool2(POOL_FLAG_PAGED, 2 * sizeof(RTL_QUERY_REGISTRY_TABLE), 'tseT'));
    EXPECT_EQ(stoppedBy([&] { RtlQueryRegistryValues(0, wide(key), paged, nullptr, nullptr); }), "registry query");
    ExFreePoolWithTag(paged, 'tseT');
}

TEST_F(RegistryQueryTest, exFormIsFoundByNameAndCanBeHidden) {
    Text name(u"RtlQueryRegistryValuesEx");
    EXPECT_EQ(MmGetSystemRoutineAddress(&name), reinterpret_cast<PVOID>(&RtlQueryRegistryValuesEx));
    kernel.systemRoutines[u"RtlQueryRegistryValuesEx"] = nullptr;
    EXPECT_EQ(MmGetSystemRoutineAddress(&name), nullptr);
    Text unknown(u"ExNoSuchRoutine");
    EXPECT_EQ(MmGetSystemRoutineAddress(&unknown), nullptr);
}

TEST_F(RegistryQueryTest, traceAndFaults) {
    std::vector<TraceEvent> events;
    kernel.trace.setObserver([&](const TraceEvent &event) { events.push_back(event); });
    kernel.registry.setDword(key, u"A", 1);
    query({entry(u"A"), entry(u"B")});
    kernel.trace.setObserver({});
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].text, u"A");
    EXPECT_EQ(events[0].status, STATUS_SUCCESS);
    EXPECT_EQ(events[1].status, STATUS_OBJECT_NAME_NOT_FOUND);
    kernel.faults.failNamed("RtlQueryRegistryValues", 1, STATUS_UNSUCCESSFUL, false);
    kernel.faults.arm(true);
    EXPECT_EQ(query({entry(u"A")}), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(query({entry(u"A")}), STATUS_SUCCESS);
}

} // namespace

} // namespace sim::test
