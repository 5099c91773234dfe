#include "kernel_fixture.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace sim::test {

namespace {

class WorkItemsTest : public KernelTest {
  protected:
    WorkItemsTest() : driver(createDriverObject(u"Test")), device(createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0)) {}

    PIO_WORKITEM allocate() { return IoAllocateWorkItem(device); }

    PDRIVER_OBJECT driver;
    PDEVICE_OBJECT device;
};

struct Record {
    PVOID ioObject = nullptr;
    PIO_WORKITEM item = nullptr;
    KIRQL irql = 99;
    std::thread::id thread;
    int calls = 0;
    bool freeInside = false;
};

VOID recordCall(PVOID ioObject, PVOID context, PIO_WORKITEM item) {
    auto *record = static_cast<Record *>(context);
    record->ioObject = ioObject;
    record->item = item;
    record->irql = KeGetCurrentIrql();
    record->thread = std::this_thread::get_id();
    ++record->calls;
    if (record->freeInside) {
        IoFreeWorkItem(item);
    }
}

TEST_F(WorkItemsTest, routineRunsAtPassiveLevelInAnotherThread) {
    Record record;
    PIO_WORKITEM item = allocate();
    IoQueueWorkItemEx(item, recordCall, DelayedWorkQueue, &record);
    kernel.workers.drain();
    EXPECT_EQ(record.ioObject, device);
    EXPECT_EQ(record.item, item);
    EXPECT_EQ(record.irql, PASSIVE_LEVEL);
    EXPECT_NE(record.thread, std::this_thread::get_id());
    IoFreeWorkItem(item);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(WorkItemsTest, driverObjectWorksToo) {
    Record record;
    PIO_WORKITEM item = IoAllocateWorkItem(reinterpret_cast<PDEVICE_OBJECT>(driver));
    record.freeInside = true;
    IoQueueWorkItemEx(item, recordCall, DelayedWorkQueue, &record);
    kernel.workers.drain();
    EXPECT_EQ(record.ioObject, driver);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(WorkItemsTest, objectIsReferencedUntilTheRoutineHasReturned) {
    Record record;
    record.freeInside = true;
    kernel.workers.pause();
    const long before = kernel.objects.references(device);
    IoQueueWorkItemEx(allocate(), recordCall, DelayedWorkQueue, &record);
    EXPECT_EQ(kernel.objects.references(device), before + 1);
    kernel.workers.resume();
    kernel.workers.drain();
    EXPECT_EQ(kernel.objects.references(device), before);
}

VOID queueAgain(PVOID, PVOID context, PIO_WORKITEM item) {
    auto *record = static_cast<Record *>(context);
    if (++record->calls < 3) {
        IoQueueWorkItemEx(item, queueAgain, DelayedWorkQueue, context);
    } else {
        IoFreeWorkItem(item);
    }
}

TEST_F(WorkItemsTest, routineMayQueueItsItemAgain) {
    Record record;
    IoQueueWorkItemEx(allocate(), queueAgain, DelayedWorkQueue, &record);
    kernel.workers.drain();
    EXPECT_EQ(record.calls, 3);
}

VOID oldStyle(PDEVICE_OBJECT device, PVOID context) {
    *static_cast<PDEVICE_OBJECT *>(context) = device;
}

TEST_F(WorkItemsTest, oldFormGetsTheDevice) {
    PDEVICE_OBJECT seen = nullptr;
    PIO_WORKITEM item = allocate();
    IoQueueWorkItem(item, oldStyle, DelayedWorkQueue, &seen);
    kernel.workers.drain();
    EXPECT_EQ(seen, device);
    IoFreeWorkItem(item);
}

TEST_F(WorkItemsTest, misuseStops) {
    Record record;
    PIO_WORKITEM item = allocate();
    kernel.workers.pause();
    EXPECT_EQ(stoppedBy([&] { IoQueueWorkItemEx(item, recordCall, CriticalWorkQueue, &record); }), "work item");
    IoQueueWorkItemEx(item, recordCall, DelayedWorkQueue, &record);
    EXPECT_EQ(stoppedBy([&] { IoQueueWorkItemEx(item, recordCall, DelayedWorkQueue, &record); }), "work item");
    EXPECT_EQ(stoppedBy([&] { IoFreeWorkItem(item); }), "work item");
    kernel.workers.resume();
    kernel.workers.drain();
    IoFreeWorkItem(item);
    EXPECT_EQ(stoppedBy([&] { IoFreeWorkItem(item); }), "work item");
    EXPECT_EQ(stoppedBy([&] { IoAllocateWorkItem(reinterpret_cast<PDEVICE_OBJECT>(this)); }), "object");
}

TEST_F(WorkItemsTest, forgottenItemIsALeakAndAllocationCanFail) {
    PIO_WORKITEM item = allocate();
    ASSERT_EQ(kernel.leaks().size(), 1u);
    EXPECT_NE(kernel.leaks()[0].find("work item not freed"), std::string::npos);
    IoFreeWorkItem(item);
    kernel.faults.failNamed("IoAllocateWorkItem", 1, std::nullopt, false);
    kernel.faults.arm(true);
    EXPECT_EQ(allocate(), nullptr);
}

TEST_F(WorkItemsTest, orderedQueueKeepsTheOrder) {
    std::vector<int> order;
    for (int index = 0; index < 50; ++index) {
        kernel.workers.queue([&order, index] { order.push_back(index); });
    }
    kernel.workers.settle();
    ASSERT_EQ(order.size(), 50u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(WorkItemsTest, freeQueueOverlapsItems) {
    kernel.workers.setMode(WorkQueue::Mode::free, 2);
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0;
    for (int index = 0; index < 2; ++index) {
        kernel.workers.queue([&] {
            std::unique_lock lock(mutex);
            ++inside;
            changed.notify_all();
            changed.wait(lock, [&] { return inside == 2; }); // ends only when both run at once
        });
    }
    kernel.workers.drain();
    EXPECT_EQ(inside, 2);
    EXPECT_EQ(kernel.workers.mode(), WorkQueue::Mode::free);
}

TEST_F(WorkItemsTest, pausedItemsStayAndSettleDoesNotWaitForThem) {
    std::atomic<int> calls = 0;
    kernel.workers.pause();
    kernel.workers.queue([&] { ++calls; });
    kernel.workers.settle();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(kernel.workers.pending(), 1u);
    kernel.workers.setMode(WorkQueue::Mode::free, 2);
    kernel.workers.resume();
    kernel.workers.drain();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(kernel.workers.pending(), 0u);
}

TEST_F(WorkItemsTest, routineThatKeepsALockStops) {
    std::string rule;
    ERESOURCE resource;
    ExInitializeResourceLite(&resource);
    std::thread([&] {
        rule = stoppedBy([&] {
            const CallbackContract contract("work item routine");
            KeEnterCriticalRegion();
        });
    }).join();
    EXPECT_EQ(rule, "callback contract");
    ExDeleteResourceLite(&resource);
}

} // namespace

} // namespace sim::test
