// Hubs that answer in threads of their own.

#include "simulator/kernel/strings.h"
#include "tests/races/support/race_test.h"

namespace races {
namespace {

class HubRace : public RaceTest {
  protected:
    HubRace() {
        behaviour::Policy policy;
        policy.allowed = behaviour::asStrings({u"VID_0781&PID_5581\\S?X0"});
        policy.readOnly = behaviour::asStrings({u"VID_0781&PID_5581\\S?X1"});
        apply(policy);
    }
    /// Its hub pends every request about it and answers later.
    static sim::DeviceDescription slowDrive(unsigned thread, unsigned round) {
        sim::DeviceDescription device = numberedDrive(thread, round);
        device.usb->answersLater = true;
        return device;
    }
};

TEST_F(HubRace, AnswersThatComeLaterBelongToTheirDevice) {
    start();
    std::vector<sim::DeviceNode *> hubs;
    for (unsigned hub = 0; hub < 3; ++hub) {
        hubs.push_back(&machine().plug(sim::usbHub("hub" + std::to_string(hub), {0x05E3, 0x0608}, 16)));
    }
    together([&](unsigned thread) {
        for (unsigned round = 0; round < 9; ++round) {
            const unsigned kind = round % 3;
            sim::DeviceDescription device = slowDrive(thread, kind);
            sim::DeviceNode &node = machine().plug(device, hubs[(thread + round) % hubs.size()]);
            const Decision decision = decisionOf(driveName(thread, kind));
            EXPECT_EQ(decision.returned, STATUS_SUCCESS);
            EXPECT_EQ(decision.mode, kind == 0   ? modeAllowed
                                     : kind == 1 ? modeReadOnly
                                                 : modeBlocked)
                << driveName(thread, kind);
            EXPECT_EQ(sim::toUtf8(decision.serial), serialOf(thread, kind));
            machine().unplug(node);
        }
    });
}

TEST_F(HubRace, AHubGoesWhileItsDevicesAreDecided) {
    start();
    for (unsigned round = 0; round < 6; ++round) {
        sim::DeviceNode &hub = machine().plug(sim::usbHub("hub", {0x05E3, 0x0608}, 16));
        together([&](unsigned thread) {
            if (thread == 0) {
                machine().unplug(hub);
                return;
            }
            try {
                machine().plug(slowDrive(thread, 0), &hub);
            } catch (const std::logic_error &) {
                // the hub was faster
            }
        });
        machine().settle();
        EXPECT_EQ(machine().find("hub"), nullptr);
        for (unsigned thread = 1; thread < threadCount; ++thread) {
            EXPECT_EQ(machine().find(driveName(thread, 0)), nullptr);
        }
    }
}

} // namespace
} // namespace races
