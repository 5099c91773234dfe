#include "kernel_fixture.h"

#include <thread>
#include <vector>

namespace sim::test {

namespace {

class DevicesTest : public KernelTest {
  protected:
    DevicesTest() : driver(createDriverObject(u"Bus")) {}
    PDEVICE_OBJECT make() { return createDevice(driver, 16, FILE_DEVICE_UNKNOWN, 0); }

    PDRIVER_OBJECT driver;
};

TEST_F(DevicesTest, newDeviceHeadsTheDriversList) {
    PDEVICE_OBJECT first = make();
    PDEVICE_OBJECT second = make();
    EXPECT_EQ(driver->DeviceObject, second);
    EXPECT_EQ(second->NextDevice, first);
    EXPECT_EQ(second->DriverObject, driver);
    EXPECT_NE(second->Flags & DO_DEVICE_INITIALIZING, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(second) % 16, 0u);
    EXPECT_NE(second->DeviceExtension, nullptr);
    EXPECT_EQ(second->DeviceObjectExtension->DeviceObject, second);
    EXPECT_EQ(second->DeviceObjectExtension->DeviceNode, nullptr);
}

TEST_F(DevicesTest, attachmentBuildsAStack) {
    PDEVICE_OBJECT physical = make();
    PDEVICE_OBJECT function = make();
    PDEVICE_OBJECT filter = make();
    EXPECT_EQ(attachDevice(function, physical), physical);
    EXPECT_EQ(attachDevice(filter, physical), function); // always on top
    EXPECT_EQ(filter->StackSize, 3);
    EXPECT_EQ(filter->DeviceObjectExtension->AttachedTo, function);
    EXPECT_EQ(topOfStack(physical), filter);
    EXPECT_EQ(bottomOfStack(filter), physical);
    detachDevice(function);
    EXPECT_EQ(topOfStack(physical), function);
    EXPECT_EQ(filter->DeviceObjectExtension->AttachedTo, nullptr);
    EXPECT_EQ(stoppedBy([&] { detachDevice(function); }), "device stack");
}

TEST_F(DevicesTest, walkersReturnReferencedObjects) {
    PDEVICE_OBJECT physical = make();
    PDEVICE_OBJECT filter = make();
    attachDevice(filter, physical);
    PDEVICE_OBJECT top = IoGetAttachedDeviceReference(physical);
    PDEVICE_OBJECT self = IoGetAttachedDeviceReference(filter);
    PDEVICE_OBJECT base = IoGetDeviceAttachmentBaseRef(filter);
    PDEVICE_OBJECT lower = IoGetLowerDeviceObject(filter);
    EXPECT_EQ(top, filter);
    EXPECT_EQ(self, filter);
    EXPECT_EQ(base, physical);
    EXPECT_EQ(lower, physical);
    EXPECT_EQ(IoGetLowerDeviceObject(physical), nullptr);
    EXPECT_EQ(kernel.objects.references(filter), 3);
    EXPECT_EQ(kernel.leaks().size(), 2u);
    for (PDEVICE_OBJECT device : {top, self, base, lower}) {
        ObDereferenceObject(device);
    }
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(DevicesTest, nothingAttachesToADeviceThatGoes) {
    PDEVICE_OBJECT physical = make();
    PDEVICE_OBJECT filter = make();
    ObReferenceObject(physical);
    deleteDevice(physical);
    EXPECT_TRUE(isDeletePending(physical));
    EXPECT_EQ(attachDevice(filter, physical), nullptr);
    ObDereferenceObject(physical);
    EXPECT_FALSE(kernel.objects.contains(physical));
}

TEST_F(DevicesTest, openDeviceStaysOnTheListUntilItsLastClose) {
    PDEVICE_OBJECT device = make();
    EXPECT_TRUE(deviceOpened(device));
    deleteDevice(device);
    EXPECT_EQ(driver->DeviceObject, device);
    EXPECT_FALSE(deviceOpened(device));
    deviceClosed(device);
    EXPECT_EQ(driver->DeviceObject, nullptr);
    EXPECT_FALSE(kernel.objects.contains(device));
}

TEST_F(DevicesTest, deletingWhileAttachedOrTwiceStops) {
    PDEVICE_OBJECT physical = make();
    PDEVICE_OBJECT filter = make();
    attachDevice(filter, physical);
    EXPECT_EQ(stoppedBy([&] { deleteDevice(filter); }), "device object");
    detachDevice(physical);
    ObReferenceObject(filter);
    deleteDevice(filter);
    EXPECT_EQ(stoppedBy([&] { deleteDevice(filter); }), "device object");
    ObDereferenceObject(filter);
}

TEST_F(DevicesTest, lowerDeviceGoesWhenTheUpperOneHasDetached) {
    PDEVICE_OBJECT physical = make();
    PDEVICE_OBJECT filter = make();
    attachDevice(filter, physical);
    deleteDevice(physical);
    EXPECT_TRUE(isDeletePending(physical));
    EXPECT_EQ(filter->NextDevice, physical);
    EXPECT_EQ(IoGetLowerDeviceObject(filter), nullptr);
    detachDevice(physical);
    EXPECT_EQ(filter->NextDevice, nullptr);
    EXPECT_FALSE(kernel.objects.contains(physical));
}

class DeviceListTest : public DevicesTest {
  protected:
    NTSTATUS list(std::vector<PDEVICE_OBJECT> &devices, ULONG &count) {
        return IoEnumerateDeviceObjectList(driver, devices.empty() ? nullptr : devices.data(),
                                           static_cast<ULONG>(devices.size() * sizeof(PDEVICE_OBJECT)), &count);
    }
};

TEST_F(DeviceListTest, sizesAreBytesAndTheNewestComesFirst) {
    PDEVICE_OBJECT first = make();
    PDEVICE_OBJECT second = make();
    std::vector<PDEVICE_OBJECT> devices(3);
    ULONG count = 0;
    EXPECT_EQ(list(devices, count), STATUS_SUCCESS);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(devices[0], second);
    EXPECT_EQ(devices[1], first);
    ObDereferenceObject(first);
    ObDereferenceObject(second);
}

TEST_F(DeviceListTest, shortListStoresAndReferencesWhatFits) {
    make();
    PDEVICE_OBJECT newest = make();
    std::vector<PDEVICE_OBJECT> devices(1);
    ULONG count = 0;
    EXPECT_EQ(list(devices, count), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(devices[0], newest);
    EXPECT_EQ(kernel.leaks().size(), 1u);
    ObDereferenceObject(newest);
}

TEST_F(DeviceListTest, noListAndNoDevices) {
    std::vector<PDEVICE_OBJECT> none;
    ULONG count = 7;
    EXPECT_EQ(list(none, count), STATUS_SUCCESS);
    EXPECT_EQ(count, 0u);
    make();
    EXPECT_EQ(list(none, count), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 1u);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(DeviceListTest, pagedListStops) {
    auto *paged = static_cast<PDEVICE_OBJECT *>(ExAllocatePool2(POOL_FLAG_PAGED, 8, 'tseT'));
    ULONG count = 0;
    EXPECT_EQ(stoppedBy([&] { IoEnumerateDeviceObjectList(driver, paged, 8, &count); }), "irql");
    ExFreePoolWithTag(paged, 'tseT');
}

TEST_F(DevicesTest, listsChangeUnderManyThreads) {
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index) {
        threads.emplace_back([this] {
            for (int round = 0; round < 50; ++round) {
                PDEVICE_OBJECT lower = make();
                PDEVICE_OBJECT upper = make();
                attachDevice(upper, lower);
                PDEVICE_OBJECT top = IoGetAttachedDeviceReference(lower);
                EXPECT_EQ(top, upper);
                ObDereferenceObject(top);
                detachDevice(lower);
                deleteDevice(upper);
                deleteDevice(lower);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(driver->DeviceObject, nullptr);
}

} // namespace

} // namespace sim::test
