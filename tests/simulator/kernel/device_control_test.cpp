#include "kernel_fixture.h"

#include <cstring>
#include <functional>
#include <optional>
#include <thread>

namespace sim::test {

namespace {

constexpr ULONG buffered = CTL_CODE(FILE_DEVICE_USB, 0x101, METHOD_BUFFERED, FILE_ANY_ACCESS);
constexpr ULONG neither = CTL_CODE(FILE_DEVICE_USB, 0x102, METHOD_NEITHER, FILE_ANY_ACCESS);

/// What the device answers, and how.
struct Answer {
    NTSTATUS status = STATUS_SUCCESS;
    ULONG_PTR information = 0;
    bool pended = false;
    std::function<void(PIRP)> look;
};

Answer *answer = nullptr;
std::optional<std::thread> completer;

void completeNow(PIRP irp) {
    irp->IoStatus.Status = answer->status;
    irp->IoStatus.Information = answer->information;
    IofCompleteRequest(irp, IO_NO_INCREMENT);
}

NTSTATUS answerAsTold(PDEVICE_OBJECT, PIRP irp) {
    if (answer->look) {
        answer->look(irp);
    }
    const NTSTATUS status = answer->status;
    if (answer->pended) {
        IoMarkIrpPending(irp);
        completer.emplace([irp] { completeNow(irp); });
        return STATUS_PENDING;
    }
    completeNow(irp);
    return status;
}

class DeviceControlTest : public KernelTest {
  protected:
    DeviceControlTest() : driver(createDriverObject(u"Test")) {
        for (PDRIVER_DISPATCH &routine : driver->MajorFunction) {
            routine = answerAsTold;
        }
        device = createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
        answer = &given;
        given.look = [this](PIRP irp) {
            location = *IoGetCurrentIrpStackLocation(irp);
            if (irp->AssociatedIrp.SystemBuffer != nullptr) {
                auto *bytes = static_cast<char *>(irp->AssociatedIrp.SystemBuffer);
                seen.assign(bytes, location.Parameters.DeviceIoControl.InputBufferLength);
                std::memset(bytes, 'z', location.Parameters.DeviceIoControl.OutputBufferLength);
            }
        };
        KeInitializeEvent(&event, NotificationEvent, FALSE);
    }
    ~DeviceControlTest() override { joinCompleter(); }

    static void joinCompleter() {
        if (completer) {
            completer->join();
            completer.reset();
        }
    }

    NTSTATUS send(ULONG code = buffered) {
        PIRP irp = IoBuildDeviceIoControlRequest(code, device, input, 3, output, sizeof output, FALSE, &event, &status);
        const NTSTATUS result = IofCallDriver(device, irp);
        if (result == STATUS_PENDING) {
            KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
        }
        return result;
    }
    bool eventSet() { return KeResetEvent(&event) != 0; }

