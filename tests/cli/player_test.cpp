// Playing: expectations that hold and that don't, steps that can't be done, what is reported of a device.

#include "played.h"

#include "cli/facts/device_facts.h"

#include <gtest/gtest.h>

using namespace cli;
using namespace cli::test;

namespace {

/// Failures of all steps, one line each.
std::vector<std::string> failuresOf(const PlayResult &result) {
    std::vector<std::string> lines;
    for (const StepResult &step : result.steps) {
        for (const Failure &failure : step.failures) {
            lines.push_back(failure.where.text() + ": " + failure.what + ": " + failure.expected + " | " +
                            failure.found);
        }
    }
    return lines;
}

using Lines = std::vector<std::string>;

const std::string allowed = stickUnder(R"(BlockedCompatibleIds: Class_08, AllowedHardwareIds: ['VID_0781&PID_5581'])");

} // namespace

TEST(Player, tellsWhatWasDecidedAndWhy) {
    const PlayResult result = played(allowed);
    EXPECT_TRUE(result.held());
    ASSERT_EQ(result.outcomes.size(), 2u); // the control node and the drive
    const DeviceOutcome &outcome = result.outcomes[1];
    EXPECT_EQ(outcome.device, "stick");
    EXPECT_EQ(outcome.attached, "usb-filter");
    EXPECT_EQ(outcome.decision, "allowed");
    EXPECT_EQ(outcome.enforcement, "nothing");
    EXPECT_EQ(outcome.why.reason, Reason::rule);
    ASSERT_TRUE(outcome.why.decidedBy);
    EXPECT_EQ(outcome.why.decidedBy->value, "AllowedHardwareIds");
    EXPECT_EQ(outcome.why.decidedBy->rule, "VID_0781&PID_5581\\*");
    EXPECT_EQ(outcome.why.decidedBy->id, "VID_0781&PID_5581\\A1");
    EXPECT_EQ(outcome.why.text, "AllowedHardwareIds: VID_0781&PID_5581\\* matches VID_0781&PID_5581\\A1");
    ASSERT_TRUE(outcome.why.filterableBy);
    EXPECT_EQ(outcome.why.filterableBy->rule, "CLASS_08");
    EXPECT_EQ(outcome.why.filterableBy->id, "Class_08");
    ASSERT_TRUE(outcome.values);
    EXPECT_EQ(outcome.values->message.size(), 1474u);
}

TEST(Player, reportsADeviceAsItWasWhenItCame) {
    const PlayResult result = played(allowed);
    EXPECT_EQ(stateName(result.outcomes[1]), "started"); // although the end of the scenario removed it
}

TEST(Player, aRuleOfSeveralListsIsCountedForTheListThatWasAsked) {
    const PlayResult result = played(stickUnder(
        R"(BlockedCompatibleIds: 'Class_08 VID_0781*', AllowedHardwareIds: 'VID_0781*', ReadOnlyHardwareIds: 'VID_0781*')"));
    EXPECT_EQ(result.outcomes[1].why.decidedBy->value, "AllowedHardwareIds");
    EXPECT_EQ(result.outcomes[1].why.filterableBy->value, "BlockedCompatibleIds");
}

TEST(Player, theListThatWasWalkedIsNamedAlthoughAnotherHoldsTheSameRule) {
    // The allowed list holds the rule too, yet for another device: with a backslash the serial number counts.
    const PlayResult readOnly = played(stickUnder(
        R"(BlockedCompatibleIds: Class_08, AllowedHardwareIds: 'VID_0781*\B', ReadOnlyHardwareIds: 'VID_0781*\A? VID_0781*\B')"));
    EXPECT_EQ(readOnly.outcomes[1].why.decidedBy->value, "ReadOnlyHardwareIds");
    EXPECT_EQ(readOnly.outcomes[1].why.decidedBy->rule, "VID_0781*\\A?");
    // The rule that makes the device filterable stands in the list that allows it too.
    const PlayResult allowedToo = played(stickUnder(
        R"(BlockedCompatibleIds: 'CLASS_* *', AllowedHardwareIds: {type: REG_SZ, text: '*\*'}, ReadOnlyHardwareIds: '*\* *')"));
    EXPECT_EQ(allowedToo.outcomes[1].why.filterableBy->value, "BlockedCompatibleIds");
    EXPECT_EQ(allowedToo.outcomes[1].why.filterableBy->rule, "*");
    EXPECT_EQ(allowedToo.outcomes[1].why.decidedBy->value, "AllowedHardwareIds");
    EXPECT_EQ(allowedToo.outcomes[1].why.decidedBy->rule, "*\\*");
}

