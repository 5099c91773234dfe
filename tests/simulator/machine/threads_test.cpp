#include "test_driver.h"

#include "simulator/kernel/strings.h"

#include "simulator/kernel/kernel.h"
#include "simulator/machine/usb_device.h"

#include <usbioctl.h>

#include <gtest/gtest.h>

#include <thread>

namespace sim::machinetest {
namespace {

constexpr unsigned threadCount = 8;
constexpr unsigned rounds = 20;

UsbIdentity identity(unsigned thread) {
    return {0x1000, static_cast<std::uint16_t>(thread), 1, u"Maker", u"Product", toUtf16("S" + std::to_string(thread))};
}

std::string nameOf(unsigned thread) {
    return "device" + std::to_string(thread);
}

void onEveryThread(const std::function<void(unsigned)> &work) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < threadCount; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST(Threads, DevicesComeAndGoAtOnce) {
    TestDriver driver;
    Machine machine(driver.options());
    machine.presetClassFilters();
    machine.rootHub();
    onEveryThread([&](unsigned i) {
        for (unsigned round = 0; round < rounds; ++round) {
            DeviceNode &node =
                machine.plug(i % 2 == 0 ? usbFlashDrive(nameOf(i), identity(i)) : usbKeyboard(nameOf(i), identity(i)));
            EXPECT_TRUE(node.started());
            EXPECT_TRUE(machine.replug(node).started());
            machine.unplug(*machine.find(nameOf(i)));
        }
    });
    EXPECT_TRUE(machine.rootHub().children().empty());
    machine.unloadDriver();
    EXPECT_TRUE(machine.leaks().empty());
}

TEST(Threads, PortCyclesMeetUnplugs) {
    TestDriver driver;
    Machine machine(driver.options());
    machine.kernel().workers.setMode(WorkQueue::Mode::free);
    machine.presetClassFilters();
    DeviceNode &hub = machine.rootHub();
    onEveryThread([&](unsigned i) {
        for (unsigned round = 0; round < rounds; ++round) {
            DeviceDescription description = usbVendorDevice(nameOf(i), identity(i));
            description.address = i + 1;
            machine.plug(description);
            USB_CYCLE_PORT_PARAMS parameters{i + 1, 0};
            EXPECT_EQ(control(hub.physicalDevice(), IOCTL_USB_HUB_CYCLE_PORT, &parameters, 8, 0).status,
                      STATUS_SUCCESS);
            DeviceNode *node = nullptr;
            while (node == nullptr || machine.find(nameOf(i)) != nullptr) {
                node = machine.find(nameOf(i));
                if (node != nullptr) {
                    machine.unplug(*node);
                }
            }
            machine.settle();
            if (DeviceNode *late = machine.find(nameOf(i))) {
                machine.unplug(*late);
            }
        }
    });
    machine.settle();
    EXPECT_TRUE(hub.children().empty());
    machine.unloadDriver();
    EXPECT_TRUE(machine.leaks().empty());
}

TEST(Threads, AHubGoesWhileDevicesArrive) {
    TestDriver driver;
    Machine machine(driver.options());
    machine.presetClassFilters();
    machine.rootHub();
    for (unsigned round = 0; round < rounds; ++round) {
        DeviceNode &hub = machine.plug(usbHub("hub", {0x05E3, 0x0608}, 16));
        onEveryThread([&](unsigned i) {
            if (i == 0) {
                machine.unplug(hub);
                return;
            }
            try {
                machine.plug(usbVendorDevice(nameOf(i), identity(i)), &hub);
            } catch (const std::logic_error &) {
                // the hub was faster
            }
        });
        EXPECT_EQ(machine.find("hub"), nullptr);
        EXPECT_EQ(machine.find("device1"), nullptr);
    }
    machine.unloadDriver();
    EXPECT_TRUE(machine.leaks().empty());
}

} // namespace
} // namespace sim::machinetest
