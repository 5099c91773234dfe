// Device state bits, symbolic links, WDM preprocessing.

#include "framework_fixture.h"

namespace sim::test {

namespace {

using Events = std::vector<std::string>;

class DeviceStateTest : public FrameworkTest {
  protected:
    static WDF_DEVICE_STATE blocked() {
        WDF_DEVICE_STATE state;
        WDF_DEVICE_STATE_INIT(&state);
        state.Disabled = WdfTrue;
        state.DontDisplayInUI = WdfTrue;
        return state;
    }
    ULONG bits() {
        ULONG_PTR information = 0;
        EXPECT_EQ(bus.pnp(physical, IRP_MN_QUERY_PNP_DEVICE_STATE, &information), STATUS_SUCCESS);
        return static_cast<ULONG>(information);
    }
};

TEST_F(DeviceStateTest, StateSetInAddInvalidatesAtOnceAndActsWhenAsked) {
    std::vector<PDEVICE_OBJECT> invalidated;
    kernel.invalidateDeviceState = [&](PDEVICE_OBJECT device) { invalidated.push_back(device); };
    afterCreate = [this] {
        WDF_DEVICE_STATE state = blocked();
        WdfDeviceSetDeviceState(device, &state);
        return STATUS_SUCCESS;
    };
    plugAndStart();
    EXPECT_EQ(invalidated, std::vector<PDEVICE_OBJECT>{physical});
    EXPECT_EQ(bits(), ULONG(PNP_DEVICE_DISABLED | PNP_DEVICE_DONT_DISPLAY_IN_UI));
}

TEST_F(DeviceStateTest, BitsOfLowerDriversAreKeptOrCleared) {
    plugAndStart();
    bus.answer = [](PIRP irp) -> std::optional<NTSTATUS> {
        if (IoGetCurrentIrpStackLocation(irp)->MinorFunction != IRP_MN_QUERY_PNP_DEVICE_STATE) {
            return std::nullopt;
        }
        irp->IoStatus.Information = PNP_DEVICE_NOT_DISABLEABLE | PNP_DEVICE_FAILED;
        return STATUS_SUCCESS;
    };
    EXPECT_EQ(bits(), ULONG(PNP_DEVICE_NOT_DISABLEABLE | PNP_DEVICE_FAILED));
    WDF_DEVICE_STATE state = blocked();
    state.NotDisableable = WdfFalse;
    WdfDeviceSetDeviceState(device, &state);
    EXPECT_EQ(bits(), ULONG(PNP_DEVICE_DISABLED | PNP_DEVICE_DONT_DISPLAY_IN_UI | PNP_DEVICE_FAILED));
}

TEST_F(DeviceStateTest, AStartForgetsFailedButNotDisabled) {
    plugAndStart();
    WDF_DEVICE_STATE state = blocked();
    state.Failed = WdfTrue;
    WdfDeviceSetDeviceState(device, &state);
    ASSERT_EQ(pnp(IRP_MN_START_DEVICE), STATUS_SUCCESS);
    EXPECT_EQ(bits(), ULONG(PNP_DEVICE_DISABLED | PNP_DEVICE_DONT_DISPLAY_IN_UI));
}

TEST_F(DeviceStateTest, WrongStatesAreIgnored) {
    plugAndStart();
    WDF_DEVICE_STATE state = blocked();
    state.Size = 4;
    WdfDeviceSetDeviceState(device, &state);
    state = blocked();
    state.Removed = static_cast<WDF_TRI_STATE>(3);
    WdfDeviceSetDeviceState(device, &state);
    EXPECT_EQ(bits(), 0u);
    WDF_DEVICE_STATE read;
    WDF_DEVICE_STATE_INIT(&read);
    WdfDeviceGetDeviceState(device, &read);
    EXPECT_EQ(read.Disabled, WdfUseDefault);
}

using SymbolicLinkTest = DeviceStateTest;

TEST_F(SymbolicLinkTest, AnAnonymousDeviceLinksToItsPhysicalDevice) {
    Text name(u"\\DosDevices\\Test Link");
    afterCreate = [&] {
        EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &name), STATUS_SUCCESS);
        EXPECT_EQ(framework::symbolicLinkTarget(u"\\??\\test link"), u"\\Device\\00000042");
        EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &name), STATUS_INVALID_DEVICE_REQUEST);
        return STATUS_SUCCESS;
    };
    plugAndStart();
    EXPECT_EQ(framework::symbolicLinkTarget(u"\\DosDevices\\TEST LINK"), u"\\Device\\00000042");
    EXPECT_EQ(pnp(IRP_MN_SURPRISE_REMOVAL), STATUS_SUCCESS);
    EXPECT_EQ(framework::symbolicLinkTarget(u"\\??\\Test Link"), std::nullopt);
}

TEST_F(SymbolicLinkTest, AFailedAddTakesTheLinkAway) {
    Text name(u"\\DosDevices\\Test Link");
    loadDriver();
    afterCreate = [&] {
        EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &name), STATUS_SUCCESS);
        return STATUS_UNSUCCESSFUL;
    };
    const PDEVICE_OBJECT one = bus.plug();
    EXPECT_EQ(add(one), STATUS_SUCCESS);
    EXPECT_EQ(framework::symbolicLinkTarget(u"\\??\\Test Link"), std::nullopt);
    bus.unplug(one);
}

