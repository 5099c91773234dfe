// Runs with failing platform calls: what is found wrong with them, and the command that makes them.

#include "cli/facts/message_fields.h"
#include "cli/faults/fault_check.h"
#include "command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

using namespace cli;
using namespace cli::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

DeviceOutcome outcomeOf(std::string device, std::string decision, bool runs, int step) {
    DeviceOutcome outcome;
    outcome.device = std::move(device);
    outcome.decision = std::move(decision);
    outcome.enforcement = runs ? "nothing" : "disabled-and-hidden";
    outcome.step = step;
    outcome.asked = true;
    outcome.attached = "usb-filter";
    outcome.returned = outcome.callbackStatus = STATUS_SUCCESS;
    outcome.values = FilterValues{1, 1, 3, {}};
    outcome.started = outcome.everStarted = runs;
    outcome.problem = runs ? 0 : 29;
    outcome.log = {{"", "INFO", "onDriverDeviceAdd hardwareIds = x"}};
    return outcome;
}

PlayResult resultOf(std::vector<DeviceOutcome> outcomes, int failedStep = 0) {
    PlayResult result;
    result.outcomes.assign(outcomes.begin(), outcomes.end());
    result.failedStep = failedStep;
    return result;
}

DeviceOutcome failedAdd(DeviceOutcome outcome, std::string errorLine) {
    outcome.decision = outcome.enforcement = "failed";
    outcome.returned = outcome.callbackStatus = STATUS_INSUFFICIENT_RESOURCES;
    outcome.started = outcome.everStarted = false;
    outcome.problem = 31;
    outcome.log = {{"", "ERROR", std::move(errorLine)}};
    return outcome;
}

} // namespace

TEST(FaultCheck, ADeviceThatFailsClosedIsFine) {
    const PlayResult sound = resultOf({outcomeOf("stick", "allowed", true, 1)});
    const PlayResult faulty = resultOf({failedAdd(sound.outcomes[0], "Failed to init device, status = 0xc000009a")}, 1);
    EXPECT_THAT(faultProblems(sound, faulty, true), IsEmpty());
    EXPECT_EQ(openedAsMeant(sound, faulty), 0u);
}

TEST(FaultCheck, ABlockedDeviceThatRunsIsAProblem) {
    const PlayResult sound = resultOf({outcomeOf("stick", "blocked", false, 1)});
    const PlayResult faulty = resultOf({outcomeOf("stick", "allowed", true, 1)}, 1);
    EXPECT_THAT(faultProblems(sound, faulty, true),
                ElementsAre("stick: allowed, nothing although blocked, disabled-and-hidden when nothing fails"));
}

TEST(FaultCheck, AReadOnlyDeviceThatCanBeWrittenIsAProblem) {
    const PlayResult sound = resultOf({outcomeOf("stick", "read-only", true, 1)});
    const PlayResult faulty = resultOf({outcomeOf("stick", "allowed", true, 1)}, 1);
    EXPECT_EQ(faultProblems(sound, faulty, false).size(), 1u);
}

TEST(FaultCheck, AnUnreadPolicyIsCountedNotBlamed) {
    const PlayResult sound = resultOf({outcomeOf("stick", "blocked", false, 1)});
    DeviceOutcome open = outcomeOf("stick", "allowed", true, 1);
    open.values->filterable = 0;
    EXPECT_THAT(faultProblems(sound, resultOf({open}, 1), true), IsEmpty());
    EXPECT_EQ(openedAsMeant(sound, resultOf({open}, 1)), 1u);
    open.values->filterable = 1;
    EXPECT_EQ(openedAsMeant(sound, resultOf({open}, 1)), 0u);
    open.attached = "nothing"; // its enumerator could not be read
    EXPECT_EQ(openedAsMeant(sound, resultOf({open}, 1)), 1u);
    open = outcomeOf("stick", "allowed", true, 1);
    open.asked = false; // the driver is not there
    EXPECT_EQ(openedAsMeant(sound, resultOf({open}, 1)), 1u);
}

