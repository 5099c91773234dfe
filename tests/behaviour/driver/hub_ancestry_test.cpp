#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

/// The look for a USB hub driver above a device, and the text of devices that have none.
class HubAncestry : public DriverTest {
  protected:
    static sim::DeviceDescription remote(std::string name, std::u16string busDriver = u"tsusbhub") {
        sim::DeviceDescription device = mouse();
        device.instanceId = u"USB\\VID_046D&PID_C077\\" + std::u16string(name.begin(), name.end());
        device.name = std::move(name);
        device.busDriver = std::move(busDriver);
        return device;
    }
    Lines searchedFor(const std::string &device) {
        Lines found;
        for (const std::string &line : addOf(device).log) {
            if (line.find("Search no usbhub devices") != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }
};

TEST_F(HubAncestry, ADeviceBelowNoHubDriverAddsOneLine) {
    start();
    EXPECT_TRUE(plug(remote("a"), &machine().rootNode()).started());
    EXPECT_EQ(searchedFor("a"), lines::searched({"\\Driver\\tsusbhub", "\\Driver\\PnpManager"}));
    EXPECT_EQ(notUsbHubText(machine()), "\\Driver\\tsusbhub->\\Driver\\PnpManager->\n");
}

TEST_F(HubAncestry, EachSuchDeviceAddsALineAtEachAdd) {
    start();
    plug(remote("a"), &machine().rootNode());
    sim::DeviceNode &second = plug(remote("b", u"othbus"), &machine().rootNode());
    EXPECT_EQ(notUsbHubText(machine()), "\\Driver\\tsusbhub->\\Driver\\PnpManager->\n"
                                        "\\Driver\\othbus->\\Driver\\PnpManager->\n");
    machine().replug(second);
    EXPECT_EQ(notUsbHubText(machine()), "\\Driver\\tsusbhub->\\Driver\\PnpManager->\n"
                                        "\\Driver\\othbus->\\Driver\\PnpManager->\n"
                                        "\\Driver\\othbus->\\Driver\\PnpManager->\n");
}

TEST_F(HubAncestry, TheWholeChainIsNamedFromTheDeviceUpwards) {
    options.hubDrivers = {};
    start();
    plug(mouse(), &machine().hostController());
    EXPECT_EQ(notUsbHubText(machine()), "\\Driver\\USBXHCI->\\Driver\\pci->\\Driver\\ACPI->\\Driver\\ACPI_HAL->"
                                        "\\Driver\\PnpManager->\\Driver\\PnpManager->\n");
    EXPECT_EQ(searchedFor("mouse"),
              lines::searched({"\\Driver\\USBXHCI", "\\Driver\\pci", "\\Driver\\ACPI", "\\Driver\\ACPI_HAL",
                               "\\Driver\\PnpManager", "\\Driver\\PnpManager"}));
}

TEST_F(HubAncestry, BelowEitherHubDriverTheSearchStops) {
    options.hubDrivers = {u"USBHUB", u"USBHUB3"};
    start();
    plug(mouse()); // the root hub has the first of the two
    EXPECT_EQ(searchedFor("mouse"), lines::searched({"\\Driver\\USBHUB"}));
    plug(remote("three", u"USBHUB3"), &machine().rootNode());
    EXPECT_EQ(searchedFor("three"), lines::searched({"\\Driver\\USBHUB3"}));
    EXPECT_EQ(notUsbHubText(machine()), "");
}

TEST_F(HubAncestry, HubDriversAreKnownInAnyLetterCase) {
    options.hubDrivers = {};
    start();
    plug(remote("a", u"usbhub"), &machine().rootNode());
    plug(remote("b", u"UsbHub3"), &machine().rootNode());
    EXPECT_EQ(searchedFor("a"), lines::searched({"\\Driver\\usbhub"}));
    EXPECT_EQ(searchedFor("b"), lines::searched({"\\Driver\\UsbHub3"}));
    EXPECT_EQ(notUsbHubText(machine()), "");
}

TEST_F(HubAncestry, ANameThatOnlyBeginsLikeAHubDriverIsNone) {
    start();
    plug(remote("a", u"USBHUB30"), &machine().rootNode());
    EXPECT_EQ(notUsbHubText(machine()), "\\Driver\\USBHUB30->\\Driver\\PnpManager->\n");
}

TEST_F(HubAncestry, AnAncestorsHubDriverCounts) {
    start();
    plug(keyboard());
    EXPECT_EQ(searchedFor("keyboard keys"), lines::searched({"\\Driver\\usbccgp", "\\Driver\\USBHUB3"}));
    EXPECT_EQ(notUsbHubText(machine()), "");
}

TEST_F(HubAncestry, ADeviceWithoutAParentNamesItself) {
    start();
    sim::DeviceDescription device = remote("lonely");
    device.hasParent = false;
    plug(device, &machine().rootNode());
    EXPECT_EQ(notUsbHubText(machine()), "\\Driver\\tsusbhub->\n");
}

TEST_F(HubAncestry, TheTextGrowsBeyondTheRoomReservedForIt) {
    start();
    std::string expected;
    while (expected.size() * 2 <= 10'240) {
        const std::string driver(1'000, static_cast<char>('a' + expected.size() / 1'000));
        machine().unplug(plug(remote("filler", std::u16string(driver.begin(), driver.end())), &machine().rootNode()));
        expected += "\\Driver\\" + driver + "->\\Driver\\PnpManager->\n";
    }
    EXPECT_EQ(notUsbHubText(machine()), expected);
}

TEST_F(HubAncestry, AFailedLastAppendIsLoggedAndProcessingGoesOn) {
    setParameter(u"LogLevel", 2);
    load();
    // Fill the room that is reserved, so that every append has to find memory.
    while (notUsbHubText(machine()).size() * 2 <= 10'240) {
        machine().unplug(plug(remote("filler", std::u16string(1'000, u'x')), &machine().rootNode()));
    }
    unsigned told = 0;
    for (std::uint64_t nth = 4; nth <= 10; ++nth) {
        failInAdd("ExAllocatePool2", nth);
        sim::DeviceNode &node = plug(remote("mouse"), &machine().rootNode());
        const Lines &log = addOf("mouse").log;
        if (!log.empty() && log.front() == "ERROR Failed to get no usbhub devices, status = 0xc000009a") {
            ++told;
            EXPECT_TRUE(node.started());
            EXPECT_EQ(filterOf("mouse").mode, 2U);
        }
        machine().unplug(node);
    }
    EXPECT_EQ(told, 1U) << "only the last append of a line is looked at";
}

TEST_F(HubAncestry, WithoutTheRoomReservedAtLoadNothingIsRecordedAndEachDeviceIsLogged) {
    setParameter(u"LogLevel", 2);
    for (std::uint64_t nth = 1;; ++nth) {
        ASSERT_LT(nth, 30U) << "no allocation of the load is the one for the room";
        failCall("ExAllocatePool2", nth);
        load();
        endFailures();
        if (driverState(machine()).notUsbHubText.maximumLength() == 0) {
            break;
        }
        unload();
    }
    machine().plugControlNode();
    machine().rootHub();
    for (const char *name : {"a", "b"}) {
        EXPECT_TRUE(plug(remote(name), &machine().rootNode()).started());
        ASSERT_FALSE(addOf(name).log.empty());
        EXPECT_EQ(addOf(name).log.front(), "ERROR Failed to get no usbhub devices, status = 0xc0000023");
        EXPECT_EQ(filterOf(name).mode, 2U);
    }
    EXPECT_EQ(notUsbHubText(machine()), "");
}

TEST_F(HubAncestry, TheTextDoesNotOutliveTheDriver) {
    start();
    plug(remote("a"), &machine().rootNode());
    unload();
    load();
    EXPECT_EQ(notUsbHubText(machine()), "");
}

} // namespace
} // namespace behaviour
