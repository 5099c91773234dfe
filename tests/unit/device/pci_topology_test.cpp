#include "device/pci_topology.h"

#include "device/device_layouts.h"
#include "simulator/kernel/io.h"
#include "tests/unit/fixture/kernel_test.h"
#include "tests/unit/fixture/property_table.h"

#include <array>

namespace unit {
namespace {

/// A disk with four ancestors: controller, downstream port, upstream port, root port.
class PciTopology : public KernelTest {
  protected:
    PciTopology() : driver(sim::createDriverObject(u"Bus")) {
        kernel.deviceProperties = &properties;
        for (std::size_t level = 0; level < devices.size(); ++level) {
            devices[level] = sim::createDevice(driver, 0, FILE_DEVICE_UNKNOWN, 0);
            devices[level]->DeviceObjectExtension->DeviceNode = &nodes[level];
            nodes[level].physicalDeviceObject = devices[level];
            nodes[level].parent = level + 1 < nodes.size() ? &nodes[level + 1] : nullptr;
        }
        of(controller) = {{"DeviceDesc", u"Standard NVM Express Controller"},
                          {"Service", u"stornvme"},
                          {"MatchingDeviceId", u"PCI\\CC_010802"}};
        of(downstream) = {{"DeviceDesc", u"PCI Express Downstream Switch Port"},
                          {"Service", u"pci"},
                          {"MatchingDeviceId", u"PCI\\CC_0604&DT_6"}};
        of(upstream) = {{"DeviceDesc", u"PCI Express Upstream Switch Port"},
                        {"Service", u"pci"},
                        {"MatchingDeviceId", u"PCI\\CC_0604&DT_5"}};
    }
    ~PciTopology() override {
        kernel.deviceProperties = nullptr;
        for (PDEVICE_OBJECT device : devices) {
            EXPECT_EQ(kernel.objects.references(device), 1);
            sim::deleteDevice(device);
        }
        sim::deleteDriverObject(driver);
    }

    static constexpr std::size_t controller = 1;
    static constexpr std::size_t downstream = 2;
    static constexpr std::size_t upstream = 3;

    PropertyTable::Values &of(std::size_t level) { return properties.values[devices[level]]; }
    bool connected() { return isConnectedToPciePorts(devices[0]); }

    PropertyTable properties;
    PDRIVER_OBJECT driver;
    std::array<PDEVICE_OBJECT, 5> devices{};
    std::array<DeviceNodeLayout, 5> nodes{};
};

TEST_F(PciTopology, ADiskBehindASwitchIsConnected) {
    EXPECT_TRUE(connected());
}

TEST_F(PciTopology, LettersMayBeOfAnyCaseAndTextsMayHoldMore) {
    of(controller) = {
        {"DeviceDesc", u"acme nvm 1"}, {"Service", u"StorNVMe2"}, {"MatchingDeviceId", u"xpci\\cc_010802&rev"}};
    of(downstream)["DeviceDesc"] = u"DOWNSTREAM";
    of(upstream)["MatchingDeviceId"] = u"pci\\cc_0604&dt_5";
    EXPECT_TRUE(connected());
}

TEST_F(PciTopology, EachPropertyOfEachLevelMustBeThere) {
    for (const std::size_t level : {controller, downstream, upstream}) {
        for (const char *name : {"DeviceDesc", "Service", "MatchingDeviceId"}) {
            const std::u16string kept = of(level)[name];
            of(level).erase(name);
            EXPECT_FALSE(connected()) << level << ' ' << name;
            of(level)[name] = u"something else";
            EXPECT_FALSE(connected()) << level << ' ' << name;
            of(level)[name] = u"";
            EXPECT_FALSE(connected()) << level << ' ' << name;
            of(level)[name] = kept;
        }
    }
    EXPECT_TRUE(connected());
}

TEST_F(PciTopology, PortsMustStandInTheirOrder) {
    std::swap(of(downstream), of(upstream));
    EXPECT_FALSE(connected());
}

TEST_F(PciTopology, AMissingAncestorMeansNo) {
    for (const std::size_t level : {0, 1, 2}) {
        nodes[level].parent = nullptr;
        EXPECT_FALSE(connected()) << level;
        nodes[level].parent = &nodes[level + 1];
    }
    EXPECT_TRUE(connected());
}

TEST_F(PciTopology, WhatStandsAboveAndTheDiskItselfDoNotCount) {
    nodes[3].parent = nullptr;
    EXPECT_TRUE(connected());
}

TEST_F(PciTopology, MemoryThatRunsOutMeansNo) {
    failEachCall([&] { return connected(); },
                 [&](bool answer, bool failed) {
                     EXPECT_EQ(answer, !failed);
                     EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
                 });
}

} // namespace
} // namespace unit
