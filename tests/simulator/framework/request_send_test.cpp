// Requests of the driver: creation, formatting, sending, time-outs, what comes back.

#include "queue_fixture.h"

#include <cstring>
#include <thread>

namespace sim::test {

namespace {

/// A filter that sends to the bus below it through a target of its own.
class RequestSendTest : public FrameworkTest {
  protected:
    RequestSendTest() {
        plugAndStart();
        openTarget();
        WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
    }
    void openTarget() {
        EXPECT_EQ(WdfIoTargetCreate(device, nullptr, &target), STATUS_SUCCESS);
        WDF_IO_TARGET_OPEN_PARAMS parameters;
        WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, physical);
        EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_SUCCESS);
    }
    WDFREQUEST makeRequest() {
        WDFREQUEST request = nullptr;
        EXPECT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
        return request;
    }
    WDFMEMORY lend(void *buffer, size_t bytes, WDFREQUEST parent) {
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = parent;
        WDFMEMORY memory = nullptr;
        EXPECT_EQ(WdfMemoryCreatePreallocated(&attributes, buffer, bytes, &memory), STATUS_SUCCESS);
        return memory;
    }
    static bool isControl(PIRP irp) {
        const UCHAR major = IoGetCurrentIrpStackLocation(irp)->MajorFunction;
        return major == IRP_MJ_DEVICE_CONTROL || major == IRP_MJ_INTERNAL_DEVICE_CONTROL;
    }
    /// The bus completes controls with this.
    void answerWith(NTSTATUS status, ULONG_PTR information, std::string bytes = {}) {
        bus.answer = [=](PIRP irp) -> std::optional<NTSTATUS> {
            if (!isControl(irp)) {
                return std::nullopt;
            }
            std::memcpy(irp->AssociatedIrp.SystemBuffer, bytes.data(), bytes.size());
            irp->IoStatus.Information = information;
            return status;
        };
    }
    void holdIrps() {
        bus.answer = [this](PIRP irp) -> std::optional<NTSTATUS> {
            if (!isControl(irp)) {
                return std::nullopt;
            }
            held = irp;
            return STATUS_PENDING;
        };
    }
    /// Like a driver that honours cancellation.
    void holdCancellable() {
        bus.answer = [this](PIRP irp) -> std::optional<NTSTATUS> {
            if (!isControl(irp)) {
                return std::nullopt;
            }
            IoMarkIrpPending(irp);
            __atomic_store_n(&irp->CancelRoutine, cancelled, __ATOMIC_SEQ_CST);
            held = irp;
            return STATUS_PENDING;
        };
    }
    static VOID cancelled(PDEVICE_OBJECT, PIRP irp) {
        releaseCancelLock(irp->CancelIrql);
        irp->IoStatus.Status = STATUS_CANCELLED;
        irp->IoStatus.Information = 0;
        IofCompleteRequest(irp, IO_NO_INCREMENT);
    }
    void awaitHeld() {
        while (!held) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // until the sender waits
    }

    WDFIOTARGET target = nullptr;
    WDF_REQUEST_SEND_OPTIONS options{};
    std::atomic<PIRP> held{nullptr};
};

TEST_F(RequestSendTest, OpenAsksTheStackForItsPhysicalDeviceAndKeepsIt) {
    EXPECT_EQ(bus.seen.back(), "pnp 7");
    const long referenced = kernel.objects.references(physical);
    WDF_IO_TARGET_OPEN_PARAMS parameters;
    WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, physical);
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_INVALID_DEVICE_STATE);
    WdfIoTargetClose(target);
    EXPECT_EQ(kernel.objects.references(physical), referenced - 1);
    WDFREQUEST request = nullptr;
    EXPECT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_INVALID_DEVICE_STATE);
    parameters.TargetDeviceObject = nullptr;
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_INVALID_PARAMETER);
    parameters.Size = 4;
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_INFO_LENGTH_MISMATCH);
    WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, physical);
    parameters.EvtIoTargetQueryRemove = [](WDFIOTARGET) -> NTSTATUS { return STATUS_SUCCESS; };
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_INVALID_PARAMETER);
    parameters.EvtIoTargetQueryRemove = nullptr;
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_SUCCESS); // may be reopened
    bus.answer = [](PIRP) { return STATUS_INSUFFICIENT_RESOURCES; };
    WdfIoTargetClose(target);
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_INSUFFICIENT_RESOURCES);
    bus.answer = [](PIRP) { return STATUS_UNSUCCESSFUL; };
    EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_SUCCESS); // any other failure is ignored
    bus.answer = [](PIRP) { return std::nullopt; };
}

