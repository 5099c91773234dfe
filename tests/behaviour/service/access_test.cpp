// What a process may do with the handle that it has, and what it reads from the driver.

#include "service_test.h"

#include "tests/behaviour/support/driver_state.h"

namespace behaviour {
namespace {

using testing::IsEmpty;

struct Code {
    std::uint32_t code;
    std::size_t outputBytes;
    bool writes;
};

constexpr Code allCodes[] = {{IOCTL_WAIT_NOTIFICATION, sizeof(NotificationInfo), false},
                             {IOCTL_WAIT_CALLBACK, MYRTELHAVEN_CALLBACK_BYTES, false},
                             {IOCTL_GET_PROCESSED_DEVICES, sizeof(ProcessedDeviceInfo), false},
                             {IOCTL_GET_NOT_USBHUB_DEVICES, MYRTELHAVEN_NOT_USBHUB_BYTES, false},
                             {IOCTL_PING, 0, true},
                             {IOCTL_CALLBACK_REPLY, 0, true},
                             {IOCTL_RESCAN_DEVICES, 0, true},
                             {IOCTL_RELOAD_LOG_SETTINGS, 0, true}};

using Access = ServiceTest;

TEST_F(Access, ACodeThatTheHandleHasNoRightForNeverReachesTheDriver) {
    startWithService();
    sim::UserProcess::Handle reader = 0;
    sim::UserProcess::Handle writer = 0;
    ASSERT_EQ(service.open(linkName, reader, GENERIC_READ), STATUS_SUCCESS);
    ASSERT_EQ(service.open(linkName, writer, GENERIC_WRITE), STATUS_SUCCESS);
    for (const Code &code : allCodes) {
        SCOPED_TRACE(code.code);
        const auto wrong = code.writes ? reader : writer;
        const auto right = code.writes ? writer : reader;
        EXPECT_EQ(service.begin(wrong, {code.code, {}, code.outputBytes})->status(), STATUS_ACCESS_DENIED);
        EXPECT_THAT(takeLog(), IsEmpty());
        const Request let = service.begin(right, {code.code, std::vector<std::uint8_t>(16), code.outputBytes});
        EXPECT_TRUE(!let->isBack() || let->status() != STATUS_ACCESS_DENIED);
        EXPECT_EQ(takeLog().front(), "INFO onIoDeviceControl, ioctl code = " + std::to_string(code.code));
    }
}

TEST_F(Access, AProcessOpensTheDeviceByTheNameOfItsLink) {
    startWithService();
    sim::UserProcess::Handle second = 0;
    EXPECT_EQ(service.open(u"\\\\.\\Tarvenholt Myrtelhaven", second), STATUS_SUCCESS);
    EXPECT_EQ(driverState(machine()).controlDevice->m_openCount, 2U);
    service.die();
    EXPECT_EQ(driverState(machine()).controlDevice->m_openCount, 0U);
}

TEST_F(Access, BuffersTooShortOrMissingAreRefused) {
    startWithService();
    for (const std::size_t bytes : {0, 787}) {
        EXPECT_EQ(send(IOCTL_GET_PROCESSED_DEVICES, bytes)->status(), STATUS_BUFFER_TOO_SMALL);
    }
    for (const std::size_t bytes : {0, 20479}) {
        EXPECT_EQ(send(IOCTL_GET_NOT_USBHUB_DEVICES, bytes)->status(), STATUS_BUFFER_TOO_SMALL);
    }
    EXPECT_EQ(takeLogWith("ERROR"), Lines(4, "ERROR Failed to retrieve output buffer, status = 0xc0000023"));
    for (const std::size_t bytes : {0, 15}) {
        EXPECT_EQ(send(IOCTL_CALLBACK_REPLY, 0, std::vector<std::uint8_t>(bytes))->status(), STATUS_BUFFER_TOO_SMALL);
    }
    EXPECT_EQ(takeLogWith("ERROR"), Lines(2, "ERROR Failed to retrieve input buffer, status = 0xc0000023"));
}

TEST_F(Access, CodesWithoutBuffersIgnoreWhatTheyAreGiven) {
    startWithService();
    const Request ping = send(IOCTL_PING, 100, std::vector<std::uint8_t>(7));
    EXPECT_EQ(ping->status(), STATUS_SUCCESS);
    EXPECT_EQ(ping->information(), 0U);
    EXPECT_EQ(ping->output(), std::vector<std::uint8_t>(100, 0xCC));
}

TEST_F(Access, InvalidCodesAreRefusedWithAnyBuffer) {
    startWithService();
    for (const std::uint32_t code : {0x224000U, 0x220000U, 0x22200BU, 0x226004U, 0x22A008U, 0x224007U, 0x22E003U}) {
        for (const std::size_t bytes : {0, 2000}) {
            const Request refused = send(code, bytes, std::vector<std::uint8_t>(bytes));
            EXPECT_EQ(refused->status(), STATUS_INVALID_DEVICE_REQUEST) << code;
            EXPECT_EQ(refused->information(), 0U);
        }
    }
}

TEST_F(Access, ThreadsOfTheServiceLoseOnlyWhatTheyAskedForWhenTheyEnd) {
    startWithService(0);
    const Request first = service.begin(handle, {IOCTL_WAIT_NOTIFICATION, {}, sizeof(NotificationInfo), 1});
    const Request second = service.begin(handle, {IOCTL_WAIT_NOTIFICATION, {}, sizeof(NotificationInfo), 2});
    service.endThread(1);
    EXPECT_EQ(first->status(), STATUS_CANCELLED);
    EXPECT_FALSE(second->isBack());
    plug(flashDrive());
    EXPECT_EQ(second->status(), STATUS_SUCCESS);
}

TEST_F(Access, OneHandleOfSeveralTakesItsOwnParkedRequestsAlong) {
    startWithService(0);
    sim::UserProcess::Handle second = 0;
    ASSERT_EQ(service.open(linkName, second), STATUS_SUCCESS);
    const Request mine = waitForNotification();
    const Request other = service.begin(second, {IOCTL_WAIT_NOTIFICATION, {}, sizeof(NotificationInfo)});
    service.close(second);
    EXPECT_EQ(other->status(), STATUS_CANCELLED);
    EXPECT_FALSE(mine->isBack());
    plug(flashDrive());
    EXPECT_EQ(mine->status(), STATUS_SUCCESS);
}

TEST_F(Access, AnotherProcessGetsInOnceTheFirstIsGone) {
    startWithService();
    sim::UserProcess other{200};
    sim::UserProcess::Handle its = 0;
    EXPECT_EQ(other.open(linkName, its), STATUS_ACCESS_DENIED);
    service.die();
    ASSERT_EQ(other.open(linkName, its), STATUS_SUCCESS);
    const Request question = other.begin(its, {IOCTL_WAIT_CALLBACK, {}, MYRTELHAVEN_CALLBACK_BYTES});
    EXPECT_TRUE(plug(mouse()).started());
    EXPECT_EQ(messageOf(question).mode(), 2U);
    other.die();
}

} // namespace
} // namespace behaviour
