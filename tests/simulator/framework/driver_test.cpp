// Binding, the driver object, and the order of unloading.

#include "framework_fixture.h"

#include <array>

namespace sim::test {

namespace {

struct DriverContext {
    int number;
};
WDF_DECLARE_CONTEXT_TYPE(DriverContext);

using Events = std::vector<std::string>;

class DriverTest : public FrameworkTest {
  protected:
    template<int id>
    static VOID cleaned(WDFOBJECT) {
        noteEvent("cleanup " + std::to_string(id));
    }
    template<int id>
    static VOID destroyed(WDFOBJECT) {
        noteEvent("destroy " + std::to_string(id));
    }
};

TEST_F(DriverTest, BindsOnlyReleasedTableSizesUpToItsOwn) {
    EXPECT_EQ(bind(445), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(bind(458), STATUS_INVALID_PARAMETER);
    EXPECT_FALSE(framework::anyClientBound());
    EXPECT_EQ(bind(444), STATUS_SUCCESS);
    EXPECT_TRUE(framework::anyClientBound());
    EXPECT_STREQ(WdfDriverGlobals->DriverName, "TestDriver");
}

TEST_F(DriverTest, FillsGlobalsAndHooksTheDriverObject) {
    ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    EXPECT_EQ(WdfGetDriver(), driver);
    EXPECT_EQ(WdfDriverGlobals->DisplaceDriverUnload, TRUE);
    EXPECT_EQ(WdfDriverGlobals->DriverTag, 0x74736554u); // "Test"
    EXPECT_EQ(WdfDriverWdmGetDriverObject(driver), driverObject);
    EXPECT_NE(driverObject->DriverUnload, nullptr);
    EXPECT_EQ(driverObject->MajorFunction[IRP_MJ_PNP], driverObject->MajorFunction[IRP_MJ_READ]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(driver) % 8, 0u);
}

TEST_F(DriverTest, RefusesWhatTheFrameworkRefuses) {
    ASSERT_EQ(bind(), STATUS_SUCCESS);
    driverConfig.Size = 4;
    EXPECT_EQ(loadDriver(), STATUS_INFO_LENGTH_MISMATCH);
    driverConfig.Size = sizeof(WDF_DRIVER_CONFIG);
    driverConfig.DriverInitFlags = 0x100;
    EXPECT_EQ(loadDriver(), STATUS_INVALID_PARAMETER);
    driverConfig.DriverInitFlags = WdfDriverInitNonPnpDriver;
    EXPECT_EQ(loadDriver(), STATUS_INVALID_PARAMETER);
    driverConfig.DriverInitFlags = 0;
    driverAttributes.ParentObject = &driver;
    EXPECT_EQ(loadDriver(), STATUS_WDF_PARENT_ASSIGNMENT_NOT_ALLOWED);
    driverAttributes.ParentObject = nullptr;
    EXPECT_EQ(loadDriver(), STATUS_SUCCESS);
    EXPECT_EQ(loadDriver(), STATUS_DRIVER_INTERNAL_ERROR);
}

TEST_F(DriverTest, ContextIsZeroedAndFoundByTypeAndName) {
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&driverAttributes, DriverContext);
    ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    DriverContext *context = WdfObjectGet_DriverContext(driver);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->number, 0);
    EXPECT_EQ(framework::contextOfDriver(driverObject, "DriverContext"), context);
    EXPECT_EQ(framework::contextOfDriver(driverObject, "Other"), nullptr);
}

TEST_F(DriverTest, UnloadCallsTheDriverThenDeletesChildrenThenTheDriverObject) {
    driverAttributes.EvtCleanupCallback = cleaned<0>;
    driverAttributes.EvtDestroyCallback = destroyed<0>;
    onUnload = [this] { note("unload"); };
    ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.EvtCleanupCallback = cleaned<1>;
    attributes.EvtDestroyCallback = destroyed<1>;
    WDFCOLLECTION collection = nullptr;
    ASSERT_EQ(WdfCollectionCreate(&attributes, &collection), STATUS_SUCCESS);
    attributes.EvtCleanupCallback = cleaned<2>;
    attributes.EvtDestroyCallback = destroyed<2>;
    WDFSTRING string = nullptr;
    ASSERT_EQ(WdfStringCreate(nullptr, &attributes, &string), STATUS_SUCCESS);
    unloadDriver();
    EXPECT_EQ(takeEvents(),
              (Events{"unload", "cleanup 1", "cleanup 2", "cleanup 0", "destroy 1", "destroy 2", "destroy 0"}));
    EXPECT_FALSE(framework::anyClientBound());
    EXPECT_EQ(framework::leaks(), Events{});
}

TEST_F(DriverTest, UnbindingWithoutUnloadDeletesTheDriverObjectButDoesNotCallUnload) {
    driverAttributes.EvtCleanupCallback = cleaned<0>;
    onUnload = [this] { note("unload"); };
    ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    unbind();
    EXPECT_EQ(takeEvents(), Events{"cleanup 0"});
}

TEST_F(DriverTest, FailedCreationCallsNobody) {
    driverAttributes.EvtCleanupCallback = cleaned<0>;
    ASSERT_EQ(bind(), STATUS_SUCCESS);
    kernel.faults.failNamed("WdfDriverCreate", 1, std::nullopt, false);
    kernel.faults.arm(true);
    EXPECT_EQ(loadDriver(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(driver, nullptr);
    kernel.faults.arm(false);
    unbind();
    EXPECT_EQ(takeEvents(), Events{});
}

TEST_F(DriverTest, RoutinesThatAreNotSimulatedStopTheRunByIndex) {
    ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    std::string routine;
    try {
        WdfFunctions[300]();
    } catch (const Stopped &stopped) {
        routine = stopped.violation.routine;
    }
    EXPECT_EQ(routine, "function table entry 300");
}

TEST_F(DriverTest, ParametersKeyIsCreatedOnlyForAWriter) {
    ASSERT_EQ(loadDriver(), STATUS_SUCCESS);
    const std::u16string path = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TestDriver\\Parameters";
    WDFKEY key = reinterpret_cast<WDFKEY>(8);
    EXPECT_EQ(WdfDriverOpenParametersRegistryKey(driver, GENERIC_READ, nullptr, &key), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(WdfDriverOpenParametersRegistryKey(driver, KEY_READ, nullptr, &key), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_FALSE(kernel.registry.keyExists(path));
    ASSERT_EQ(WdfDriverOpenParametersRegistryKey(driver, KEY_WRITE, nullptr, &key), STATUS_SUCCESS);
    EXPECT_TRUE(kernel.registry.keyExists(path));
    WdfRegistryClose(key);
    ASSERT_EQ(WdfDriverOpenParametersRegistryKey(driver, GENERIC_READ, nullptr, &key), STATUS_SUCCESS);
    WdfRegistryClose(key);
}

} // namespace

} // namespace sim::test