TEST_F(RequestSendTest, SynchronousSendIsTrueOnFailureToo) {
    char input[8] = "abcdefg";
    char output[16] = "untouched";
    const WDFREQUEST request = makeRequest();
    const WDFMEMORY in = lend(input, sizeof input, request);
    const WDFMEMORY out = lend(output, sizeof output, request);
    ASSERT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, in, nullptr, out, nullptr),
              STATUS_SUCCESS);
    answerWith(STATUS_UNSUCCESSFUL, 0, "written");
    EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_UNSUCCESSFUL);
    EXPECT_STREQ(output, "untouched");
}

TEST_F(RequestSendTest, InputIsTakenWhenFormattedAndOutputIsInformationBytesWhateverTheStatus) {
    char buffer[16] = "first";
    const WDFREQUEST request = makeRequest();
    const WDFMEMORY memory = lend(buffer, sizeof buffer, request);
    ASSERT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, memory, nullptr, memory, nullptr),
              STATUS_SUCCESS);
    std::strcpy(buffer, "second");
    std::string seen;
    bus.answer = [&](PIRP irp) -> std::optional<NTSTATUS> {
        if (!isControl(irp)) {
            return std::nullopt;
        }
        char *shared = static_cast<char *>(irp->AssociatedIrp.SystemBuffer);
        seen = shared;
        EXPECT_EQ(IoGetCurrentIrpStackLocation(irp)->FileObject, nullptr);
        EXPECT_EQ(IoGetRequestorProcessId(irp), 0u);
        std::memcpy(shared, "XYZ", 3);
        irp->IoStatus.Information = 2;
        return STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE);
    EXPECT_EQ(seen, "first");
    EXPECT_STREQ(buffer, "XYcond");
    EXPECT_EQ(WdfRequestGetInformation(request), 2u);
}

TEST_F(RequestSendTest, TooMuchInformationIsReportedAsAnOverrun) {
    char output[4];
    const WDFREQUEST request = makeRequest();
    const WDFMEMORY out = lend(output, sizeof output, request);
    ASSERT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, out, nullptr),
              STATUS_SUCCESS);
    answerWith(STATUS_SUCCESS, 5);
    EXPECT_DEATH(
        {
            setBugCheckHandler({});
            WdfRequestSend(request, target, &options);
        },
        "overrun");
}

TEST_F(RequestSendTest, OffsetsAndLengths) {
    char input[8];
    const WDFREQUEST request = makeRequest();
    const WDFMEMORY in = lend(input, sizeof input, request);
    WDFMEMORY_OFFSET offset{4, 5};
    EXPECT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, in, &offset, nullptr, nullptr),
              STATUS_INTEGER_OVERFLOW);
    offset = {9, 0};
    EXPECT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, in, &offset, nullptr, nullptr),
              STATUS_INTEGER_OVERFLOW);
    offset = {4, 4};
    EXPECT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, in, &offset, nullptr, nullptr),
              STATUS_SUCCESS);
}

TEST_F(RequestSendTest, RefusedSendsAreFalseWithTheirStatus) {
    const WDFREQUEST request = makeRequest();
    EXPECT_EQ(stoppedBy([&] { WdfRequestSend(request, target, &options); }), "framework verifier"); // not formatted
    ASSERT_EQ(
        WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, nullptr, nullptr),
        STATUS_SUCCESS);
    options.Flags |= 0x40;
    EXPECT_EQ(WdfRequestSend(request, target, &options), FALSE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INVALID_PARAMETER);
    options.Flags = WDF_REQUEST_SEND_OPTION_SYNCHRONOUS | WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET;
    EXPECT_EQ(WdfRequestSend(request, target, &options), FALSE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INVALID_PARAMETER);
    options.Flags = WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET;
    EXPECT_EQ(WdfRequestSend(request, target, &options), FALSE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INVALID_DEVICE_STATE);
    options.Flags = WDF_REQUEST_SEND_OPTION_SYNCHRONOUS;
    WdfIoTargetClose(target);
    EXPECT_EQ(WdfRequestSend(request, target, &options), FALSE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(
        WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, nullptr, nullptr),
        STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { WdfRequestSend(request, target, &options); }), "irql");
}

TEST_F(RequestSendTest, ATimeOutCancelsAndBecomesIoTimeout) {
    const WDFREQUEST request = makeRequest();
    char output[16] = "untouched";
    const WDFMEMORY out = lend(output, sizeof output, request);
    ASSERT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, out, nullptr),
              STATUS_SUCCESS);
    holdCancellable();
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, WDF_REL_TIMEOUT_IN_SEC(30));
    std::thread sender([&] { EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE); });
    awaitHeld();
    kernel.clock.advance(30 * 10'000'000LL);
    sender.join();
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_TIMEOUT);
    EXPECT_STREQ(output, "untouched");
}

