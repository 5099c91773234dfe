#include "kernel_fixture.h"

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace sim::test {

namespace {

using EventsTest = KernelTest;

NTSTATUS poll(KEVENT &event) {
    LARGE_INTEGER none{};
    return KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &none);
}

TEST_F(EventsTest, synchronizationEventSatisfiesOneWait) {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, FALSE);
    EXPECT_EQ(poll(event), STATUS_TIMEOUT);
    EXPECT_EQ(KeSetEvent(&event, IO_NO_INCREMENT, FALSE), 0);
    EXPECT_NE(KeSetEvent(&event, IO_NO_INCREMENT, FALSE), 0); // two sets in a row count as one
    EXPECT_EQ(poll(event), STATUS_SUCCESS);
    EXPECT_EQ(poll(event), STATUS_TIMEOUT);
}

TEST_F(EventsTest, notificationEventStaysSet) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, TRUE);
    EXPECT_EQ(poll(event), STATUS_SUCCESS);
    EXPECT_EQ(poll(event), STATUS_SUCCESS);
    EXPECT_NE(KeResetEvent(&event), 0);
    EXPECT_EQ(KeResetEvent(&event), 0);
    EXPECT_EQ(poll(event), STATUS_TIMEOUT);
    KeSetEvent(&event, 0, FALSE);
    KeClearEvent(&event);
    EXPECT_EQ(poll(event), STATUS_TIMEOUT);
}

TEST_F(EventsTest, timeoutIsNoFailure) {
    EXPECT_TRUE(NT_SUCCESS(STATUS_TIMEOUT));
    EXPECT_TRUE(NT_SUCCESS(STATUS_PENDING));
    EXPECT_FALSE(NT_SUCCESS(STATUS_BUFFER_OVERFLOW));
}

TEST_F(EventsTest, aSetWakesAWaitingThread) {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, FALSE);
    std::thread setter([&event] { KeSetEvent(&event, 0, FALSE); });
    EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr), STATUS_SUCCESS);
    setter.join();
}

TEST_F(EventsTest, notificationEventReleasesEveryone) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    std::vector<std::thread> waiters;
    for (int index = 0; index < 4; ++index) {
        waiters.emplace_back([&event] {
            EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr), STATUS_SUCCESS);
        });
    }
    KeSetEvent(&event, 0, FALSE);
    for (std::thread &waiter : waiters) {
        waiter.join();
    }
}

TEST_F(EventsTest, absoluteWaitEndsWhenTheClockGetsThere) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    LARGE_INTEGER timeout;
    timeout.QuadPart = kernel.clock.now() + 5'000'000;
    std::thread mover([this] { kernel.clock.advance(10'000'000); });
    EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &timeout), STATUS_TIMEOUT);
    mover.join();
}

TEST_F(EventsTest, relativeWaitCountsFromItsStart) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    const std::int64_t start = kernel.clock.now();
    std::atomic<bool> over = false;
    std::thread mover([&] {
        while (!over) {
            kernel.clock.advance(1'000'000);
        }
    });
    LARGE_INTEGER timeout;
    timeout.QuadPart = -5'000'000;
    EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &timeout), STATUS_TIMEOUT);
    over = true;
    mover.join();
    EXPECT_GE(kernel.clock.now(), start + 5'000'000);
}

TEST_F(EventsTest, setWinsOverAnElapsedTime) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, TRUE);
    LARGE_INTEGER past;
    past.QuadPart = 1;
    EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &past), STATUS_SUCCESS);
    KeClearEvent(&event);
    EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &past), STATUS_TIMEOUT);
}

TEST_F(EventsTest, waitTrueIsForbidden) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    EXPECT_EQ(stoppedBy([&] { KeSetEvent(&event, 0, TRUE); }), "event");
}

TEST_F(EventsTest, onlyPollingIsLegalAtDispatchLevel) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, TRUE);
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { EXPECT_EQ(poll(event), STATUS_SUCCESS); }), "");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr); }),
              "irql");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { KeSetEvent(&event, 0, FALSE); }), "");
}

TEST_F(EventsTest, uninitialisedOrPagedEventsStop) {
    KEVENT event;
    std::memset(&event, 0xFF, sizeof event);
    EXPECT_EQ(stoppedBy([&] { KeSetEvent(&event, 0, FALSE); }), "event");
    auto *paged = static_cast<PKEVENT>(ExAllocatePool2(POOL_FLAG_PAGED, sizeof(KEVENT), 'tseT'));
    KeInitializeEvent(paged, NotificationEvent, TRUE);
    EXPECT_EQ(stoppedBy([&] { poll(*paged); }), "event");
    ExFreePoolWithTag(paged, 'tseT');
}

TEST_F(EventsTest, stackEventNeedsKernelModeWait) {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, TRUE);
    EXPECT_EQ(stoppedBy([&] { KeWaitForSingleObject(&event, UserRequest, UserMode, FALSE, nullptr); }), "event");
}

} // namespace

} // namespace sim::test