TEST(FaultCheck, ARuleForAnySerialNumberNeedsNone) {
    DeviceOutcome stick = outcomeOf("stick", "blocked", false, 1);
    stick.values->message.assign(serviceMessageSize, 0);
    stick.values->message[280] = 'A'; // the first unit of its serial number, too long to be matched
    DeviceOutcome open = outcomeOf("stick", "allowed", true, 1);
    open.values->message.assign(serviceMessageSize, 0);
    open.why.decidedBy = RuleHit{"AllowedHardwareIds", false, "VID*\\*", "VIDA"};
    EXPECT_THAT(faultProblems(resultOf({stick}), resultOf({open}, 1), true), IsEmpty());
    EXPECT_EQ(openedAsMeant(resultOf({stick}), resultOf({open}, 1)), 1u);
    open.why.decidedBy->rule = "VID*\\A";
    EXPECT_EQ(faultProblems(resultOf({stick}), resultOf({open}, 1), true).size(), 1u) << "that number was asked for";
    open.why.decidedBy->rule = "VID*\\*";
    open.values->message[280] = 'A';
    EXPECT_EQ(faultProblems(resultOf({stick}), resultOf({open}, 1), true).size(), 1u) << "it was read";
}

TEST(FaultCheck, ADeviceThatRunsWithoutItsFailedFilterIsAProblem) {
    const PlayResult sound = resultOf({outcomeOf("stick", "allowed", true, 1)});
    DeviceOutcome hidden = failedAdd(sound.outcomes[0], "Failed, status = 0xc000009a");
    hidden.started = hidden.everStarted = true;
    hidden.problem = 0;
    EXPECT_THAT(faultProblems(sound, resultOf({hidden}, 1), true),
                ElementsAre(HasSubstr("stick: runs although its add failed with STATUS_INSUFFICIENT_RESOURCES")));
}

TEST(FaultCheck, ADiskWithoutItsFilterIsAProblemOnceItIsKnown) {
    DeviceOutcome disk = outcomeOf("enclosure/disk", "read-only", true, 1);
    disk.attached = "thunderbolt-filter";
    DeviceOutcome hidden = failedAdd(disk, "Failed, status = 0xc000009a");
    hidden.started = hidden.everStarted = true;
    hidden.problem = 0;
    hidden.returned = STATUS_SUCCESS;
    EXPECT_THAT(faultProblems(resultOf({disk}), resultOf({hidden}, 1), true), IsEmpty());
    EXPECT_EQ(openedAsMeant(resultOf({disk}), resultOf({hidden}, 1)), 1u);
    disk.attached = "disk-filter";
    EXPECT_THAT(faultProblems(resultOf({disk}), resultOf({hidden}, 1), true), testing::SizeIs(2));
    // An internal disk, whose add fails without any fault.
    EXPECT_THAT(faultProblems(resultOf({hidden}), resultOf({hidden}, 1), true), IsEmpty());
}

TEST(FaultCheck, AUsbDiskMayBeAsOpenAsItsDevice) {
    const DeviceOutcome stick = outcomeOf("stick", "read-only", true, 1);
    DeviceOutcome disk = outcomeOf("stick/disk", "read-only", true, 1);
    disk.attached = "disk-filter";
    disk.values.reset();
    disk.why.reason = Reason::usbDevice;
    DeviceOutcome open = disk;
    open.decision = "allowed";
    EXPECT_THAT(faultProblems(resultOf({stick, disk}), resultOf({stick, open}, 1), true), testing::SizeIs(1));
    DeviceOutcome unfiltered = stick;
    unfiltered.values.reset();
    unfiltered.attached = "nothing";
    unfiltered.decision = "none";
    EXPECT_THAT(faultProblems(resultOf({stick, disk}), resultOf({unfiltered, open}, 1), true), IsEmpty());
}

TEST(FaultCheck, AMemoryCardIsOpenWithoutItsSetting) {
    DeviceOutcome card = outcomeOf("card", "read-only", true, 1);
    card.attached = "sd-card-filter";
    card.why.reason = Reason::sdCardMode;
    DeviceOutcome open = card;
    open.decision = "allowed";
    EXPECT_THAT(faultProblems(resultOf({card}), resultOf({open}, 1), true), IsEmpty());
    EXPECT_EQ(openedAsMeant(resultOf({card}), resultOf({open}, 1)), 1u);
}

