// Device add: what Plug and Play sees, how a device is deleted again, what a filter copies.

#include "framework_fixture.h"

#include "simulator/kernel/interleaving.h"

#include <atomic>
#include <cstring>
#include <thread>

namespace sim::test {

namespace {

using Events = std::vector<std::string>;

class DeviceAddTest : public FrameworkTest {
  protected:
    DeviceAddTest() { loadDriver(); }
    ~DeviceAddTest() override {
        if (extra) {
            bus.unplug(extra);
        }
    }

    static VOID deviceCleaned(WDFOBJECT object) {
        const auto handle = static_cast<WDFDEVICE>(object);
        const bool attached = WdfDeviceWdmGetAttachedDevice(handle)->AttachedDevice != nullptr;
        noteEvent(attached ? "device cleanup, attached" : "device cleanup, detached");
    }
    static VOID deviceDestroyed(WDFOBJECT) { noteEvent("device destroy"); }
    static VOID childCleaned(WDFOBJECT) { noteEvent("child cleanup"); }
    static VOID childDestroyed(WDFOBJECT) { noteEvent("child destroy"); }

    void addChild() {
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = device;
        attributes.EvtCleanupCallback = childCleaned;
        attributes.EvtDestroyCallback = childDestroyed;
        WDFCOLLECTION collection = nullptr;
        EXPECT_EQ(WdfCollectionCreate(&attributes, &collection), STATUS_SUCCESS);
    }
    PDEVICE_OBJECT plugOne() { return extra = bus.plug(); }

