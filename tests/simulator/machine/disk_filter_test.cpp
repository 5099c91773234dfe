// A filter made with the framework on a disk: what enters it, what passes it, and what becomes of its failures.

#include "disk_fixture.h"
#include "framework_filter.h"
#include "simulator/framework/framework.h"

#include <atomic>
#include <thread>

namespace sim::machinetest {
namespace {

std::atomic<unsigned> writesRefused{0};

VOID refuseWrite(WDFQUEUE, WDFREQUEST request, size_t) {
    ++writesRefused;
    WdfRequestCompleteWithInformation(request, STATUS_ACCESS_DENIED, 0);
}

VOID passControlOn(WDFQUEUE queue, WDFREQUEST request, size_t, size_t, ULONG) {
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET);
    if (!WdfRequestSend(request, WdfDeviceGetIoTarget(WdfIoQueueGetDevice(queue)), &options)) {
        WdfRequestComplete(request, WdfRequestGetStatus(request));
    }
}

bool isDisk(WDFDEVICE device) {
    return WdfDeviceWdmGetPhysicalDevice(device)->AttachedDevice->DeviceType == FILE_DEVICE_DISK;
}

/// A default queue that refuses writes, passes control requests on itself, and knows nothing of reads.
void addQueue(WDFDEVICE device) {
    if (!isDisk(device)) {
        return;
    }
    WDF_IO_QUEUE_CONFIG config;
    WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(&config, WdfIoQueueDispatchParallel);
    config.EvtIoWrite = refuseWrite;
    config.EvtIoDeviceControl = passControlOn;
    EXPECT_EQ(WdfIoQueueCreate(device, &config, WDF_NO_OBJECT_ATTRIBUTES, WDF_NO_HANDLE), STATUS_SUCCESS);
}

struct DiskFilters : testing::Test {
    FrameworkFilter driver;
    Machine machine{driver.options()};
    UserProcess user{700};
    UserProcess::Handle handle = 0;

