// The entry stub: what it binds, in which order, and what it leaves behind. The framework loader and the driver's own
// entry are played here.
#include "entry/framework_entry.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>
#include <wdf.h>
#include <wdf/bind.h>

namespace {

std::u16string textOf(const UNICODE_STRING &string) {
    const auto *characters = reinterpret_cast<const char16_t *>(string.Buffer);
    return {characters, characters + string.Length / sizeof(WCHAR)};
}

// What the stub called, and how the played parts answer.
struct World {
    std::vector<std::string> calls;
    NTSTATUS bindStatus = STATUS_SUCCESS;
    NTSTATUS entryStatus = STATUS_SUCCESS;
    bool displaceUnload = true;
    PDRIVER_UNLOAD frameworkUnload = nullptr;

    WDFFUNC table[WDF_FUNCTION_TABLE_NUM_ENTRIES] = {};
    WDF_DRIVER_GLOBALS globals{};
    WDF_BIND_INFO bound{};
    PWDF_BIND_INFO bindInfo = nullptr;
    PUNICODE_STRING boundPath = nullptr;
    std::u16string boundPathText;
    std::u16string unboundPathText;
    std::u16string entryPathText;
};

World *world = nullptr;

void frameworkUnload(PDRIVER_OBJECT) {
    world->calls.emplace_back("framework unload");
}

class EntryTest : public testing::Test {
  protected:
    void SetUp() override { world = &played; }
    void TearDown() override { world = nullptr; }

    NTSTATUS load(std::u16string path = u"\\Registry\\Machine\\Service") {
        pathText = std::move(path);
        const auto bytes = static_cast<USHORT>(pathText.size() * sizeof(char16_t));
        registryPath = {bytes, bytes, reinterpret_cast<PWCH>(pathText.data())};
        return FxDriverEntry(&driver, &registryPath);
    }

    World played;
    DRIVER_OBJECT driver{};
    std::u16string pathText;
    UNICODE_STRING registryPath{};
};

} // namespace

extern "C" {

VOID RtlCopyUnicodeString(PUNICODE_STRING destination, PCUNICODE_STRING source) {
    destination->Length = std::min(source->Length, destination->MaximumLength);
    memcpy(destination->Buffer, source->Buffer, destination->Length);
}

NTSTATUS WdfVersionBind(PDRIVER_OBJECT, PUNICODE_STRING registryPath, PWDF_BIND_INFO bindInfo,
                        PWDF_COMPONENT_GLOBALS *globals) {
    world->calls.emplace_back("bind");
    world->bound = *bindInfo;
    world->bindInfo = bindInfo;
    world->boundPath = registryPath;
    world->boundPathText = textOf(*registryPath);
    if (NT_SUCCESS(world->bindStatus)) {
        *bindInfo->FuncTable = world->table;
        *globals = &world->globals;
    }
    return world->bindStatus;
}

NTSTATUS WdfVersionUnbind(PUNICODE_STRING registryPath, PWDF_BIND_INFO bindInfo, PWDF_COMPONENT_GLOBALS globals) {
    world->calls.emplace_back("unbind");
    EXPECT_EQ(registryPath, world->boundPath);
    EXPECT_EQ(bindInfo, world->bindInfo);
    EXPECT_EQ(globals, &world->globals);
    world->unboundPathText = textOf(*registryPath);
    return STATUS_SUCCESS;
}

NTSTATUS DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
    world->calls.emplace_back("driver entry");
    if (!driver) {
        return world->entryStatus;
    }
    EXPECT_EQ(WdfFunctions, world->table);
    EXPECT_EQ(WdfDriverGlobals, &world->globals);
    world->entryPathText = textOf(*registryPath);
    world->globals.DisplaceDriverUnload = world->displaceUnload;
    driver->DriverUnload = world->frameworkUnload;
    return world->entryStatus;
}
}

using Calls = std::vector<std::string>;