TEST_F(SymbolicLinkTest, Refusals) {
    Text name(u"\\DosDevices\\Test Link");
    Text nothing(u"");
    plugAndStart();
    EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &nothing), STATUS_INVALID_DEVICE_REQUEST);
    bus.properties[DevicePropertyPhysicalDeviceObjectName] = {};
    EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &name), STATUS_INVALID_DEVICE_STATE);
    bus.properties.erase(DevicePropertyPhysicalDeviceObjectName);
    EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &name), STATUS_OBJECT_NAME_NOT_FOUND);
    bus.properties[DevicePropertyPhysicalDeviceObjectName] = textBytes(u"\\Device\\1");
    int other = 0;
    kernel.objects.insert(&other, sim::ObjectType::other, u"\\??\\test LINK", [] {});
    EXPECT_EQ(WdfDeviceCreateSymbolicLink(device, &name), STATUS_OBJECT_NAME_COLLISION);
    kernel.objects.dereference(&other, nullptr);
}

class PreprocessTest : public FrameworkTest {
  protected:
    void assign(PFN_WDFDEVICE_WDM_IRP_PREPROCESS callback, UCHAR major, std::vector<UCHAR> minors = {}) {
        beforeCreate = [=](PWDFDEVICE_INIT init) {
            std::vector<UCHAR> list = minors;
            EXPECT_EQ(WdfDeviceInitAssignWdmIrpPreprocessCallback(init, callback, major, list.data(),
                                                                  static_cast<ULONG>(list.size())),
                      STATUS_SUCCESS);
        };
    }
    static NTSTATUS skipping(WDFDEVICE handle, PIRP irp) {
        noteEvent("preprocess");
        IoSkipCurrentIrpStackLocation(irp);
        return WdfDeviceWdmDispatchPreprocessedIrp(handle, irp);
    }
    static NTSTATUS copying(WDFDEVICE handle, PIRP irp) {
        IoCopyCurrentIrpStackLocationToNext(irp);
        return WdfDeviceWdmDispatchPreprocessedIrp(handle, irp);
    }
    static NTSTATUS careless(WDFDEVICE handle, PIRP irp) { return WdfDeviceWdmDispatchPreprocessedIrp(handle, irp); }
};

TEST_F(PreprocessTest, ShutdownOfAFunctionDriverCompletesWithSuccess) {
    makesFilter = false;
    assign(skipping, IRP_MJ_SHUTDOWN);
    afterCreate = [this] { return IoRegisterShutdownNotification(WdfDeviceWdmGetDeviceObject(device)); };
    plugAndStart();
    bus.seen.clear();
    sendShutdown();
    EXPECT_EQ(takeEvents(), Events{"preprocess"});
    EXPECT_EQ(bus.seen, Events{});
}

TEST_F(PreprocessTest, ALocationMayBeCopiedBecauseTheStackIsOneLarger) {
    assign(copying, IRP_MJ_WRITE);
    plugAndStart();
    TestIrp irp(WdfDeviceWdmGetDeviceObject(device)->StackSize);
    EXPECT_EQ(irp.major(IRP_MJ_WRITE).send(WdfDeviceWdmGetDeviceObject(device)), STATUS_SUCCESS);
    EXPECT_EQ(bus.seen.back(), "write");
}

TEST_F(PreprocessTest, NeitherSkipNorCopyIsAViolation) {
    assign(careless, IRP_MJ_WRITE);
    plugAndStart();
    auto irp = std::make_unique<TestIrp>(1);
    EXPECT_EQ(stoppedBy([&] { irp->major(IRP_MJ_WRITE).send(WdfDeviceWdmGetDeviceObject(device)); }), "stack location");
    IoSkipCurrentIrpStackLocation(irp->irp); // back with its creator
}

TEST_F(PreprocessTest, OnlyTheGivenMinorsAreSeen) {
    assign(skipping, IRP_MJ_PNP, {IRP_MN_QUERY_CAPABILITIES});
    plugAndStart();
    EXPECT_EQ(takeEvents(), Events{});
    pnp(IRP_MN_QUERY_CAPABILITIES);
    EXPECT_EQ(takeEvents(), Events{"preprocess"});
}

TEST_F(PreprocessTest, Refusals) {
    loadDriver();
    onAdd = [](PWDFDEVICE_INIT init) {
        UCHAR minor = 0;
        EXPECT_EQ(WdfDeviceInitAssignWdmIrpPreprocessCallback(init, skipping, IRP_MJ_MAXIMUM_FUNCTION + 1, nullptr, 0),
                  STATUS_INVALID_PARAMETER);
        EXPECT_EQ(WdfDeviceInitAssignWdmIrpPreprocessCallback(init, skipping, IRP_MJ_PNP, &minor, 1), STATUS_SUCCESS);
        EXPECT_EQ(WdfDeviceInitAssignWdmIrpPreprocessCallback(init, skipping, IRP_MJ_PNP, &minor, 1),
                  STATUS_INVALID_DEVICE_REQUEST);
        EXPECT_EQ(WdfDeviceInitAssignWdmIrpPreprocessCallback(init, skipping, IRP_MJ_PNP, nullptr, 0), STATUS_SUCCESS);
        return STATUS_SUCCESS;
    };
    const PDEVICE_OBJECT one = bus.plug();
    add(one);
    bus.unplug(one);
}

} // namespace

} // namespace sim::test
