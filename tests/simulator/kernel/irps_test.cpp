#include "kernel_fixture.h"

#include <functional>
#include <thread>
#include <vector>

namespace sim::test {

namespace {

constexpr NTSTATUS moreProcessingRequired = static_cast<NTSTATUS>(0xC0000016);

using Behaviour = std::function<NTSTATUS(PDEVICE_OBJECT, PIRP)>;

/// Device extension: what the device does with an IRP.
struct Extension {
    Behaviour *behaviour;
};

NTSTATUS dispatchAsTold(PDEVICE_OBJECT device, PIRP irp) {
    return (*static_cast<Extension *>(device->DeviceExtension)->behaviour)(device, irp);
}

NTSTATUS complete(PIRP irp, NTSTATUS status, ULONG_PTR information = 0) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IofCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

NTSTATUS passDown(PDEVICE_OBJECT device, PIRP irp) {
    IoSkipCurrentIrpStackLocation(irp);
    return IofCallDriver(device->DeviceObjectExtension->AttachedTo, irp);
}

class IrpsTest : public KernelTest {
  protected:
    IrpsTest() : driver(createDriverObject(u"Test")) {
        for (PDRIVER_DISPATCH &routine : driver->MajorFunction) {
            routine = dispatchAsTold;
        }
    }

    PDEVICE_OBJECT make(Behaviour &behaviour) {
        PDEVICE_OBJECT device = createDevice(driver, sizeof(Extension), FILE_DEVICE_UNKNOWN, 0);
        static_cast<Extension *>(device->DeviceExtension)->behaviour = &behaviour;
        return device;
    }

    /// An IRP of the given kind, ready to be sent.
    PIRP request(PDEVICE_OBJECT device) {
        PIRP irp = allocateIrp(device->StackSize, nullptr);
        IoGetNextIrpStackLocation(irp)->MajorFunction = IRP_MJ_DEVICE_CONTROL;
        return irp;
    }

