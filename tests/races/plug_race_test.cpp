// Many devices come and go at once: each is decided as if it were alone.

#include "simulator/kernel/strings.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/races/support/race_test.h"

#include <algorithm>

namespace races {
namespace {

constexpr unsigned plugRounds = 4;

class PlugRace : public RaceTest {
  protected:
    PlugRace() {
        behaviour::Policy policy;
        policy.allowed = behaviour::asStrings({u"VID_0781&PID_5581\\S*"});
        policy.readOnly = behaviour::asStrings({u"VID_18D1*"});
        apply(policy);
    }
    static sim::UsbIdentity identity(unsigned thread, unsigned round, std::uint16_t vendor) {
        return {vendor, 0x0001, 0x0100, u"Maker", u"Product", sim::toUtf16(serialOf(thread, round))};
    }
    static std::string named(const char *kind, unsigned thread) { return kind + std::to_string(thread); }

    void expectDecision(const std::string &name, std::uint32_t mode, ULONG problem) {
        sim::DeviceNode *node = machine().find(name);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(decisionOf(name).mode, mode) << name;
        EXPECT_EQ(node->problemCode(), problem) << name;
    }
    void removeAll(const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            machine().unplug(*machine().find(name));
        }
    }
};

TEST_F(PlugRace, EachDeviceIsDecidedByTheRules) {
    start();
    std::vector<sim::DeviceNode *> hubs;
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        hubs.push_back(&machine().plug(sim::usbHub(named("hub", thread), {0x05E3, 0x0608}, 4)));
    }
    together([&](unsigned thread) {
        sim::DeviceNode *hub = hubs[thread];
        for (unsigned round = 0; round < plugRounds; ++round) {
            const std::string allowed = driveName(thread, round);
            const std::string blocked = named("blocked", thread);
            const std::string phone = named("phone", thread);
            const std::string keyboard = named("keyboard", thread);
            machine().plug(numberedDrive(thread, round), hub);
            machine().plug(drive(blocked, "X" + std::to_string(thread)), hub);
            sim::DeviceDescription mtp = sim::usbMtpPhone(phone, identity(thread, round, 0x18D1));
            mtp.security = behaviour::usualSecurity;
            machine().plug(mtp, hub);
            machine().plug(sim::usbKeyboard(keyboard, identity(thread, round, 0x046D)), hub);
            machine().settle();
            expectDecision(allowed, modeAllowed, 0);
            expectDecision(blocked, modeBlocked, problemDisabled);
            expectDecision(phone, modeReadOnly, 0);
            expectDecision(keyboard, modeAllowed, 0);
            EXPECT_THAT(machine().find(phone)->security(), testing::HasSubstr("(D;;0x2;;;WD)(A;"));
            removeAll({keyboard, phone, blocked, allowed});
        }
    });
    for (const sim::DeviceNode *hub : hubs) {
        EXPECT_TRUE(hub->children().empty());
    }
    // Each of the drives was asked for by name once, however the lines of the others came between.
    const auto asked = countLines("INFO Check request isAllowed");
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        for (unsigned round = 0; round < plugRounds; ++round) {
            const std::string about = "serial = " + serialOf(thread, round) + ", result = 1";
            EXPECT_EQ(std::count_if(asked.begin(), asked.end(),
                                    [&](const auto &line) {
                                        return line.first.ends_with(about) && line.second == 1 &&
                                               line.first.find("VID_0781") != std::string::npos;
                                    }),
                      1)
                << about;
        }
    }
}

TEST_F(PlugRace, ReplugsOfTheSameDevicesFromTwoSides) {
    start();
    for (unsigned thread = 0; thread < threadCount / 2; ++thread) {
        machine().plug(numberedDrive(thread, 0));
    }
    together([&](unsigned thread) {
        const std::string name = driveName(thread / 2, 0);
        for (unsigned round = 0; round < plugRounds; ++round) {
            if (sim::DeviceNode *node = machine().find(name)) {
                try {
                    machine().replug(*node);
                } catch (const std::logic_error &) {
                    // the other thread had it away at that moment
                }
            }
        }
    });
    machine().settle();
    for (unsigned thread = 0; thread < threadCount / 2; ++thread) {
        expectDecision(driveName(thread, 0), modeAllowed, 0);
    }
}

TEST_F(PlugRace, TheTextOfDevicesBelowNoHubHasEachLineWhole) {
    start();
    constexpr unsigned perThread = 4;
    together([&](unsigned thread) {
        for (unsigned round = 0; round < perThread; ++round) {
            sim::DeviceDescription remote = numberedDrive(thread, round);
            remote.busDriver = u"redirector" + sim::toUtf16(std::to_string(thread));
            machine().plug(remote, &machine().rootNode());
        }
    });
    std::vector<std::string> lines;
    const std::string text = behaviour::notUsbHubText(machine());
    std::size_t at = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', at)) {
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    EXPECT_EQ(at, text.size());
    std::vector<std::string> expected;
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        expected.insert(expected.end(), perThread,
                        "\\Driver\\redirector" + std::to_string(thread) + "->\\Driver\\PnpManager->");
    }
    EXPECT_THAT(lines, testing::UnorderedElementsAreArray(expected));
}

} // namespace
} // namespace races