    PDRIVER_OBJECT driver;
    PDEVICE_OBJECT device;
    Answer given;
    IO_STACK_LOCATION location{};
    std::string seen;
    char input[4] = "abc";
    char output[8] = "-------";
    KEVENT event;
    IO_STATUS_BLOCK status{{-1}, 99};
};

TEST_F(DeviceControlTest, bufferedAnswerIsCopiedAsLongAsReported) {
    given.information = 4;
    EXPECT_EQ(send(), STATUS_SUCCESS);
    EXPECT_EQ(seen, "abc");
    EXPECT_STREQ(output, "zzzz---");
    EXPECT_EQ(status.Status, STATUS_SUCCESS);
    EXPECT_EQ(status.Information, 4u);
    EXPECT_TRUE(eventSet());
    EXPECT_EQ(location.MajorFunction, IRP_MJ_DEVICE_CONTROL);
    EXPECT_EQ(location.Parameters.DeviceIoControl.IoControlCode, buffered);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(DeviceControlTest, warningCopiesToo) {
    given.status = STATUS_BUFFER_OVERFLOW;
    given.information = 2;
    EXPECT_EQ(send(), STATUS_BUFFER_OVERFLOW);
    EXPECT_STREQ(output, "zz-----");
    EXPECT_TRUE(eventSet());
}

TEST_F(DeviceControlTest, synchronousErrorShowsInTheReturnValueAlone) {
    given.status = STATUS_UNSUCCESSFUL;
    given.information = 4;
    EXPECT_EQ(send(), STATUS_UNSUCCESSFUL);
    EXPECT_STREQ(output, "-------");
    EXPECT_EQ(status.Status, -1);
    EXPECT_EQ(status.Information, 99u);
    EXPECT_FALSE(eventSet());
}

TEST_F(DeviceControlTest, pendedErrorShowsInStatusBlockAndEvent) {
    given.status = STATUS_UNSUCCESSFUL;
    given.pended = true;
    EXPECT_EQ(send(), STATUS_PENDING);
    EXPECT_EQ(status.Status, STATUS_UNSUCCESSFUL);
    EXPECT_STREQ(output, "-------");
}

TEST_F(DeviceControlTest, moreBytesThanTheCallerHasRoomForStops) {
    given.information = sizeof output + 1;
    EXPECT_EQ(stoppedBy([this] { send(); }), "io information");
}

TEST_F(DeviceControlTest, neitherMethodPassesTheCallersPointers) {
    given.look = [this](PIRP irp) {
        EXPECT_EQ(IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.Type3InputBuffer, input);
        EXPECT_EQ(irp->UserBuffer, output);
        EXPECT_EQ(irp->AssociatedIrp.SystemBuffer, nullptr);
    };
    EXPECT_EQ(send(neither), STATUS_SUCCESS);
}

TEST_F(DeviceControlTest, internalRequestsAndTheRequestor) {
    given.look = [](PIRP irp) {
        EXPECT_EQ(IoGetCurrentIrpStackLocation(irp)->MajorFunction, IRP_MJ_INTERNAL_DEVICE_CONTROL);
        EXPECT_EQ(irp->RequestorMode, KernelMode);
        EXPECT_EQ(IoGetRequestorProcessId(irp), 4u);
    };
    PIRP irp = IoBuildDeviceIoControlRequest(buffered, device, nullptr, 0, nullptr, 0, TRUE, &event, &status);
    EXPECT_EQ(IofCallDriver(device, irp), STATUS_SUCCESS);
}

TEST_F(DeviceControlTest, waitingAtApcLevelForOnesOwnRequestHangs) {
    given.pended = true;
    PIRP irp = IoBuildDeviceIoControlRequest(buffered, device, nullptr, 0, nullptr, 0, FALSE, &event, &status);
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr); }),
              "deadlock");
    IofCallDriver(device, irp);
    KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
}

TEST_F(DeviceControlTest, buildingCanFailAndForgettingIsALeak) {
    kernel.faults.failNamed("IoBuildDeviceIoControlRequest", 1, std::nullopt, false);
    kernel.faults.arm(true);
    EXPECT_EQ(IoBuildDeviceIoControlRequest(buffered, device, nullptr, 0, nullptr, 0, FALSE, &event, &status), nullptr);
    kernel.faults.clear();
    EXPECT_NE(IoBuildDeviceIoControlRequest(buffered, device, input, 3, nullptr, 0, FALSE, &event, &status), nullptr);
    ASSERT_EQ(kernel.leaks().size(), 1u);
    EXPECT_NE(kernel.leaks()[0].find("was never sent"), std::string::npos);
}

TEST_F(DeviceControlTest, badArgumentsStop) {
    EXPECT_EQ(stoppedBy([this] {
                  IoBuildDeviceIoControlRequest(buffered, device, nullptr, 3, nullptr, 0, FALSE, &event, &status);
              }),
              "io buffer");
    EXPECT_EQ(stoppedBy([this] {
                  IoBuildDeviceIoControlRequest(buffered | METHOD_OUT_DIRECT, device, input, 3, nullptr, 0, FALSE,
                                                &event, &status);
              }),
              "not simulated");
}

class IssueControlTest : public DeviceControlTest {
  protected:
    NTSTATUS issue(ULONG_PTR *information) {
        return FsRtlIssueDeviceIoControl(device, buffered, 0, input, 3, output, sizeof output, information);
    }
    ULONG_PTR information = 99;
};

TEST_F(IssueControlTest, returnsTheStatusBlocksStatus) {
    given.information = 2;
    EXPECT_EQ(issue(&information), STATUS_SUCCESS);
    EXPECT_EQ(information, 2u);
    EXPECT_STREQ(output, "zz-----");
}

TEST_F(IssueControlTest, errorsOfBothKinds) {
    given.status = STATUS_NOT_SUPPORTED;
    EXPECT_EQ(issue(&information), STATUS_NOT_SUPPORTED);
    given.pended = true;
    EXPECT_EQ(issue(&information), STATUS_NOT_SUPPORTED);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(IssueControlTest, informationIsRequired) {
    EXPECT_EQ(stoppedBy([this] { issue(nullptr); }), "argument");
}

TEST_F(IssueControlTest, goesToTheObjectGiven) {
    PDRIVER_OBJECT other = createDriverObject(u"Other");
    PDEVICE_OBJECT filter = createDevice(other, 0, FILE_DEVICE_UNKNOWN, 0);
    attachDevice(filter, device);
    EXPECT_EQ(issue(&information), STATUS_SUCCESS); // the filter would have refused
}

} // namespace

} // namespace sim::test
