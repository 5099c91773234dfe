#include "policy/parameters.h"

#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

constexpr std::u16string_view parametersKey =
    u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver\\Parameters";
constexpr ULONG preset = 30;

class DwordValue : public KernelTest {
  protected:
    void put(ULONG type, std::vector<std::uint8_t> data) {
        kernel.registry.setValue(parametersKey, u"CallbackTimeout", type, std::move(data));
    }
    NTSTATUS query() { return queryDwordValue(parametersKeyPath, L"CallbackTimeout", target); }

    ULONG target = preset;
};

TEST_F(DwordValue, PathIsThatOfTheServicesParameters) {
    EXPECT_EQ(sim::toUtf8(reinterpret_cast<const char16_t *>(parametersKeyPath)), sim::toUtf8(parametersKey));
}

TEST_F(DwordValue, IsRead) {
    put(REG_DWORD, {0x78, 0x56, 0x34, 0x12});
    EXPECT_EQ(query(), STATUS_SUCCESS);
    EXPECT_EQ(target, 0x12345678u);
}

TEST_F(DwordValue, ExtremesAreTakenAsTheyAre) {
    put(REG_DWORD, {0, 0, 0, 0});
    EXPECT_EQ(query(), STATUS_SUCCESS);
    EXPECT_EQ(target, 0u);
    put(REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(query(), STATUS_SUCCESS);
    EXPECT_EQ(target, 0xFFFFFFFFu);
}

TEST_F(DwordValue, NameIsFoundInAnyCase) {
    kernel.registry.setDword(parametersKey, u"CALLBACKTIMEOUT", 7);
    EXPECT_EQ(query(), STATUS_SUCCESS);
    EXPECT_EQ(target, 7u);
}

TEST_F(DwordValue, MissingKeyLeavesTheTargetAsItWas) {
    EXPECT_EQ(query(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(target, preset);
}

TEST_F(DwordValue, MissingValueLeavesTheTargetAsItWas) {
    kernel.registry.makeKey(parametersKey);
    kernel.registry.setDword(parametersKey, u"CallbackMode", 1);
    EXPECT_EQ(query(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(target, preset);
}

TEST_F(DwordValue, OtherTypesAreRefusedWithoutTouchingTheTarget) {
    const std::vector<std::uint8_t> fourBytes = {1, 0, 0, 0};
    const std::pair<ULONG, std::vector<std::uint8_t>> others[] = {
        {REG_BINARY, fourBytes},         {REG_SZ, bytesOf(std::u16string_view(u"7\0", 2))},
        {REG_EXPAND_SZ, fourBytes},      {REG_MULTI_SZ, bytesOf(std::u16string_view(u"7\0\0", 3))},
        {5 /* big-endian */, fourBytes}, {11 /* 64-bit */, {1, 0, 0, 0, 0, 0, 0, 0}},
        {11 /* 64-bit */, fourBytes}};
    for (const auto &[type, data] : others) {
        put(type, data);
        EXPECT_EQ(query(), STATUS_INVALID_PARAMETER) << type;
        EXPECT_EQ(target, preset) << type;
    }
}

TEST_F(DwordValue, OtherSizesAreRefusedWithoutTouchingTheTarget) {
    for (const std::size_t size : {0u, 1u, 2u, 3u, 5u, 8u}) {
        put(REG_DWORD, std::vector<std::uint8_t>(size, 1));
        EXPECT_EQ(query(), STATUS_INVALID_PARAMETER) << size;
        EXPECT_EQ(target, preset) << size;
    }
}

TEST_F(DwordValue, ValueWithoutATypeCountsAsMissing) {
    put(REG_NONE, {1, 0, 0, 0});
    EXPECT_EQ(query(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(target, preset);
}

/// What a query was asked, in place of the kernel's routine.
struct SeenQuery {
    ULONG relativeTo = 0xFFFF;
    std::u16string path;
    RTL_QUERY_REGISTRY_TABLE entries[2]{};
    PVOID context = &relativeTo;
    PVOID environment = &relativeTo;
};
SeenQuery seen;

NTSTATUS NTAPI standIn(ULONG relativeTo, PCWSTR path, PRTL_QUERY_REGISTRY_TABLE table, PVOID context,
                       PVOID environment) {
    seen = {relativeTo, reinterpret_cast<const char16_t *>(path), {table[0], table[1]}, context, environment};
    return STATUS_DELETE_PENDING;
}

TEST_F(DwordValue, IsAskedForThroughTheExRoutineWhereTheSystemHasIt) {
    kernel.systemRoutines[u"RtlQueryRegistryValuesEx"] = reinterpret_cast<void *>(standIn);
    EXPECT_EQ(query(), STATUS_DELETE_PENDING) << "the routine's status is returned as it stands";
    EXPECT_EQ(seen.relativeTo, static_cast<ULONG>(RTL_REGISTRY_ABSOLUTE));
    EXPECT_EQ(seen.path, parametersKey);
    EXPECT_EQ(seen.context, nullptr);
    EXPECT_EQ(seen.environment, nullptr);
    EXPECT_EQ(seen.entries[0].Flags, static_cast<ULONG>(RTL_QUERY_REGISTRY_REQUIRED));
    EXPECT_EQ(seen.entries[0].EntryContext, &target);
    EXPECT_EQ(seen.entries[0].DefaultType, static_cast<ULONG>(REG_NONE));
    EXPECT_TRUE(seen.entries[0].QueryRoutine != nullptr);
    EXPECT_TRUE(seen.entries[1].QueryRoutine == nullptr && seen.entries[1].Name == nullptr);
}

TEST_F(DwordValue, QueryRoutineRefusesAMissingTarget) {
    kernel.systemRoutines[u"RtlQueryRegistryValuesEx"] = reinterpret_cast<void *>(standIn);
    (void)query();
    ULONG number = 5;
    const auto routine = seen.entries[0].QueryRoutine;
    EXPECT_EQ(routine(nullptr, REG_DWORD, &number, sizeof number, nullptr, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(routine(nullptr, REG_DWORD, &number, sizeof number, nullptr, &target), STATUS_SUCCESS);
    EXPECT_EQ(target, 5u);
}

TEST_F(DwordValue, IsReadWithThePredecessorWhereTheSystemLacksTheExRoutine) {
    kernel.systemRoutines[u"RtlQueryRegistryValuesEx"] = nullptr;
    put(REG_DWORD, {9, 0, 0, 0});
    EXPECT_EQ(query(), STATUS_SUCCESS);
    EXPECT_EQ(target, 9u);
}

} // namespace
} // namespace unit