    PDEVICE_OBJECT extra = nullptr;
};

TEST_F(DeviceAddTest, WithoutDeviceTheStatusDependsOnTheFilterFlag) {
    onAdd = [](PWDFDEVICE_INIT) { return STATUS_SUCCESS; };
    EXPECT_EQ(add(plugOne()), STATUS_SUCCESS);
    EXPECT_EQ(extra->AttachedDevice, nullptr);
    EXPECT_EQ(framework::lastDeviceAddCallbackStatus(), STATUS_SUCCESS);

    onAdd = [](PWDFDEVICE_INIT) { return STATUS_NO_MEMORY; };
    EXPECT_EQ(add(extra), STATUS_NO_MEMORY);
    EXPECT_EQ(framework::lastDeviceAddCallbackStatus(), STATUS_NO_MEMORY);

    onAdd = [](PWDFDEVICE_INIT init) {
        WdfFdoInitSetFilter(init);
        return STATUS_NO_MEMORY;
    };
    EXPECT_EQ(add(extra), STATUS_SUCCESS);
    EXPECT_EQ(framework::lastDeviceAddCallbackStatus(), STATUS_NO_MEMORY);
    EXPECT_EQ(extra->AttachedDevice, nullptr);
}

TEST_F(DeviceAddTest, AFilterThatFailsAfterCreationIsLeftOut) {
    deviceAttributes.EvtCleanupCallback = deviceCleaned;
    deviceAttributes.EvtDestroyCallback = deviceDestroyed;
    afterCreate = [this] {
        addChild();
        return STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(add(plugOne()), STATUS_SUCCESS);
    EXPECT_EQ(extra->AttachedDevice, nullptr);
    EXPECT_EQ(driverObject->DeviceObject, nullptr);
    EXPECT_EQ(takeEvents(), (Events{"child cleanup", "device cleanup, attached", "child destroy", "device destroy"}));
}

TEST_F(DeviceAddTest, AFunctionDriverThatFailsAfterCreationFailsTheAdd) {
    makesFilter = false;
    afterCreate = [] { return STATUS_UNSUCCESSFUL; };
    EXPECT_EQ(add(plugOne()), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(extra->AttachedDevice, nullptr);
}

TEST_F(DeviceAddTest, InitialisingEndsAfterTheCallback) {
    PDEVICE_OBJECT made = nullptr;
    afterCreate = [&] {
        made = WdfDeviceWdmGetDeviceObject(device);
        EXPECT_NE(made->Flags & DO_DEVICE_INITIALIZING, 0u);
        return STATUS_SUCCESS;
    };
    EXPECT_EQ(add(plugOne()), STATUS_SUCCESS);
    EXPECT_EQ(made->Flags & DO_DEVICE_INITIALIZING, 0u);
}

TEST_F(DeviceAddTest, AFilterCopiesFromTheDeviceBelow) {
    ASSERT_EQ(add(plugOne()), STATUS_SUCCESS);
    const PDEVICE_OBJECT made = WdfDeviceWdmGetDeviceObject(device);
    EXPECT_EQ(made->Flags & (DO_DIRECT_IO | DO_BUFFERED_IO | DO_POWER_PAGABLE), ULONG(DO_DIRECT_IO | DO_POWER_PAGABLE));
    EXPECT_EQ(made->DeviceType, ULONG(FILE_DEVICE_MASS_STORAGE));
    EXPECT_EQ(made->Characteristics, ULONG(FILE_DEVICE_SECURE_OPEN));
    EXPECT_EQ(made->StackSize, extra->StackSize + 1);
    EXPECT_EQ(WdfDeviceWdmGetAttachedDevice(device), extra);
    EXPECT_EQ(WdfDeviceWdmGetPhysicalDevice(device), extra);
    EXPECT_EQ(WdfWdmDeviceGetWdfDeviceHandle(made), device);
    EXPECT_EQ(stoppedBy([&] { WdfWdmDeviceGetWdfDeviceHandle(extra); }), "access violation");
}

TEST_F(DeviceAddTest, AFunctionDriverHasItsOwnFlagsAndAPreprocessCallbackOneMoreLocation) {
    makesFilter = false;
    beforeCreate = [](PWDFDEVICE_INIT init) {
        const auto callback = [](WDFDEVICE handle, PIRP irp) -> NTSTATUS {
            IoSkipCurrentIrpStackLocation(irp);
            return WdfDeviceWdmDispatchPreprocessedIrp(handle, irp);
        };
        EXPECT_EQ(WdfDeviceInitAssignWdmIrpPreprocessCallback(init, callback, IRP_MJ_SHUTDOWN, nullptr, 0),
                  STATUS_SUCCESS);
    };
    ASSERT_EQ(add(plugOne()), STATUS_SUCCESS);
    const PDEVICE_OBJECT made = WdfDeviceWdmGetDeviceObject(device);
    EXPECT_EQ(made->Flags & (DO_DIRECT_IO | DO_BUFFERED_IO | DO_POWER_PAGABLE),
              ULONG(DO_BUFFERED_IO | DO_POWER_PAGABLE));
    EXPECT_EQ(made->DeviceType, ULONG(FILE_DEVICE_UNKNOWN));
    EXPECT_EQ(made->StackSize, extra->StackSize + 2);
}

TEST_F(DeviceAddTest, DeviceInitIsSpentBySuccessOnly) {
    onAdd = [this](PWDFDEVICE_INIT init) {
        PWDFDEVICE_INIT pointer = init;
        WDF_OBJECT_ATTRIBUTES withParent;
        WDF_OBJECT_ATTRIBUTES_INIT(&withParent);
        withParent.ParentObject = driver;
        EXPECT_EQ(WdfDeviceCreate(&pointer, &withParent, &device), STATUS_WDF_PARENT_ASSIGNMENT_NOT_ALLOWED);
        EXPECT_EQ(pointer, init);
        EXPECT_EQ(device, nullptr);
        EXPECT_EQ(WdfDeviceCreate(&pointer, nullptr, &device), STATUS_SUCCESS);
        EXPECT_EQ(pointer, nullptr);
        PWDFDEVICE_INIT again = init;
        WDFDEVICE second = nullptr;
        EXPECT_EQ(WdfDeviceCreate(&again, nullptr, &second), STATUS_INVALID_DEVICE_STATE);
        return STATUS_SUCCESS;
    };
    EXPECT_EQ(add(plugOne()), STATUS_SUCCESS);
}

TEST_F(DeviceAddTest, NothingToAttachToIsNoSuchDevice) {
    const PDEVICE_OBJECT going = bus.plug(u"\\Device\\Going");
    kernel.objects.reference(going, nullptr);
    deleteDevice(going);
    NTSTATUS seen = STATUS_SUCCESS;
    onAdd = [&](PWDFDEVICE_INIT init) { return seen = WdfDeviceCreate(&init, nullptr, &device); };
    EXPECT_EQ(add(going), STATUS_NO_SUCH_DEVICE);
    EXPECT_EQ(seen, STATUS_NO_SUCH_DEVICE);
    bus.forget(going);
    kernel.objects.dereference(going, nullptr);
}

TEST_F(DeviceAddTest, PropertiesAreThoseOfThePhysicalDevice) {
    bus.properties[DevicePropertyHardwareID] = textBytes(u"USB\\VID_0001");
    bus.properties[DevicePropertyFriendlyName] = {};
    onAdd = [](PWDFDEVICE_INIT init) {
        ULONG length = 0;
        EXPECT_EQ(WdfFdoInitQueryProperty(init, DevicePropertyHardwareID, 0, nullptr, &length),
                  STATUS_BUFFER_TOO_SMALL);
        EXPECT_EQ(length, 26u);
        std::vector<WCHAR> text(13);
        EXPECT_EQ(WdfFdoInitQueryProperty(init, DevicePropertyHardwareID, 26, text.data(), &length), STATUS_SUCCESS);
        EXPECT_EQ(WdfFdoInitQueryProperty(init, DevicePropertyFriendlyName, 0, nullptr, &length), STATUS_SUCCESS);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(WdfFdoInitQueryProperty(init, DevicePropertyManufacturer, 0, nullptr, &length),
                  STATUS_OBJECT_NAME_NOT_FOUND);
        EXPECT_EQ(stoppedBy([&] { WdfFdoInitQueryProperty(init, DevicePropertyHardwareID, 4, nullptr, &length); }),
                  "framework pointer");
        WDFMEMORY memory = nullptr;
        EXPECT_EQ(WdfFdoInitAllocAndQueryProperty(init, DevicePropertyHardwareID, PagedPool, nullptr, &memory),
                  STATUS_SUCCESS);
        size_t size = 0;
        EXPECT_EQ(std::memcmp(WdfMemoryGetBuffer(memory, &size), text.data(), 26), 0);
        EXPECT_EQ(size, 26u);
        EXPECT_EQ(WdfFdoInitAllocAndQueryProperty(init, DevicePropertyFriendlyName, PagedPool, nullptr, &memory),
                  STATUS_SUCCESS);
        EXPECT_EQ(memory, nullptr);
        return STATUS_SUCCESS;
    };
    EXPECT_EQ(add(plugOne()), STATUS_SUCCESS);
}

TEST_F(DeviceAddTest, RemovalCleansUpWhileAttachedAndPassesTheIrpDown) {
    deviceAttributes.EvtCleanupCallback = deviceCleaned;
    deviceAttributes.EvtDestroyCallback = deviceDestroyed;
    afterCreate = [this] {
        addChild();
        return STATUS_SUCCESS;
    };
    bus.answer = [this](PIRP irp) -> std::optional<NTSTATUS> {
        const UCHAR minor = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
        note(minor == IRP_MN_REMOVE_DEVICE ? "bus remove" : "bus " + std::to_string(minor));
        return std::nullopt;
    };
    ASSERT_EQ(add(plugOne()), STATUS_SUCCESS);
    EXPECT_EQ(stoppedBy([&] { WdfObjectDelete(device); }), "framework object");
    ASSERT_EQ(bus.pnp(extra, IRP_MN_START_DEVICE), STATUS_SUCCESS);
    bus.unplug(extra, true);
    extra = nullptr;
    EXPECT_EQ(takeEvents(), (Events{"bus 0", "bus 23", "child cleanup", "device cleanup, attached", "child destroy",
                                    "bus remove", "device destroy"}));
}

TEST_F(DeviceAddTest, EveryFallibleCallOfAnAddMayFailWithoutLeaks) {
    afterCreate = [this] {
        WDF_IO_QUEUE_CONFIG config;
        WDF_IO_QUEUE_CONFIG_INIT(&config, WdfIoQueueDispatchManual);
        WDFQUEUE queue = nullptr;
        WDFIOTARGET target = nullptr;
        const NTSTATUS status = WdfIoQueueCreate(device, &config, nullptr, &queue);
        return NT_SUCCESS(status) ? WdfIoTargetCreate(device, nullptr, &target) : status;
    };
    kernel.faults.arm(true);
    int failures = 0;
    for (int nth = 1;; ++nth) {
        kernel.faults.clear();
        kernel.faults.arm(true);
        kernel.faults.failNth(nth, false);
        PDEVICE_OBJECT one = bus.plug(u"");
        EXPECT_EQ(add(one), STATUS_SUCCESS);
        const bool failed = !NT_SUCCESS(*framework::lastDeviceAddCallbackStatus());
        EXPECT_EQ(one->AttachedDevice == nullptr, failed);
        bus.unplug(one);
        if (!failed) {
            break;
        }
        ++failures;
    }
    EXPECT_EQ(failures, 3);
    kernel.faults.clear();
    kernel.faults.arm(false);
}

TEST_F(DeviceAddTest, WhatIsSentWhileADeviceIsBeingAttachedReachesTheBus) {
    setInterleaving(true);
    for (int round = 0; round < 500; ++round) {
        physical = bus.plug();
        std::atomic<bool> added = false;
        std::thread sender([&] {
            while (!added) {
                EXPECT_EQ(pnp(IRP_MN_QUERY_CAPABILITIES), STATUS_NOT_SUPPORTED) << "the bus leaves it as it is";
            }
        });
        EXPECT_EQ(add(physical), STATUS_SUCCESS);
        added = true;
        sender.join();
        removeDevice();
    }
    setInterleaving(false);
}

} // namespace

} // namespace sim::test
