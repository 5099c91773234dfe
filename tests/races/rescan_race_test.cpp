// Rescans while devices come and go and the policy changes.

#include "myrtelhaven_service.h"
#include "tests/behaviour/support/control_code.h"
#include "tests/races/support/race_test.h"

#include <atomic>

namespace races {
namespace {

class RescanRace : public RaceTest {
  protected:
    RescanRace() {
        options.hubDrivers = {u"USBHUB3", u"USBHUB"};
        allowDrives(true);
    }
    void allowDrives(bool allowed) { apply(allowed ? behaviour::allowing({u"VID_0781*"}) : behaviour::Policy{}); }
    NTSTATUS rescan() { return behaviour::sendControlCode(control(), IOCTL_RESCAN_DEVICES).status; }
};

TEST_F(RescanRace, TheLastRescanLeavesEveryDeviceUnderTheLastPolicy) {
    constexpr unsigned plugging = 4;
    constexpr unsigned rounds = 6;
    start();
    for (unsigned thread = 0; thread < plugging; ++thread) {
        machine().plug(numberedDrive(thread, rounds)); // stays
        // Of a class that has no filter, but of a blocked compatible id: each rescan remembers and cycles it.
        machine().plug(sim::usbBluetoothAdapter("adapter" + std::to_string(thread),
                                                {0x0A12, static_cast<std::uint16_t>(thread + 1)}));
    }
    std::atomic<unsigned> pluggers = plugging;
    together([&](unsigned thread) {
        if (thread < plugging) {
            for (unsigned round = 0; round < rounds; ++round) {
                sim::DeviceDescription slow = numberedDrive(thread, round);
                slow.usb->answersLater = true; // the rescans find it in the middle of its add
                machine().plug(slow);
                if (sim::DeviceNode *node = machine().find(driveName(thread, round))) {
                    machine().unplug(*node);
                }
            }
            --pluggers;
            return;
        }
        for (unsigned round = 0; pluggers != 0 || round < 2; ++round) {
            if (thread % 2 == 0) {
                allowDrives(round % 2 == 0);
            }
            rescan(); // may meet a device that has just gone
        }
    });
    machine().settle();
    for (const bool allowed : {false, true}) {
        allowDrives(allowed);
        EXPECT_EQ(rescan(), STATUS_SUCCESS);
        machine().settle();
        for (unsigned thread = 0; thread < plugging; ++thread) {
            sim::DeviceNode *node = machine().find(driveName(thread, rounds));
            ASSERT_NE(node, nullptr);
            EXPECT_EQ(node->problemCode(), allowed ? 0U : problemDisabled) << driveName(thread, rounds);
            EXPECT_TRUE(machine().find("adapter" + std::to_string(thread))->started());
        }
    }
}

} // namespace
} // namespace races