TEST_F(EntryTest, BindsToVersion115BeforeTheDriverRuns) {
    EXPECT_EQ(load(), STATUS_SUCCESS);
    EXPECT_EQ(played.calls, (Calls{"bind", "driver entry"}));
    EXPECT_EQ(played.bound.Size, 0x30u);
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t *>(played.bound.Component)), u"KmdfLibrary");
    EXPECT_EQ(played.bound.Version.Major, 1u);
    EXPECT_EQ(played.bound.Version.Minor, 15u);
    EXPECT_EQ(played.bound.FuncCount, 444u);
    EXPECT_EQ(played.bound.Module, nullptr);
    EXPECT_EQ(played.boundPathText, u"\\Registry\\Machine\\Service");
    EXPECT_EQ(played.entryPathText, u"\\Registry\\Machine\\Service");
}

TEST_F(EntryTest, ReturnsTheStatusOfAFailedBindAndRunsNothing) {
    played.bindStatus = STATUS_INVALID_PARAMETER;
    EXPECT_EQ(load(), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(played.calls, Calls{"bind"});
    EXPECT_EQ(driver.DriverUnload, nullptr);
}

TEST_F(EntryTest, UnbindsWhenTheDriverFails) {
    played.entryStatus = STATUS_INSUFFICIENT_RESOURCES;
    EXPECT_EQ(load(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(played.calls, (Calls{"bind", "driver entry", "unbind"}));
}

TEST_F(EntryTest, KeepsASuccessCodeOtherThanZero) {
    played.entryStatus = STATUS_PENDING;
    EXPECT_EQ(load(), STATUS_PENDING);
    EXPECT_EQ(played.calls, (Calls{"bind", "driver entry"}));
}

TEST_F(EntryTest, UnbindsAfterTheFrameworksOwnUnload) {
    played.frameworkUnload = frameworkUnload;
    ASSERT_EQ(load(), STATUS_SUCCESS);
    ASSERT_NE(driver.DriverUnload, nullptr);
    EXPECT_NE(driver.DriverUnload, frameworkUnload);
    // The caller's path is gone by now; the stub has its own copy.
    std::ranges::fill(pathText, u'?');
    played.calls.clear();
    driver.DriverUnload(&driver);
    EXPECT_EQ(played.calls, (Calls{"framework unload", "unbind"}));
    EXPECT_EQ(played.unboundPathText, u"\\Registry\\Machine\\Service");
}

TEST_F(EntryTest, UnbindsEvenWithoutAFrameworkUnload) {
    ASSERT_EQ(load(), STATUS_SUCCESS);
    played.calls.clear();
    driver.DriverUnload(&driver);
    EXPECT_EQ(played.calls, Calls{"unbind"});
}

TEST_F(EntryTest, LeavesTheUnloadRoutineAloneUnlessAsked) {
    played.displaceUnload = false;
    played.frameworkUnload = frameworkUnload;
    ASSERT_EQ(load(), STATUS_SUCCESS);
    EXPECT_EQ(driver.DriverUnload, frameworkUnload);
}

TEST_F(EntryTest, StartsAfreshAtASecondLoad) {
    played.frameworkUnload = frameworkUnload;
    ASSERT_EQ(load(), STATUS_SUCCESS);
    driver.DriverUnload(&driver);
    played.bindInfo->Module = &played;
    played.frameworkUnload = nullptr;
    ASSERT_EQ(load(), STATUS_SUCCESS);
    EXPECT_EQ(played.bound.Module, nullptr);
    played.calls.clear();
    driver.DriverUnload(&driver);
    EXPECT_EQ(played.calls, Calls{"unbind"}) << "the first load's routine was called again";
}

TEST_F(EntryTest, CutsAPathThatIsTooLong) {
    ASSERT_EQ(load(std::u16string(300, u'p')), STATUS_SUCCESS);
    EXPECT_EQ(played.boundPathText, std::u16string(260, u'p'));
    EXPECT_EQ(played.entryPathText.size(), 300u);
}

TEST_F(EntryTest, OnlyCallsTheDriverWhenThereIsNoDriverObject) {
    played.entryStatus = STATUS_NOT_SUPPORTED;
    EXPECT_EQ(FxDriverEntry(nullptr, &registryPath), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(played.calls, Calls{"driver entry"});
}
