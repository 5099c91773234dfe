// Many threads at once, for the sanitizers.

#include "queue_fixture.h"

#include <thread>

namespace sim::test {

namespace {

using ThreadsTest = QueueTest;

template<typename Work>
void inEightThreads(Work work) {
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([&work, index] { work(index); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(ThreadsTest, AddAndRemoveOfDifferentDevices) {
    loadDriver();
    onAdd = [](PWDFDEVICE_INIT init) {
        WDFDEVICE made = nullptr;
        WdfFdoInitSetFilter(init);
        return WdfDeviceCreate(&init, nullptr, &made);
    };
    std::vector<PDEVICE_OBJECT> devices;
    for (int index = 0; index < 64; ++index) {
        devices.push_back(bus.plug(u""));
    }
    bus.recording = false;
    inEightThreads([&](int index) {
        for (int round = 0; round < 8; ++round) {
            PDEVICE_OBJECT one = devices[static_cast<std::size_t>(index * 8 + round)];
            EXPECT_EQ(driverObject->DriverExtension->AddDevice(driverObject, one), STATUS_SUCCESS);
            bus.pnp(one, IRP_MN_START_DEVICE);
            bus.pnp(one, IRP_MN_REMOVE_DEVICE);
        }
    });
    for (PDEVICE_OBJECT one : devices) {
        EXPECT_EQ(one->AttachedDevice, nullptr);
        bus.forget(one);
        deleteDevice(one);
    }
}

TEST_F(ThreadsTest, ForwardRetrieveCancelComplete) {
    plugAndStart();
    const WDFQUEUE queue = manualQueue();
    onControl = [queue](WDFREQUEST request) { EXPECT_EQ(WdfRequestForwardToIoQueue(request, queue), STATUS_SUCCESS); };
    notifyOn(queue, [](WDFQUEUE which) {
        WDFREQUEST request = nullptr;
        while (NT_SUCCESS(WdfIoQueueRetrieveNextRequest(which, &request))) {
            WdfRequestComplete(request, STATUS_SUCCESS);
        }
    });
    inEightThreads([&](int index) {
        for (int round = 0; round < 100; ++round) {
            TestIrp irp;
            EXPECT_EQ(irp.control(bufferedCode, nullptr, 0, 0).send(deviceObject()), STATUS_PENDING);
            if ((index + round) % 2 == 0) {
                irp.cancel();
            }
            irp.await();
            EXPECT_TRUE(irp.status() == STATUS_SUCCESS || irp.status() == STATUS_CANCELLED);
        }
    });
    EXPECT_EQ(queuedIn(queue), 0u);
    EXPECT_EQ(ownedFrom(queue), 0u);
}

TEST_F(ThreadsTest, SendersAndAClosingTarget) {
    plugAndStart();
    bus.recording = false;
    WDFIOTARGET target = nullptr;
    ASSERT_EQ(WdfIoTargetCreate(device, nullptr, &target), STATUS_SUCCESS);
    WDF_IO_TARGET_OPEN_PARAMS parameters;
    WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(&parameters, deviceObject());
    ASSERT_EQ(WdfIoTargetOpen(target, &parameters), STATUS_SUCCESS);
    const WDFQUEUE queue = manualQueue();
    onControl = [queue](WDFREQUEST request) {
        EXPECT_EQ(WdfRequestForwardToIoQueue(request, queue), STATUS_SUCCESS); // nobody answers
    };
    std::atomic<int> ended = 0;
    inEightThreads([&](int index) {
        if (index == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            while (ended < 7) {
                WdfIoTargetClose(target);
            }
            return;
        }
        for (int round = 0; round < 20; ++round) {
            WDFREQUEST request = nullptr;
            if (!NT_SUCCESS(WdfRequestCreate(nullptr, target, &request))) {
                continue;
            }
            WDF_REQUEST_SEND_OPTIONS options;
            WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
            if (NT_SUCCESS(WdfIoTargetFormatRequestForInternalIoctl(target, request, bufferedCode, nullptr, nullptr,
                                                                    nullptr, nullptr)) &&
                WdfRequestSend(request, target, &options)) {
                EXPECT_EQ(WdfRequestGetStatus(request), STATUS_CANCELLED);
            }
            WdfObjectDelete(request);
        }
        ++ended;
    });
}

} // namespace

} // namespace sim::test