    PDRIVER_OBJECT driver;
    Behaviour succeed = [](PDEVICE_OBJECT, PIRP irp) { return complete(irp, STATUS_SUCCESS, 3); };
    Behaviour forward = passDown;
};

TEST_F(IrpsTest, newIrpHasItsLocations) {
    PIRP irp = allocateIrp(3, nullptr);
    EXPECT_EQ(irp->StackCount, 3);
    EXPECT_EQ(irp->CurrentLocation, 4);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(irp) % 16, 0u);
    EXPECT_EQ(irp->Size, sizeof(IRP) + 3 * sizeof(IO_STACK_LOCATION));
    EXPECT_EQ(leakedIrps().size(), 1u);
    freeIrp(irp);
    EXPECT_TRUE(leakedIrps().empty());
    EXPECT_EQ(stoppedBy([&] { freeIrp(irp); }), "irp");
}

TEST_F(IrpsTest, sendAndWaitTravelsThroughTheStack) {
    PDEVICE_OBJECT lower = make(succeed);
    PDEVICE_OBJECT upper = make(forward);
    attachDevice(upper, lower);
    PIRP irp = request(upper);
    EXPECT_EQ(sendAndWait(upper, irp), STATUS_SUCCESS);
    EXPECT_EQ(irp->IoStatus.Information, 3u);
    freeIrp(irp);
}

struct CompletionLog {
    std::vector<PDEVICE_OBJECT> devices;
    bool pendingReturned = false;
    NTSTATUS answer = STATUS_SUCCESS;
};

NTSTATUS logCompletion(PDEVICE_OBJECT device, PIRP irp, PVOID context) {
    auto *log = static_cast<CompletionLog *>(context);
    log->devices.push_back(device);
    log->pendingReturned = irp->PendingReturned != FALSE;
    if (irp->PendingReturned && device != nullptr) {
        IoMarkIrpPending(irp);
    }
    return log->answer;
}

TEST_F(IrpsTest, completionRoutinesRunAsTheirFlagsSay) {
    NTSTATUS status = STATUS_SUCCESS;
    Behaviour answer = [&](PDEVICE_OBJECT, PIRP irp) { return complete(irp, status); };
    CompletionLog onSuccess;
    BOOLEAN success = TRUE;
    Behaviour watch = [&](PDEVICE_OBJECT device, PIRP irp) {
        IoCopyCurrentIrpStackLocationToNext(irp);
        IoSetCompletionRoutine(irp, logCompletion, &onSuccess, success, !success, FALSE);
        return IofCallDriver(device->DeviceObjectExtension->AttachedTo, irp);
    };
    PDEVICE_OBJECT lower = make(answer);
    PDEVICE_OBJECT upper = make(watch);
    attachDevice(upper, lower);
    const auto send = [&] {
        PIRP irp = request(upper);
        const NTSTATUS result = sendAndWait(upper, irp);
        freeIrp(irp);
        return result;
    };
    EXPECT_EQ(send(), STATUS_SUCCESS);
    ASSERT_EQ(onSuccess.devices.size(), 1u);
    EXPECT_EQ(onSuccess.devices[0], upper); // the device that set the routine
    status = STATUS_UNSUCCESSFUL;
    EXPECT_EQ(send(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(onSuccess.devices.size(), 1u);
    success = FALSE;
    EXPECT_EQ(send(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(onSuccess.devices.size(), 2u);
}

TEST_F(IrpsTest, moreProcessingRequiredStopsTheWayUp) {
    CompletionLog log;
    log.answer = moreProcessingRequired;
    Behaviour retry = [&](PDEVICE_OBJECT device, PIRP irp) {
        IoCopyCurrentIrpStackLocationToNext(irp);
        IoSetCompletionRoutine(irp, logCompletion, &log, TRUE, TRUE, TRUE);
        IofCallDriver(device->DeviceObjectExtension->AttachedTo, irp);
        return complete(irp, STATUS_DEVICE_BUSY);
    };
    PDEVICE_OBJECT lower = make(succeed);
    PDEVICE_OBJECT upper = make(retry);
    attachDevice(upper, lower);
    PIRP irp = request(upper);
    EXPECT_EQ(sendAndWait(upper, irp), STATUS_DEVICE_BUSY);
    EXPECT_EQ(log.devices.size(), 1u);
    freeIrp(irp);
}

TEST_F(IrpsTest, pendingTravelsUpOnItsOwn) {
    std::thread completer;
    Behaviour pend = [&](PDEVICE_OBJECT, PIRP irp) {
        IoMarkIrpPending(irp);
        completer = std::thread([irp] { complete(irp, STATUS_SUCCESS, 9); });
        return STATUS_PENDING;
    };
    Behaviour copyDown = [](PDEVICE_OBJECT device, PIRP irp) {
        IoCopyCurrentIrpStackLocationToNext(irp);
        return IofCallDriver(device->DeviceObjectExtension->AttachedTo, irp);
    };
    PDEVICE_OBJECT lower = make(pend);
    PDEVICE_OBJECT upper = make(copyDown);
    attachDevice(upper, lower);
    PIRP irp = request(upper);
    EXPECT_EQ(sendAndWait(upper, irp), STATUS_SUCCESS);
    EXPECT_EQ(irp->IoStatus.Information, 9u);
    completer.join();
    freeIrp(irp);
}

TEST_F(IrpsTest, doubleCompletionStops) {
    Behaviour twice = [](PDEVICE_OBJECT, PIRP irp) {
        complete(irp, STATUS_SUCCESS);
        return complete(irp, STATUS_SUCCESS);
    };
    PDEVICE_OBJECT device = make(twice);
    PIRP irp = request(device);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(device, irp); }), "double completion");
    freeIrp(irp);
    EXPECT_EQ(stoppedBy([&] { IofCompleteRequest(irp, IO_NO_INCREMENT); }), "double completion");
}

TEST_F(IrpsTest, completionWithPendingStatusOrCancelRoutineStops) {
    Behaviour pending = [](PDEVICE_OBJECT, PIRP irp) { return complete(irp, STATUS_PENDING); };
    PDEVICE_OBJECT device = make(pending);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(device, request(device)); }), "irp status");
    Behaviour cancellable = [](PDEVICE_OBJECT, PIRP irp) {
        irp->CancelRoutine = [](PDEVICE_OBJECT, PIRP) {};
        return complete(irp, STATUS_SUCCESS);
    };
    PDEVICE_OBJECT other = make(cancellable);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(other, request(other)); }), "irp cancel routine");
}

