#include "device/device_tree.h"

#include "device/device_layouts.h"
#include "simulator/kernel/io.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

class DeviceTree : public KernelTest {
  protected:
    DeviceTree()
        : driver(sim::createDriverObject(u"Bus")), parent(makeDevice()), child(makeDevice()), filter(makeDevice()) {
        parentNode.physicalDeviceObject = parent;
        childNode.physicalDeviceObject = child;
        childNode.parent = &parentNode;
        parent->DeviceObjectExtension->DeviceNode = &parentNode;
        child->DeviceObjectExtension->DeviceNode = &childNode;
        sim::attachDevice(filter, child);
    }
    ~DeviceTree() override {
        EXPECT_EQ(kernel.objects.references(parent), 1);
        EXPECT_EQ(kernel.objects.references(child), 1);
        EXPECT_EQ(kernel.objects.references(filter), 1);
        sim::detachDevice(child);
        for (PDEVICE_OBJECT device : {filter, child, parent}) {
            sim::deleteDevice(device);
        }
        sim::deleteDriverObject(driver);
    }
    PDEVICE_OBJECT makeDevice() { return sim::createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0); }

    PDRIVER_OBJECT driver;
    PDEVICE_OBJECT parent;
    PDEVICE_OBJECT child;
    PDEVICE_OBJECT filter;
    DeviceNodeLayout parentNode{};
    DeviceNodeLayout childNode{};
};

TEST_F(DeviceTree, ParentIsThePhysicalDeviceOfTheParentNodeReferenced) {
    const DeviceReference found = getParentDevice(child);
    EXPECT_EQ(found.get(), parent);
    EXPECT_EQ(kernel.objects.references(parent), 2);
}

TEST_F(DeviceTree, ParentIsFoundFromAnywhereInTheStack) {
    EXPECT_EQ(getParentDevice(filter).get(), parent);
}

TEST_F(DeviceTree, RootHasNoParent) {
    EXPECT_FALSE(getParentDevice(parent));
}

TEST_F(DeviceTree, DeviceWithoutANodeHasNoParent) {
    child->DeviceObjectExtension->DeviceNode = nullptr;
    EXPECT_FALSE(getParentDevice(child));
}

TEST_F(DeviceTree, ParentNodeWithoutADeviceIsNoParent) {
    parentNode.physicalDeviceObject = nullptr;
    EXPECT_FALSE(getParentDevice(child));
}

TEST_F(DeviceTree, DriverNameIsThatOfTheOwner) {
    EXPECT_EQ(utf8(driverName(child)), "\\Driver\\Bus");
}

struct HubDriverCase {
    const char16_t *service;
    bool isHub;
};

class HubDriver : public KernelTest, public testing::WithParamInterface<HubDriverCase> {};

TEST_P(HubDriver, IsKnownByItsNameInAnyCase) {
    PDRIVER_OBJECT driver = sim::createDriverObject(GetParam().service);
    PDEVICE_OBJECT device = sim::createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
    EXPECT_EQ(isOwnedByHubDriver(device), GetParam().isHub) << sim::toUtf8(GetParam().service);
    sim::deleteDevice(device);
    sim::deleteDriverObject(driver);
}

INSTANTIATE_TEST_SUITE_P(Names, HubDriver,
                         testing::Values(HubDriverCase{u"USBHUB", true}, HubDriverCase{u"USBHUB3", true},
                                         HubDriverCase{u"usbhub", true}, HubDriverCase{u"UsbHub3", true},
                                         HubDriverCase{u"USBHUB4", false}, HubDriverCase{u"USBHU", false},
                                         HubDriverCase{u"usbccgp", false}));

} // namespace
} // namespace unit