TEST_F(RequestSendTest, AReceiverThatDoesNotCancelKeepsTheSender) {
    const WDFREQUEST request = makeRequest();
    ASSERT_EQ(
        WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, nullptr, nullptr),
        STATUS_SUCCESS);
    holdIrps();
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, WDF_REL_TIMEOUT_IN_SEC(1));
    std::atomic<bool> back = false;
    std::thread sender([&] {
        EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE);
        back = true;
    });
    awaitHeld();
    kernel.clock.advance(10'000'000);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(back);
    held.load()->IoStatus.Status = STATUS_SUCCESS; // any other status than "cancelled" is kept
    IofCompleteRequest(held, IO_NO_INCREMENT);
    sender.join();
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_SUCCESS);
}

TEST_F(RequestSendTest, TimeOutOfZeroWaitsForEver) {
    const WDFREQUEST request = makeRequest();
    ASSERT_EQ(
        WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, nullptr, nullptr),
        STATUS_SUCCESS);
    holdCancellable();
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, 0);
    std::thread sender([&] { EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE); });
    awaitHeld();
    kernel.clock.advance(1'000'000'000'000);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(stoppedBy([&] { WdfRequestSend(request, target, &options); }), "request"); // under way
    EXPECT_TRUE(cancelIrp(held));
    sender.join();
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_CANCELLED); // not by the timer
}

TEST_F(RequestSendTest, ClosingTheTargetCancelsWhatWasSent) {
    const WDFREQUEST request = makeRequest();
    ASSERT_EQ(
        WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, nullptr, nullptr),
        STATUS_SUCCESS);
    holdCancellable();
    std::thread sender([&] { EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE); });
    awaitHeld();
    WdfIoTargetClose(target);
    sender.join();
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_CANCELLED);
    bus.answer = [](PIRP) { return std::nullopt; };
}

TEST_F(RequestSendTest, StackLocationFormatAndPresetStatus) {
    const WDFREQUEST request = makeRequest();
    WDF_REQUEST_REUSE_PARAMS reuse;
    WDF_REQUEST_REUSE_PARAMS_INIT(&reuse, WDF_REQUEST_REUSE_NO_FLAGS, STATUS_NOT_SUPPORTED);
    ASSERT_EQ(WdfRequestReuse(request, &reuse), STATUS_SUCCESS);
    DEVICE_CAPABILITIES capabilities{};
    IO_STACK_LOCATION location{};
    location.MajorFunction = IRP_MJ_PNP;
    location.MinorFunction = IRP_MN_QUERY_CAPABILITIES;
    location.Parameters.DeviceCapabilities.Capabilities = &capabilities;
    bus.answer = [&](PIRP irp) -> std::optional<NTSTATUS> {
        EXPECT_EQ(irp->IoStatus.Status, STATUS_NOT_SUPPORTED);
        IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceCapabilities.Capabilities->Address = 3;
        return STATUS_SUCCESS;
    };
    WdfRequestWdmFormatUsingStackLocation(request, &location);
    EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_SUCCESS);
    EXPECT_EQ(capabilities.Address, 3u);
    EXPECT_EQ(stoppedBy([&] { WdfRequestComplete(request, STATUS_SUCCESS); }), "request");
    reuse.Size = 1;
    EXPECT_EQ(WdfRequestReuse(request, &reuse), STATUS_INFO_LENGTH_MISMATCH);
    WdfObjectDelete(request);
    bus.answer = [](PIRP) { return std::nullopt; };
}

