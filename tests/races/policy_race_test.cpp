// The policy changes while devices are decided: each decision is that of a policy that held during it.

#include "simulator/kernel/strings.h"
#include "tests/races/support/race_test.h"

#include <atomic>
#include <thread>

namespace races {
namespace {

constexpr unsigned decisionsPerThread = 8;

class PolicyRace : public RaceTest {
  protected:
    PolicyRace() { apply(behaviour::Policy{}); }

    /// Thread 0 changes the policy until the others have ended.
    void decideMeanwhile(const std::function<void(unsigned)> &change, const std::function<void(unsigned)> &decide) {
        std::atomic<unsigned> deciding = threadCount - 1;
        together([&](unsigned thread) {
            if (thread == 0) {
                for (unsigned number = 1; deciding != 0; ++number) {
                    change(number);
                    std::this_thread::yield();
                }
                return;
            }
            decide(thread);
            --deciding;
        });
    }
    /// The mode of a drive that is plugged, and unplugged again.
    std::uint32_t decide(unsigned thread, unsigned round) {
        sim::DeviceNode &node = machine().plug(numberedDrive(thread, round));
        const std::uint32_t mode = decisionOf(driveName(thread, round)).mode;
        machine().unplug(node);
        return mode;
    }
    /// A long list that ends with what matters.
    static behaviour::RuleList listEndingWith(std::u16string_view filling, std::u16string last) {
        std::vector<std::u16string> rules;
        for (unsigned index = 0; index < 12; ++index) {
            rules.push_back(std::u16string(filling) + sim::toUtf16(std::to_string(index)));
        }
        rules.push_back(std::move(last));
        return behaviour::asStrings(rules);
    }
};

TEST_F(PolicyRace, ListsAreNeverSeenHalfLoaded) {
    // Under each of the policies the class is filtered, drives S1… are allowed, S2… read-only and the others blocked.
    // The rules that say so come last in their lists.
    const auto allowedA = listEndingWith(u"VID_AAAA&PID_", u"VID_0781&PID_5581\\S1*");
    const auto allowedB = listEndingWith(u"VID_0000&PID_", u"VID_0781&PID_5581\\S1*");
    const auto readOnlyA = listEndingWith(u"VID_0100&PID_", u"VID_0781&PID_5581\\S2*");
    const auto readOnlyB = listEndingWith(u"VID_0200&PID_", u"VID_0781&PID_5581\\S2*");
    const auto blockedA = behaviour::asText(u"A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 Class_03 CLASS_08");
    const auto blockedB = behaviour::asText(u"B0 B1 B2 B3 Class_0e Class_06 Class_08");
    const auto change = [&](unsigned number) {
        const bool even = number % 2 == 0;
        setList(u"BlockedCompatibleIds", even ? blockedA : blockedB);
        setList(u"AllowedHardwareIds", even ? allowedA : allowedB);
        setList(u"ReadOnlyHardwareIds", even ? readOnlyA : readOnlyB);
    };
    change(0);
    start();
    decideMeanwhile(change, [&](unsigned thread) {
        const std::uint32_t expected = thread == 1 ? modeAllowed : thread == 2 ? modeReadOnly : modeBlocked;
        for (unsigned round = 0; round < decisionsPerThread; ++round) {
            EXPECT_EQ(decide(thread, round), expected) << driveName(thread, round);
            EXPECT_EQ(decisionOf(driveName(thread, round)).filterable, 1U);
        }
    });
}

TEST_F(PolicyRace, AListOfOneRuleIsNeverSeenEmpty) {
    // Each of the lists makes every drive read-only as one that is not listed.
    const auto change = [&](unsigned number) {
        setList(u"ReadOnlyHardwareIds", behaviour::asStrings({number % 2 == 0 ? u"*" : u"*\\S*"}));
    };
    change(0);
    start();
    decideMeanwhile(change, [&](unsigned thread) {
        for (unsigned round = 0; round < decisionsPerThread; ++round) {
            EXPECT_EQ(decide(thread, round), modeReadOnly);
            EXPECT_EQ(decisionOf(driveName(thread, round)).ruleType, ruleTypeReadOnlyUnlisted);
        }
    });
}

TEST_F(PolicyRace, EachDecisionIsThatOfAPolicyThatHeldDuringIt) {
    // Odd policies allow everything, even ones nothing. `begun` and `made` are the numbers of the policy that is being
    // written and of the last one that has been.
    std::atomic<unsigned> begun = 0;
    std::atomic<unsigned> made = 0;
    std::atomic<unsigned> decided = 0;
    const auto everything = behaviour::asStrings({u"*"});
    const auto nothing = behaviour::asStrings({});
    const auto change = [&](unsigned number) {
        const unsigned before = decided;
        begun = number;
        setList(u"AllowedHardwareIds", number % 2 == 1 ? everything : nothing);
        made = number;
        while (decided < before + 5 && decided < (threadCount - 1) * decisionsPerThread) {
            std::this_thread::yield(); // so that some decisions see one policy alone
        }
    };
    setList(u"AllowedHardwareIds", nothing);
    start();
    const auto check = [&](unsigned thread, unsigned round) {
        const unsigned oldest = made;
        const std::uint32_t mode = decide(thread, round);
        const unsigned latest = begun;
        ++decided;
        if (oldest == latest) {
            EXPECT_EQ(mode, oldest % 2 == 1 ? modeAllowed : modeBlocked) << "policy " << oldest;
        } else {
            EXPECT_TRUE(mode == modeAllowed || mode == modeBlocked) << mode;
        }
    };
    decideMeanwhile(change, [&](unsigned thread) {
        for (unsigned round = 0; round < decisionsPerThread; ++round) {
            check(thread, round);
        }
    });
    // Nobody changes it any more.
    together([&](unsigned thread) { check(thread, decisionsPerThread); });
}

} // namespace
} // namespace races