TEST(FaultCheck, NoLineIsWrittenOfADiskThatIsNotKnownYet) {
    DeviceOutcome disk = outcomeOf("stick/disk", "read-only", true, 1);
    disk.attached = "disk-filter";
    disk.log = {{"", "INFO", "Disk information busType = 7, isRemovable = 1"}};
    DeviceOutcome failed = failedAdd(disk, "");
    failed.log = {{"", "INFO", "onDriverDeviceAdd hardwareIds = GenDisk"}};
    EXPECT_THAT(faultProblems(resultOf({disk}), resultOf({failed}, 1), true), IsEmpty());
    failed.log.push_back(disk.log[0]);
    EXPECT_THAT(faultProblems(resultOf({disk}), resultOf({failed}, 1), true), testing::SizeIs(1));
}

TEST(FaultCheck, AFailureThatNoErrorLineNamesIsAProblem) {
    const PlayResult sound = resultOf({outcomeOf("stick", "allowed", true, 1)});
    const PlayResult faulty = resultOf({failedAdd(sound.outcomes[0], "Failed to init device, status = 0xc0000001")}, 1);
    EXPECT_THAT(faultProblems(sound, faulty, true), ElementsAre(HasSubstr("which no error line says")));
    EXPECT_THAT(faultProblems(sound, faulty, false), IsEmpty()) << "no memory for lines either";
    PlayResult unfiltered = sound;
    unfiltered.outcomes[0].attached = "nothing";
    EXPECT_THAT(faultProblems(unfiltered, faulty, true), IsEmpty()) << "no device of ours";
    PlayResult silent = sound;
    silent.outcomes[0].log.clear();
    EXPECT_THAT(faultProblems(silent, faulty, true), IsEmpty()) << "the log is off";
}

TEST(FaultCheck, DevicesOfLaterStepsAreNotToBeTouched) {
    const PlayResult sound = resultOf({outcomeOf("stick", "allowed", true, 1), outcomeOf("mouse", "allowed", true, 2)});
    PlayResult faulty = sound;
    faulty.failedStep = 1;
    faulty.outcomes[1] = outcomeOf("mouse", "blocked", false, 2);
    EXPECT_THAT(faultProblems(sound, faulty, true),
                ElementsAre("mouse: blocked, disabled-and-hidden after a failure of a step before, allowed, nothing "
                            "when nothing fails"));
    EXPECT_THAT(faultProblems(sound, faulty, false), IsEmpty()) << "calls go on failing";
    faulty.failedStep = 2;
    EXPECT_THAT(faultProblems(sound, faulty, true), IsEmpty()) << "its own step";
}

TEST(FaultCheck, WhatIsLeftBehindIsAProblem) {
    const PlayResult sound = resultOf({});
    PlayResult faulty = resultOf({});
    faulty.steps.push_back({});
    faulty.steps.back().failures.push_back({{}, "leaks", "nothing left behind", "pool 'C++n' 16 bytes"});
    EXPECT_THAT(faultProblems(sound, faulty, true), ElementsAre("left behind: pool 'C++n' 16 bytes"));
}

using FaultsCommand = CommandTest;

TEST_F(FaultsCommand, RunsOnceForEachCallAndOnceWithAllAfterIt) {
    const std::string path = write("s.yaml", "name: one load\nsteps: [load, unload]\n");
    const Outcome all = run({"faults", path});
    EXPECT_EQ(all.status, exitHeld) << all.err;
    unsigned calls = 0;
    unsigned workerCalls = 0;
    unsigned runs = 0;
    const std::string line = all.out.substr(path.size());
    ASSERT_EQ(std::sscanf(line.c_str(), ": %u calls that can fail and %u of workers, %u runs: held", &calls,
                          &workerCalls, &runs),
              3)
        << line;
    EXPECT_GT(calls, 10u);
    EXPECT_EQ(runs, 2 * (calls + workerCalls));
    const Outcome fewer = run({"faults", "--at-most", "4", path});
    EXPECT_EQ(fewer.status, exitHeld) << fewer.err;
    EXPECT_THAT(fewer.out, HasSubstr(" 8 runs: held"));
}

TEST_F(FaultsCommand, SaysWhichPathIsMissing) {
    const Outcome missing = run({"faults", "no-such-file.yaml"});
    EXPECT_EQ(missing.status, exitUnusable);
    EXPECT_EQ(missing.err, "no-such-file.yaml: there is no such file or folder\n");
}
