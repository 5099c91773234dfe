// What a disk's filter does wrong with the requests that its queue hands it.

#include "wrong_driver.h"

namespace sim::strictness {
namespace {

void onDisk(WDFDEVICE device, const std::function<void(WDF_IO_QUEUE_CONFIG &)> &configure) {
    if (WdfDeviceWdmGetPhysicalDevice(device)->AttachedDevice->DeviceType != FILE_DEVICE_DISK) {
        return; // the drive's own filter
    }
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&config, WdfIoQueueDispatchParallel);
    configure(config);
    EXPECT_EQ(WdfIoQueueCreate(device, &config, WDF_NO_OBJECT_ATTRIBUTES, WDF_NO_HANDLE), STATUS_SUCCESS);
}

std::function<void(WDFDEVICE, PDEVICE_OBJECT)> writing(PFN_WDF_IO_QUEUE_IO_WRITE handler) {
    return [handler](WDFDEVICE device, PDEVICE_OBJECT) {
        onDisk(device, [handler](WDF_IO_QUEUE_CONFIG &config) { config.EvtIoWrite = handler; });
    };
}

bool sendAndForget(WDFQUEUE queue, WDFREQUEST request) {
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET);
    return WdfRequestSend(request, WdfDeviceGetIoTarget(WdfIoQueueGetDevice(queue)), &options) != FALSE;
}

VOID refuseTwice(WDFQUEUE, WDFREQUEST request, size_t) {
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
}

VOID refuseWhatWasSent(WDFQUEUE queue, WDFREQUEST request, size_t) {
    (void)sendAndForget(queue, request);
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
}

VOID sendWhatWasRefused(WDFQUEUE queue, WDFREQUEST request, size_t) {
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
    (void)sendAndForget(queue, request);
}

VOID askWhatWasRefused(WDFQUEUE, WDFREQUEST request, size_t) {
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
    (void)WdfRequestGetStatus(request);
}

VOID refuseAsPending(WDFQUEUE, WDFREQUEST request, size_t) {
    WdfRequestComplete(request, STATUS_PENDING);
}

VOID writeMoreThanAsked(WDFQUEUE, WDFREQUEST request, size_t length) {
    WdfRequestCompleteWithInformation(request, STATUS_SUCCESS, length + 1);
}

VOID forgetAReference(WDFQUEUE, WDFREQUEST request, size_t) {
    WdfObjectReference(request);
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
}

VOID stayAtDispatchLevel(WDFQUEUE, WDFREQUEST request, size_t) {
    WdfRequestComplete(request, STATUS_ACCESS_DENIED);
    raiseToDispatchLevel();
}

/// A request that has been completed or given away is no object any more.
Mistake usingItLater(const char *name, PFN_WDF_IO_QUEUE_IO_WRITE handler, const char *routine) {
    return {name, writing(handler), "framework handle", routine, "not the handle of a live object", Victim::disk};
}

Mistake completingIt(const char *name, PFN_WDF_IO_QUEUE_IO_WRITE handler, const char *routine, const char *detail) {
    return {name, writing(handler), "request", routine, detail, Victim::disk};
}

INSTANTIATE_TEST_SUITE_P(
    Disks, CaughtMistakes,
    testing::Values(usingItLater("RefusedTwice", refuseTwice, "WdfRequestComplete"),
                    usingItLater("RefusedAfterItWasSent", refuseWhatWasSent, "WdfRequestComplete"),
                    usingItLater("SentAfterItWasRefused", sendWhatWasRefused, "WdfRequestSend"),
                    usingItLater("AskedAfterItWasRefused", askWhatWasRefused, "WdfRequestGetStatus"),
                    completingIt("RefusedAsPending", refuseAsPending, "WdfRequestComplete", "STATUS_PENDING"),
                    completingIt("MoreWrittenThanAsked", writeMoreThanAsked, "WdfRequestCompleteWithInformation",
                                 "513 exceeds .*512"),
                    Mistake{"ForgottenRequestReference", writing(forgetAReference), "", "WDFREQUEST", "",
                            Victim::disk}),
    nameOf);

/// Noticed when the handler has returned.
TEST(DiskHandler, ThatReturnsAtDispatchLevelIsCaught) {
    const Mistake mistake{"", writing(stayAtDispatchLevel), {}, {}, {}, Victim::disk};
    EXPECT_DEATH(run(mistake), "bug check .callback contract. EvtIo: returned with IRQL 2");
}

} // namespace
} // namespace sim::strictness