    DiskFilters() { machine.presetClassFilters(); }
    ~DiskFilters() override {
        user.die();
        machine.unloadDriver();
        EXPECT_THAT(machine.leaks(), testing::IsEmpty());
    }
    DeviceNode &plugDisk(DeviceDescription description = flashDrive()) {
        machine.plug(std::move(description));
        DeviceNode &disk = *machine.find("stick disk");
        if (disk.started()) {
            EXPECT_EQ(user.open(disk.physicalDevice(), handle), STATUS_SUCCESS);
        }
        return disk;
    }
    static PDEVICE_OBJECT filterOf(const DeviceNode &disk) {
        PDEVICE_OBJECT top = disk.physicalDevice();
        while (top->AttachedDevice != nullptr) {
            top = top->AttachedDevice;
        }
        return top;
    }
    const std::vector<std::uint8_t> data = std::vector<std::uint8_t>(512, 0x5A);
};

TEST_F(DiskFilters, WithoutAQueueAreNeverEntered) {
    PDEVICE_OBJECT filter = filterOf(plugDisk());
    EXPECT_EQ(user.read(handle, 0, 512)->status(), STATUS_SUCCESS);
    EXPECT_EQ(user.write(handle, 0, data)->status(), STATUS_SUCCESS);
    EXPECT_EQ(user.control(handle, {IOCTL_DISK_IS_WRITABLE, {}, 0})->status(), STATUS_SUCCESS);
    const framework::RequestCounts passed = framework::passedDown(filter);
    EXPECT_EQ(passed.reads, 1U);
    EXPECT_EQ(passed.writes, 1U);
    EXPECT_EQ(passed.deviceControls, 2U); // one of them is the file system's
    const framework::RequestCounts entered = framework::handlerCalls(filter);
    EXPECT_EQ(entered.reads + entered.writes + entered.deviceControls, 0U);
}

TEST_F(DiskFilters, AreEnteredOnlyForWhatTheyHandle) {
    driver.onDevice = addQueue;
    PDEVICE_OBJECT filter = filterOf(plugDisk());
    Medium &medium = machine.medium("stick disk");
    EXPECT_EQ(user.read(handle, 512, 512)->received(), medium.contents(512, 512));
    EXPECT_EQ(user.write(handle, 0, data)->status(), STATUS_ACCESS_DENIED);
    EXPECT_EQ(user.control(handle, {machine::diskGetLengthInfo, {}, 8})->status(), STATUS_SUCCESS);
    const framework::RequestCounts passed = framework::passedDown(filter);
    EXPECT_EQ(passed.reads, 1U);
    EXPECT_EQ(passed.writes + passed.deviceControls, 0U);
    const framework::RequestCounts entered = framework::handlerCalls(filter);
    EXPECT_EQ(entered.reads, 0U);
    EXPECT_EQ(entered.writes, 1U);
    EXPECT_EQ(entered.deviceControls, 2U);
    EXPECT_TRUE(medium.unchanged());
}

TEST_F(DiskFilters, ThatFailAfterDeclaringThemselvesLeaveABootDiskRunning) {
    driver.addStatus = STATUS_BAD_DEVICE_TYPE;
    machine.plug(nvmeDisk("boot", {"", "SSD"}), &machine.pciRoot());
    DeviceNode &disk = *machine.find("boot disk");
    EXPECT_TRUE(disk.started());
    EXPECT_EQ(disk.stack(), (std::vector<std::u16string>{u"\\Driver\\stornvme", u"\\Driver\\disk"}));
    ASSERT_EQ(user.open(disk.physicalDevice(), handle), STATUS_SUCCESS);
    EXPECT_EQ(user.read(handle, 0, 512)->received(), machine.medium("boot disk").contents(0, 512));
    EXPECT_EQ(user.write(handle, 0, data)->status(), STATUS_SUCCESS);
}

TEST_F(DiskFilters, ThatFailBeforeKeepTheDiskFromStarting) {
    driver.setsFilter = false;
    driver.addStatus = STATUS_INVALID_DEVICE_REQUEST;
    machine.plug(sataDisk("sata", {"WDC", "WD10EZEX"}), &machine.pciRoot()); // the controller has no filter
    const DeviceNode &disk = *machine.find("sata disk");
    EXPECT_FALSE(disk.started());
    EXPECT_EQ(disk.problemCode(), 31U);
    EXPECT_EQ(disk.problemStatus(), STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(machine.volume("sata disk"), nullptr);
}

TEST_F(DiskFilters, PassOnWhatIsUnderWayWhenTheDiskIsPulledOut) {
    driver.onDevice = addQueue;
    DeviceDescription description = flashDrive();
    description.children.front().disk->answersLater = true;
    plugDisk(std::move(description));
    machine.medium("stick disk").stall();
    const auto read = user.begin(handle, process::TransferRequest{false, 0, {}, 512});
    machine.unplug(*machine.find("stick"));
    read->await();
    EXPECT_EQ(read->status(), STATUS_DEVICE_DOES_NOT_EXIST);
    const auto late = user.write(handle, 0, data);
    EXPECT_FALSE(NT_SUCCESS(late->status()));
}

TEST_F(DiskFilters, AreUsedByManyThreadsWhileTheDiskIsPulledOut) {
    driver.onDevice = addQueue;
    DeviceDescription description = flashDrive();
    description.children.front().disk->answersLater = true;
    plugDisk(std::move(description));
    writesRefused = 0;
    std::atomic<bool> pulled = false;
    std::atomic<unsigned> readsDone{0};
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < 8; ++number) {
        threads.emplace_back([&, number] {
            for (unsigned turn = 0; turn < 50 || !pulled; ++turn) {
                const NTSTATUS read = user.read(handle, 512 * number, 512)->status();
                readsDone += NT_SUCCESS(read) ? 1 : 0;
                static_cast<void>(user.write(handle, 512 * number, data));
                static_cast<void>(user.control(handle, {IOCTL_DISK_IS_WRITABLE, {}, 0}));
            }
        });
    }
    while (readsDone < 20) {
        std::this_thread::yield();
    }
    machine.unplug(*machine.find("stick"));
    pulled = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_GT(writesRefused, 0U);
    EXPECT_TRUE(machine.medium("stick disk").unchanged());
}

} // namespace
} // namespace sim::machinetest