TEST_F(IrpsTest, returnValueMustFitWhatWasDone) {
    Behaviour forgotten = [](PDEVICE_OBJECT, PIRP) { return STATUS_SUCCESS; };
    PDEVICE_OBJECT first = make(forgotten);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(first, request(first)); }), "irp not completed");
    Behaviour unmarked = [](PDEVICE_OBJECT, PIRP irp) {
        complete(irp, STATUS_SUCCESS);
        return STATUS_PENDING;
    };
    PDEVICE_OBJECT second = make(unmarked);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(second, request(second)); }), "irp pending");
    Behaviour marked = [](PDEVICE_OBJECT, PIRP irp) {
        IoMarkIrpPending(irp);
        return complete(irp, STATUS_SUCCESS);
    };
    PDEVICE_OBJECT third = make(marked);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(third, request(third)); }), "irp pending");
}

TEST_F(IrpsTest, stackLocationsRunOut) {
    PDEVICE_OBJECT lower = make(succeed);
    PDEVICE_OBJECT upper = make(forward);
    attachDevice(upper, lower);
    Behaviour copyDown = [](PDEVICE_OBJECT device, PIRP irp) {
        return IofCallDriver(device->DeviceObjectExtension->AttachedTo, irp);
    };
    static_cast<Extension *>(upper->DeviceExtension)->behaviour = &copyDown;
    PIRP irp = allocateIrp(1, nullptr);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(upper, irp); }), "irp stack");
}

TEST_F(IrpsTest, dispatchRoutineThatRaisesIrqlStops) {
    Behaviour raise = [](PDEVICE_OBJECT, PIRP irp) {
        const NTSTATUS status = complete(irp, STATUS_SUCCESS);
        currentThread().irql = DISPATCH_LEVEL;
        return status;
    };
    PDEVICE_OBJECT device = make(raise);
    PIRP irp = request(device);
    EXPECT_EQ(stoppedBy([&] { sendAndWait(device, irp); }), "callback contract");
    currentThread().irql = PASSIVE_LEVEL;
    freeIrp(irp);
}

