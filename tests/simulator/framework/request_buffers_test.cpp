// Requests from queues: buffers, parameters, completion, sending on.

#include "queue_fixture.h"

namespace sim::test {

namespace {

class RequestTest : public QueueTest {
  protected:
    RequestTest() { plugAndStart(); }
    static constexpr ULONG neitherCode = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x802, METHOD_NEITHER, FILE_ANY_ACCESS);
};

TEST_F(RequestTest, ZeroLengthIsTooSmallWhateverTheMinimum) {
    TestIrp irp;
    irp.control(bufferedCode, buffer, 10, 0).send(deviceObject());
    const WDFREQUEST request = presented.back();
    void *address = nullptr;
    size_t length = 0;
    EXPECT_EQ(WdfRequestRetrieveOutputBuffer(request, 0, &address, &length), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(WdfRequestRetrieveInputBuffer(request, 11, &address, &length), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(WdfRequestRetrieveInputBuffer(request, 4, &address, &length), STATUS_SUCCESS);
    EXPECT_EQ(address, buffer);
    EXPECT_EQ(length, 10u); // the full length
    WdfRequestComplete(request, STATUS_SUCCESS);
}

TEST_F(RequestTest, MethodNeitherOfAUserIsRefused) {
    TestIrp irp;
    irp.control(neitherCode, nullptr, 10, 10).send(deviceObject());
    void *address = nullptr;
    EXPECT_EQ(WdfRequestRetrieveInputBuffer(presented.back(), 1, &address, nullptr), STATUS_INVALID_DEVICE_REQUEST);
    WdfRequestComplete(presented.back(), STATUS_SUCCESS);
    presented.clear();
    TestIrp internal;
    internal.control(neitherCode, nullptr, 10, 10, IRP_MJ_INTERNAL_DEVICE_CONTROL);
    IoGetNextIrpStackLocation(internal.irp)->Parameters.DeviceIoControl.Type3InputBuffer = buffer;
    internal.send(deviceObject());
    EXPECT_EQ(WdfRequestRetrieveInputBuffer(presented.back(), 1, &address, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(address, buffer);
    WdfRequestComplete(presented.back(), STATUS_SUCCESS);
}

TEST_F(RequestTest, Parameters) {
    TestIrp irp;
    irp.control(bufferedCode, buffer, 10, 20).send(deviceObject());
    WDF_REQUEST_PARAMETERS parameters;
    WDF_REQUEST_PARAMETERS_INIT(&parameters);
    WdfRequestGetParameters(presented.back(), &parameters);
    EXPECT_EQ(parameters.Type, WdfRequestTypeDeviceControl);
    EXPECT_EQ(parameters.Parameters.DeviceIoControl.InputBufferLength, 10u);
    EXPECT_EQ(parameters.Parameters.DeviceIoControl.OutputBufferLength, 20u);
    EXPECT_EQ(parameters.Parameters.DeviceIoControl.IoControlCode, ULONG(bufferedCode));
    WdfRequestComplete(presented.back(), STATUS_SUCCESS);
}

TEST_F(RequestTest, FrameworkStatusesAreMapped) {
    for (const auto &[given, seen] :
         std::initializer_list<std::pair<NTSTATUS, NTSTATUS>>{{STATUS_WDF_PAUSED, STATUS_DEVICE_BUSY},
                                                              {STATUS_WDF_BUSY, STATUS_DEVICE_BUSY},
                                                              {STATUS_WDF_INTERNAL_ERROR, STATUS_INTERNAL_ERROR},
                                                              {STATUS_WDF_NO_CALLBACK, STATUS_INVALID_DEVICE_REQUEST},
                                                              {STATUS_NO_MORE_ENTRIES, STATUS_NO_MORE_ENTRIES}}) {
        TestIrp irp;
        WdfRequestComplete(present(irp), given);
        EXPECT_EQ(irp.status(), seen);
    }
}

TEST_F(RequestTest, TooMuchInformationForAUserIsReported) {
    TestIrp irp;
    irp.control(bufferedCode, buffer, 10, 4).send(deviceObject());
    EXPECT_EQ(stoppedBy([&] { WdfRequestCompleteWithInformation(presented.back(), STATUS_SUCCESS, 5); }), "request");
    WdfRequestCompleteWithInformation(presented.back(), STATUS_UNSUCCESSFUL, 5);
}

TEST_F(RequestTest, SendAndForgetGivesTheRequestAway) {
    const WDFIOTARGET lower = WdfDeviceGetIoTarget(device);
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET);
    bus.answer = [](PIRP irp) -> std::optional<NTSTATUS> {
        irp->IoStatus.Information = 9;
        return STATUS_SUCCESS;
    };
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    EXPECT_EQ(WdfRequestSend(request, lower, &options), TRUE);
    EXPECT_TRUE(irp.completed());
    EXPECT_EQ(irp.information(), 9u);
    EXPECT_EQ(ownedFrom(defaultQueue), 0u);
    EXPECT_EQ(stoppedBy([&] { WdfRequestGetStatus(request); }), "framework handle");
    bus.answer = [](PIRP) { return std::nullopt; };
}

TEST_F(RequestTest, SentDownSynchronouslyItComesBackToBeCompleted) {
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, 0);
    WdfRequestFormatRequestUsingCurrentType(request);
    EXPECT_EQ(WdfRequestSend(request, WdfDeviceGetIoTarget(device), &options), FALSE); // nobody would complete it
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INVALID_DEVICE_REQUEST);
    options.Flags = WDF_REQUEST_SEND_OPTION_SYNCHRONOUS;
    bus.answer = [](PIRP) { return STATUS_DEVICE_NOT_READY; };
    EXPECT_EQ(WdfRequestSend(request, WdfDeviceGetIoTarget(device), &options), TRUE);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_DEVICE_NOT_READY);
    EXPECT_FALSE(irp.completed());
    WdfRequestComplete(request, WdfRequestGetStatus(request));
    EXPECT_EQ(irp.status(), STATUS_DEVICE_NOT_READY);
    bus.answer = [](PIRP) { return std::nullopt; };
}

TEST_F(RequestTest, MemoriesGoWithTheirRequestBeforeTheIrpCompletes) {
    TestIrp irp;
    const WDFREQUEST request = present(irp);
    static TestIrp *observed;
    observed = &irp;
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = request;
    attributes.EvtCleanupCallback = [](WDFOBJECT) { noteEvent(observed->completed() ? "after" : "before"); };
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreate(&attributes, NonPagedPool, 0, 8, &memory, nullptr), STATUS_SUCCESS);
    WdfRequestComplete(request, STATUS_SUCCESS);
    EXPECT_EQ(takeEvents(), std::vector<std::string>{"before"});
}

} // namespace

} // namespace sim::test