TEST(Player, aRuleThatLooksLikeAPatternOfTheDriversOwnIsNotTakenForIt) {
    // The driver compares the first hardware id with this expression to find an interface number.
    const PlayResult result = played(R"(
policy: {BlockedCompatibleIds: '*&MI_??', AllowedHardwareIds: [], ReadOnlyHardwareIds: '*&MI_??\x'}
devices:
  function: {instance: 'USB\A\1', class: USB, service: x, hardware-ids: ['USB\VID_1&PID_2&MI_00'], compatible-ids: ['USB\none']}
steps: [load, start-control-node, plug: function]
)");
    EXPECT_EQ(result.outcomes[1].why.reason, Reason::notFilterable);
    EXPECT_FALSE(result.outcomes[1].why.filterableBy);
}

TEST(Player, showsExpectedAndFound) {
    const PlayResult result = played(allowed + R"(
steps:
  - load
  - start-control-node
  - plug: stick
    expect:
      decision: blocked
      rule: other
      mode: 1
      status: STATUS_UNSUCCESSFUL
      hidden: true
      value: ~
      stack: [a]
      log: [INFO x]
      message: {vendor-id: 1, serial: B2}
  - unload:
    expect:
      registry: {service: {Start: 0, Other: 1}, 'HKLM\Nowhere': {}}
      files: {a.log: text}
      loaded: true
)");
    EXPECT_FALSE(result.held());
    EXPECT_EQ(
        failuresOf(result),
        (Lines{
            "s.yaml:14: stick: decision: 'blocked' | 'allowed'",
            "s.yaml:15: stick: rule: 'other' | 'VID_0781&PID_5581\\*'",
            "s.yaml:16: stick: mode: 1 | 2",
            "s.yaml:17: stick: status: STATUS_UNSUCCESSFUL (0xC0000001) | STATUS_SUCCESS (0x00000000)",
            "s.yaml:18: stick: hidden: true | false",
            "s.yaml:19: stick: value: none | 'AllowedHardwareIds'",
            "s.yaml:20: stick: stack: 'a' | 3 entries:\n  \\Driver\\USBHUB3\n  \\Driver\\TarvenholtMyrtelhavenDriver\n"
            "  \\Driver\\USBSTOR",
            "s.yaml:21: stick: log: 'INFO x' | none",
            "s.yaml:22: stick: message vendor-id: 1 | 1921 (0x781)",
            "s.yaml:22: stick: message serial: 'B2' | 'A1'",
            "s.yaml:27: loaded: true | false",
            "s.yaml:25: value Start of \\Registry\\Machine\\System\\CurrentControlSet\\Services\\"
            "TarvenholtMyrtelhavenDriver: REG_DWORD 0 | REG_DWORD 3",
            "s.yaml:25: value Other of \\Registry\\Machine\\System\\CurrentControlSet\\Services\\"
            "TarvenholtMyrtelhavenDriver: REG_DWORD 1 | absent",
            "s.yaml:25: key \\Registry\\Machine\\Nowhere: there | absent",
            "s.yaml:26: file a.log: there | absent",
        }));
}

TEST(Player, saysWhichStepsCannotBeDone) {
    const PlayResult result = played(allowed + R"(
  far: {instance: 'USB\B\1', class: USB, parent: stick}
steps:
  - unplug: stick
  - plug: far
  - unload
  - load
  - plug: stick
  - plug: stick
)");
    EXPECT_EQ(failuresOf(result), (Lines{"s.yaml:11: unplug stick: to be done | 'stick' is not plugged in",
                                         "s.yaml:12: plug far: to be done | 'stick' is not plugged in",
                                         "s.yaml:13: unload: to be done | the driver is not loaded",
                                         "s.yaml:16: plug stick: to be done | 'stick' is plugged in already"}));
}