TEST_F(IrpsTest, pnpIrpStartsAsNotSupported) {
    NTSTATUS preset = STATUS_SUCCESS;
    UCHAR minor = 0;
    Behaviour look = [&](PDEVICE_OBJECT, PIRP irp) {
        preset = irp->IoStatus.Status;
        minor = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
        return complete(irp, irp->IoStatus.Status, irp->IoStatus.Information);
    };
    Behaviour down = passDown;
    PDEVICE_OBJECT physical = make(look);
    PDEVICE_OBJECT filter = make(down);
    attachDevice(filter, physical);
    DEVICE_CAPABILITIES capabilities{};
    const PnpResult result = sendPnpIrp(
        physical, IRP_MN_QUERY_CAPABILITIES,
        [](PIO_STACK_LOCATION location, void *context) {
            location->Parameters.DeviceCapabilities.Capabilities = static_cast<PDEVICE_CAPABILITIES>(context);
        },
        &capabilities);
    EXPECT_EQ(result.status, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(preset, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(minor, IRP_MN_QUERY_CAPABILITIES);
}

TEST_F(IrpsTest, unsetMajorFunctionsRefuse) {
    PDRIVER_OBJECT bare = createDriverObject(u"Bare");
    PDEVICE_OBJECT device = createDevice(bare, 0, FILE_DEVICE_UNKNOWN, 0);
    EXPECT_EQ(sendPnpIrp(device, IRP_MN_START_DEVICE, nullptr, nullptr).status, STATUS_INVALID_DEVICE_REQUEST);
}

VOID cancelRoutine(PDEVICE_OBJECT, PIRP irp) {
    EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
    releaseCancelLock(irp->CancelIrql);
    complete(irp, STATUS_CANCELLED);
}

TEST_F(IrpsTest, cancellingCallsTheRoutineOnce) {
    Behaviour hold = [](PDEVICE_OBJECT, PIRP irp) {
        irp->CancelRoutine = cancelRoutine;
        IoMarkIrpPending(irp);
        return STATUS_PENDING;
    };
    PDEVICE_OBJECT device = make(hold);
    PIRP irp = request(device);
    CompletionLog log;
    log.answer = moreProcessingRequired;
    IoSetCompletionRoutine(irp, logCompletion, &log, FALSE, FALSE, TRUE);
    EXPECT_EQ(IofCallDriver(device, irp), STATUS_PENDING);
    EXPECT_EQ(stoppedBy([&] { freeIrp(irp); }), "irp");
    EXPECT_TRUE(cancelIrp(irp));
    EXPECT_EQ(log.devices, std::vector<PDEVICE_OBJECT>{nullptr});
    EXPECT_TRUE(log.pendingReturned);
    EXPECT_EQ(irp->IoStatus.Status, STATUS_CANCELLED);
    EXPECT_FALSE(cancelIrp(irp));
    freeIrp(irp);
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
}

TEST_F(IrpsTest, reusedIrpIsFresh) {
    PDEVICE_OBJECT device = make(succeed);
    PIRP irp = request(device);
    sendAndWait(device, irp);
    reuseIrp(irp, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(irp->IoStatus.Status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(irp->CurrentLocation, 2);
    IoGetNextIrpStackLocation(irp)->MajorFunction = IRP_MJ_READ;
    EXPECT_EQ(sendAndWait(device, irp), STATUS_SUCCESS);
    freeIrp(irp);
}

TEST_F(IrpsTest, requestorProcessIsThatOfTheThread) {
    PIRP irp = allocateIrp(1, nullptr);
    EXPECT_EQ(IoGetRequestorProcessId(irp), 0u);
    setIrpThread(irp);
    EXPECT_EQ(IoGetRequestorProcessId(irp), 4u);
    currentThread().processId = 777;
    EXPECT_EQ(IoGetRequestorProcessId(irp), 777u);
    freeIrp(irp);
}

TEST_F(IrpsTest, manyThreadsSendAtOnce) {
    PDEVICE_OBJECT lower = make(succeed);
    PDEVICE_OBJECT upper = make(forward);
    attachDevice(upper, lower);
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                PIRP irp = request(upper);
                EXPECT_EQ(sendAndWait(upper, irp), STATUS_SUCCESS);
                freeIrp(irp);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(kernel.leaks().empty());
}

std::vector<PDEVICE_OBJECT> shutDown;

TEST_F(IrpsTest, shutdownReachesRegisteredDevicesLastFirst) {
    Behaviour note = [](PDEVICE_OBJECT device, PIRP irp) {
        EXPECT_EQ(IoGetCurrentIrpStackLocation(irp)->MajorFunction, IRP_MJ_SHUTDOWN);
        shutDown.push_back(device);
        return complete(irp, STATUS_SUCCESS);
    };
    PDEVICE_OBJECT a = make(note);
    PDEVICE_OBJECT b = make(note);
    PDEVICE_OBJECT c = make(note);
    PDEVICE_OBJECT d = make(note);
    for (PDEVICE_OBJECT device : {a, b, c, a}) {
        EXPECT_EQ(IoRegisterShutdownNotification(device), STATUS_SUCCESS);
    }
    EXPECT_NE(a->Flags & DO_SHUTDOWN_REGISTERED, 0u);
    EXPECT_EQ(d->Flags & DO_SHUTDOWN_REGISTERED, 0u);
    shutDown.clear();
    sendShutdown();
    EXPECT_EQ(shutDown, (std::vector<PDEVICE_OBJECT>{a, c, b, a}));
    IoUnregisterShutdownNotification(a);
    deleteDevice(c);
    shutDown.clear();
    sendShutdown();
    EXPECT_EQ(shutDown, std::vector<PDEVICE_OBJECT>{b});
}

} // namespace

} // namespace sim::test
