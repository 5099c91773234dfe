// Power-managed queues, holding, purging, and the power state change callbacks.

#include "queue_fixture.h"

namespace sim::test {

namespace {

using Events = std::vector<std::string>;

class QueuePowerTest : public QueueTest {
  protected:
    QueuePowerTest() {
        const auto createDefault = afterCreate;
        afterCreate = [this, createDefault] {
            const NTSTATUS status = createDefault();
            managed = manualQueue(WdfUseDefault);
            return status;
        };
    }
    static VOID stateChanged(WDFDEVICE, PCWDF_DEVICE_POWER_NOTIFICATION_DATA data) {
        noteEvent(std::to_string(data->Type) + " " + hex(data->Data.EnterState.CurrentState) + " " +
                  hex(data->Data.EnterState.NewState));
    }
    void registerCallback() {
        beforeCreate = [](PWDFDEVICE_INIT init) {
            EXPECT_EQ(WdfDeviceInitRegisterPowerStateChangeCallback(init, WdfDevStatePowerGotoDx, stateChanged,
                                                                    StateNotificationAllStates),
                      STATUS_SUCCESS);
        };
    }
    WDFQUEUE managed = nullptr;
};

TEST_F(QueuePowerTest, ManagedQueuesAreOffBeforeD0) {
    int calls = 0;
    plugAndStart(false);
    notifyOn(managed, [&](WDFQUEUE) { ++calls; });
    EXPECT_NE(WdfIoQueueGetState(managed, nullptr, nullptr) & WdfIoQueuePnpHeld, 0);
    TestIrp irp;
    presentAndForward(irp, managed); // accepted
    WDFREQUEST request = nullptr;
    EXPECT_EQ(WdfIoQueueRetrieveNextRequest(managed, &request), STATUS_WDF_PAUSED);
    WDFREQUEST found = nullptr;
    ASSERT_EQ(WdfIoQueueFindRequest(managed, nullptr, nullptr, nullptr, &found), STATUS_SUCCESS);
    EXPECT_EQ(WdfIoQueueRetrieveFoundRequest(managed, found, &request), STATUS_WDF_PAUSED);
    WdfObjectDereference(found);
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(pnp(IRP_MN_START_DEVICE), STATUS_SUCCESS);
    EXPECT_EQ(calls, 1); // power-up notifies
    EXPECT_EQ(WdfIoQueueGetState(managed, nullptr, nullptr) & WdfIoQueuePnpHeld, 0);
    WdfRequestComplete(retrieve(managed), STATUS_SUCCESS);
}

TEST_F(QueuePowerTest, AFiltersQueuesAreNotManagedByDefault) {
    makesFilter = true;
    plugAndStart(false);
    EXPECT_EQ(WdfIoQueueGetState(managed, nullptr, nullptr) & WdfIoQueuePnpHeld, 0);
}

TEST_F(QueuePowerTest, LeavingD0StopsTheDriversRequests) {
    plugAndStart();
    Events stops;
    onStop = [&](WDFREQUEST request, ULONG action) {
        stops.push_back(std::to_string(action));
        WdfRequestComplete(request, STATUS_DEVICE_NOT_READY);
    };
    TestIrp kept;
    TestIrp waiting;
    presentAndForward(kept, managed);
    retrieve(managed);
    presentAndForward(waiting, managed);
    TestIrp unmanaged;
    const WDFREQUEST request = present(unmanaged);
    ASSERT_EQ(bus.power(physical, DevicePowerState, PowerDeviceD3), STATUS_SUCCESS);
    EXPECT_EQ(stops, Events{std::to_string(WdfRequestStopActionSuspend)});
    EXPECT_EQ(kept.status(), STATUS_DEVICE_NOT_READY);
    EXPECT_FALSE(waiting.completed()); // stays queued, not reported
    EXPECT_FALSE(unmanaged.completed());
    EXPECT_TRUE(waiting.cancel()); // cancellation works while off
    WdfRequestComplete(request, STATUS_SUCCESS);
    ASSERT_EQ(bus.power(physical, DevicePowerState, PowerDeviceD0), STATUS_SUCCESS);
}

TEST_F(QueuePowerTest, GotoDxIsSeenOnSleepWithTheOldStateAsCurrent) {
    registerCallback();
    plugAndStart();
    EXPECT_EQ(takeEvents(), Events{}); // not on start
    ASSERT_EQ(bus.power(physical, SystemPowerState, PowerSystemSleeping3), STATUS_SUCCESS);
    EXPECT_EQ(takeEvents(), (Events{"1 0x307 0x31a", "2 0x31a 0x0", "4 0x31a 0x359"}));
    ASSERT_EQ(bus.power(physical, SystemPowerState, PowerSystemWorking), STATUS_SUCCESS);
    EXPECT_EQ(takeEvents(), Events{});
    EXPECT_EQ(WdfIoQueueGetState(managed, nullptr, nullptr) & WdfIoQueuePnpHeld, 0);
    removeDevice();
    EXPECT_EQ(takeEvents(), Events{}); // not on removal
}

TEST_F(QueuePowerTest, GotoDxIsNotSeenOnADeviceThatIsNotPageable) {
    registerCallback();
    plugAndStart();
    deviceObject()->Flags &= ~DO_POWER_PAGABLE;
    ASSERT_EQ(bus.power(physical, DevicePowerState, PowerDeviceD3), STATUS_SUCCESS);
    EXPECT_EQ(takeEvents(), Events{});
}

TEST_F(QueuePowerTest, RegistrationIsValidated) {
    beforeCreate = [this](PWDFDEVICE_INIT init) {
        const auto attempt = [init](ULONG state, ULONG types) {
            return WdfDeviceInitRegisterPowerStateChangeCallback(init, static_cast<WDF_DEVICE_POWER_STATE>(state),
                                                                 stateChanged, types);
        };
        EXPECT_EQ(attempt(0x2FF, 7), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(attempt(0x369, 7), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(attempt(0x31A, 0), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(attempt(0x31A, 8), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(attempt(0x831B, 7), STATUS_SUCCESS);
        EXPECT_NE(stoppedBy([&] { attempt(0x305, 7); }), "");
        kernel.faults.failNamed("WdfDeviceInitRegisterPowerStateChangeCallback", 1, std::nullopt, false);
        kernel.faults.arm(true);
        EXPECT_EQ(attempt(0x31A, 7), STATUS_INVALID_PARAMETER); // lack of memory has the same status
        kernel.faults.arm(false);
    };
    plugAndStart();
}

TEST_F(QueuePowerTest, SurpriseRemovalPurgesManagedQueuesAndLaterForwardsAreBusy) {
    plugAndStart();
    TestIrp waiting;
    presentAndForward(waiting, managed);
    ASSERT_EQ(pnp(IRP_MN_SURPRISE_REMOVAL), STATUS_SUCCESS);
    EXPECT_EQ(waiting.status(), STATUS_CANCELLED);
    TestIrp late; // the other queue still takes requests
    const WDFREQUEST request = present(late);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(WdfRequestForwardToIoQueue(request, managed), STATUS_WDF_BUSY);
    EXPECT_EQ(ownedFrom(defaultQueue), 1u);
    ULONG action = 0;
    onStop = [&](WDFREQUEST stopped, ULONG flags) {
        action = flags;
        WdfRequestComplete(stopped, STATUS_SUCCESS);
    };
    removeDevice();
    EXPECT_EQ(action, ULONG(WdfRequestStopActionPurge));
    EXPECT_TRUE(late.completed());
}

TEST_F(QueuePowerTest, OrderOfStartAndRemovalCallbacks) {
    beforeCreate = [](PWDFDEVICE_INIT init) {
        WDF_PNPPOWER_EVENT_CALLBACKS callbacks;
        WDF_PNPPOWER_EVENT_CALLBACKS_INIT(&callbacks);
        callbacks.EvtDevicePrepareHardware = [](WDFDEVICE, WDFCMRESLIST, WDFCMRESLIST) -> NTSTATUS {
            noteEvent("prepare");
            return STATUS_SUCCESS;
        };
        callbacks.EvtDeviceD0Entry = [](WDFDEVICE, WDF_POWER_DEVICE_STATE previous) -> NTSTATUS {
            noteEvent("D0 from " + std::to_string(previous));
            return STATUS_SUCCESS;
        };
        callbacks.EvtDeviceD0Exit = [](WDFDEVICE, WDF_POWER_DEVICE_STATE target) -> NTSTATUS {
            noteEvent("D0 to " + std::to_string(target));
            return STATUS_SUCCESS;
        };
        callbacks.EvtDeviceReleaseHardware = [](WDFDEVICE, WDFCMRESLIST) -> NTSTATUS {
            noteEvent("release");
            return STATUS_SUCCESS;
        };
        WdfDeviceInitSetPnpPowerEventCallbacks(init, &callbacks);
    };
    bus.answer = [this](PIRP irp) -> std::optional<NTSTATUS> {
        if (IoGetCurrentIrpStackLocation(irp)->MajorFunction == IRP_MJ_PNP) {
            note("bus " + std::to_string(IoGetCurrentIrpStackLocation(irp)->MinorFunction));
        }
        return std::nullopt;
    };
    plugAndStart();
    bus.power(physical, DevicePowerState, PowerDeviceD2);
    bus.power(physical, DevicePowerState, PowerDeviceD0);
    removeDevice();
    EXPECT_EQ(takeEvents(),
              (Events{"bus 0", "prepare", "D0 from 5", "D0 to 3", "D0 from 3", "D0 to 5", "release", "bus 2"}));
}

} // namespace

} // namespace sim::test