TEST_F(RequestSendTest, IoctlSynchronously) {
    char shared[16] = "question";
    WDF_MEMORY_DESCRIPTOR descriptor;
    WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&descriptor, shared, sizeof shared);
    answerWith(STATUS_SUCCESS, 7, std::string("answer", 7));
    ULONG_PTR bytes = 99;
    EXPECT_EQ(
        WdfIoTargetSendIoctlSynchronously(target, nullptr, bufferedCode, &descriptor, &descriptor, nullptr, &bytes),
        STATUS_SUCCESS);
    EXPECT_EQ(bytes, 7u);
    EXPECT_STREQ(shared, "answer");
    answerWith(STATUS_DEVICE_NOT_CONNECTED, 3);
    EXPECT_EQ(WdfIoTargetSendIoctlSynchronously(target, nullptr, bufferedCode, nullptr, &descriptor, nullptr, &bytes),
              STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(bytes, 3u); // also on failure after sending
    WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&descriptor, nullptr, 0);
    bytes = 99;
    EXPECT_EQ(WdfIoTargetSendIoctlSynchronously(target, nullptr, bufferedCode, &descriptor, nullptr, nullptr, &bytes),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(bytes, 99u);
    bus.answer = [](PIRP) { return std::nullopt; };
    EXPECT_EQ(WdfIoTargetSendIoctlSynchronously(target, nullptr, bufferedCode, nullptr, nullptr, nullptr, nullptr),
              STATUS_SUCCESS);
    EXPECT_EQ(stoppedAt(APC_LEVEL,
                        [&] {
                            WdfIoTargetSendIoctlSynchronously(target, nullptr, bufferedCode, nullptr, nullptr, nullptr,
                                                              nullptr);
                        }),
              "irql");
}

TEST_F(RequestSendTest, RemovalOfTheDeviceCancelsASenderThatWaits) {
    const WDFREQUEST request = makeRequest();
    ASSERT_EQ(
        WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr, nullptr, nullptr),
        STATUS_SUCCESS);
    holdCancellable();
    std::thread sender([&] { EXPECT_EQ(WdfRequestSend(request, target, &options), TRUE); });
    awaitHeld();
    removeDevice();
    sender.join();
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_CANCELLED);
}

/// A device that opens a target on itself.
class LoopbackTest : public QueueTest {
  protected:
    LoopbackTest() {
        const auto createDefault = afterCreate;
        afterCreate = [this, createDefault] {
            EXPECT_EQ(WdfIoTargetCreate(device, nullptr, &target), STATUS_SUCCESS);
            WDF_IO_TARGET_OPEN_PARAMS parameters;
            WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, WdfDeviceWdmGetDeviceObject(device));
            bus.seen.clear();
            EXPECT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_SUCCESS);
            EXPECT_EQ(bus.seen, std::vector<std::string>{"pnp 7"}); // through the own device
            return createDefault();
        };
    }
    WDFIOTARGET target = nullptr;
};

TEST_F(LoopbackTest, OneIrpTwoRequestsOneBuffer) {
    plugAndStart();
    WDFREQUEST sent = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, target, &sent), STATUS_SUCCESS);
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreatePreallocated(nullptr, buffer, sizeof buffer, &memory), STATUS_SUCCESS);
    ASSERT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, sent, bufferedCode, memory, nullptr, memory, nullptr),
              STATUS_SUCCESS);
    onControl = [&](WDFREQUEST received) {
        EXPECT_NE(received, sent);
        EXPECT_EQ(WdfRequestWdmGetIrp(received), WdfRequestWdmGetIrp(sent));
        void *input = nullptr;
        void *output = nullptr;
        EXPECT_EQ(WdfRequestRetrieveInputBuffer(received, 4, &input, nullptr), STATUS_SUCCESS);
        EXPECT_EQ(WdfRequestRetrieveOutputBuffer(received, 4, &output, nullptr), STATUS_SUCCESS);
        EXPECT_EQ(input, output);
        EXPECT_EQ(WdfRequestGetFileObject(received), nullptr);
        WdfRequestCompleteWithInformation(received, STATUS_SUCCESS, 4);
    };
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
    EXPECT_EQ(WdfRequestSend(sent, target, &options), TRUE);
    EXPECT_EQ(WdfRequestGetStatus(sent), STATUS_SUCCESS);
}

TEST_F(LoopbackTest, ATimedOutCallIsCancelledInItsManualQueue) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    std::atomic<bool> parked = false;
    onControl = [&](WDFREQUEST received) {
        EXPECT_EQ(WdfRequestForwardToIoQueue(received, queue), STATUS_SUCCESS);
        parked = true;
    };
    WDFREQUEST sent = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, target, &sent), STATUS_SUCCESS);
    ASSERT_EQ(WdfIoTargetFormatRequestForInternalIoctl(target, sent, bufferedCode, nullptr, nullptr, nullptr, nullptr),
              STATUS_SUCCESS);
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, WDF_REL_TIMEOUT_IN_SEC(30));
    std::thread sender([&] { EXPECT_EQ(WdfRequestSend(sent, target, &options), TRUE); });
    while (!parked) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    kernel.clock.advance(31 * 10'000'000LL);
    sender.join();
    EXPECT_EQ(WdfRequestGetStatus(sent), STATUS_IO_TIMEOUT);
    EXPECT_EQ(queuedIn(queue), 0u);
}

} // namespace

} // namespace sim::test