TEST(Player, expectationsBesideADeviceAreLookedAtOnce) {
    const PlayResult result =
        played("policy: {BlockedCompatibleIds: Class_08}\ndevices:\n  stick: {" + stick +
               ", expect: {decision: allowed}}\nsteps: [load, start-control-node, plug: stick, replug: stick]\n");
    EXPECT_EQ(result.expectations, 1u);
    EXPECT_EQ(failuresOf(result), (Lines{"s.yaml:7: stick: decision: 'allowed' | 'blocked'"}));
}

TEST(Player, logConditions) {
    const std::string start = "policy: {LogLevel: 4}\nsteps:\n  - load:\n    expect: ";
    EXPECT_TRUE(played(start + "{log: INFO Driver start}").held());
    EXPECT_TRUE(played(start + "{log: {contains: [INFO Driver start], mentions: [Driver], omits: [ERROR]}}").held());
    EXPECT_TRUE(played(start + "{whole-log: [INFO Driver start], step-log: [INFO Driver start]}").held());
    EXPECT_FALSE(played(start + "{log: none}").held());
    EXPECT_FALSE(played(start + "{log: {contains: [INFO Driver]}}").held());
    EXPECT_FALSE(played(start + "{log: {excludes: [INFO Driver start]}}").held());
    EXPECT_FALSE(played(start + "{log: {mentions: [stop]}}").held());
    EXPECT_FALSE(played(start + "{log: {omits: [start]}}").held());
    EXPECT_FALSE(played(start + "{log: {contains: [INFO Driver start, INFO Driver start]}}").held());
}

TEST(Player, aCallFailsForItsStepAlone) {
    const PlayResult result = played(allowed + R"(
steps:
  - load
  - start-control-node
  - plug: stick
    fail: {call: WdfDeviceCreate, status: STATUS_NO_MEMORY}
    expect: {status: STATUS_NO_MEMORY, state: failed-add, decision: failed}
  - replug: stick
    expect: {status: STATUS_SUCCESS, decision: allowed}
  - fail: {call: WdfDeviceCreate, nth: 2}
  - replug: stick
    expect: {decision: allowed}
  - replug: stick
    expect: {state: failed-add}
  - fail: none
  - replug: stick
    expect: {decision: allowed}
)");
    EXPECT_EQ(failuresOf(result), Lines());
}

TEST(Player, aDeviceThatFailedIsRecordedOncePerAdd) {
    const PlayResult result = played(allowed + R"(
steps:
  - load
  - start-control-node
  - plug: stick
    fail: {call: WdfDeviceCreate}
  - replug: stick
  - unplug: stick
)");
    ASSERT_EQ(result.outcomes.size(), 3u);
    EXPECT_EQ(stateName(result.outcomes[1]), "failed-add");
    EXPECT_EQ(stateName(result.outcomes[2]), "started");
}

TEST(Player, aPlannedFailureThatNeverHappensIsOne) {
    const PlayResult result = played(R"(
steps:
  - load:
    fail: {call: WdfDriverCreate, nth: 2}
  - load:
    fail: [{call: WdfDriverCreat}, {nth: 100000}]
)");
    ASSERT_EQ(result.steps.size(), 3u);
    ASSERT_EQ(result.steps[0].failures.size(), 1u);
    EXPECT_EQ(result.steps[0].failures[0].expected, "call 2 of WdfDriverCreate (1 were made)");
    ASSERT_EQ(result.steps[1].failures.size(), 2u);
    EXPECT_EQ(result.steps[1].failures[1].expected, "call 1 of WdfDriverCreat (0 were made)");
}

TEST(Player, theClockStandsStillUnlessMoved) {
    const PlayResult result = played(R"(
clock: 2024-03-07 9:05:01.042
policy: {LogLevel: 4}
steps:
  - load
  - advance: 90m
  - start-control-node
  - clock: 2025-01-01 0:00:00
  - unload
)");
    EXPECT_EQ(result.steps[0].log.front().time, "2024-03-07 9:05:01.042");
    EXPECT_EQ(result.steps[2].log.front().time, "2024-03-07 10:35:01.042");
    EXPECT_EQ(result.steps[4].log.front().time, "2025-01-01 0:00:00.000");
}
