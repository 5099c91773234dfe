// What scenario files may say, and what is said about those that can't be used.

#include "scenario_text.h"

#include "cli/scenario/time_parser.h"
#include "simulator/machine/machine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace cli;
using namespace cli::test;

namespace {

const std::string oneDevice = R"(
devices:
  stick: {instance: 'USB\VID_0781&PID_5581\A1', class: USB}
)";

} // namespace

TEST(ScenarioParser, takesTheFilesNameWhereNoneIsGiven) {
    EXPECT_EQ(scenarioOf("clock: 2024-03-07 9:05:01.042").name, "s");
    EXPECT_EQ(scenarioOf("name: a desk").name, "a desk");
}

TEST(ScenarioParser, withoutStepsStartsTheDriverAndPlugsEverythingIn) {
    const Scenario scenario = scenarioOf(oneDevice);
    ASSERT_EQ(scenario.steps.size(), 3u);
    EXPECT_TRUE(std::holds_alternative<LoadDriver>(scenario.steps[0].action));
    EXPECT_TRUE(std::holds_alternative<StartControlNode>(scenario.steps[1].action));
    EXPECT_TRUE(std::get<PlugDevices>(scenario.steps[2].action).names.empty());
}

TEST(ScenarioParser, readsClockAndOffset) {
    const Scenario scenario = scenarioOf("clock: 2024-03-07 9:05:01.042\nutc-offset: +01:30");
    EXPECT_EQ(scenario.localTime, parseDateTime("2024-03-07T09:05:01.042"));
    EXPECT_EQ(scenario.bias, -90 * 60 * unitsPerSecond);
    EXPECT_EQ(
        problemsOf("clock: 2024-02-30 9:05:01"),
        (Lines{"s.yaml:1: clock must be a local time such as 2024-03-07 9:05:01.042, found '2024-02-30 9:05:01'"}));
    EXPECT_EQ(problemsOf("utc-offset: 1h"), (Lines{"s.yaml:1: utc-offset must be written like +01:00, found '1h'"}));
}

TEST(ScenarioParser, namesUnknownKeysWithTheNearestKnownOne) {
    EXPECT_EQ(problemsOf("name: x\ndevises: {}"),
              (Lines{"s.yaml:2: unknown key 'devises' in scenario (did you mean 'devices'?)"}));
    EXPECT_EQ(problemsOf("devices:\n  stick:\n    instance: a\n    hardware-id: [b]\n"),
              (Lines{"s.yaml:4: unknown key 'hardware-id' in device 'stick' (did you mean 'hardware-ids'?)"}));
    EXPECT_EQ(
        problemsOf("steps:\n  - load\n  - plugg: x\n"),
        (Lines{"s.yaml:3: unknown key 'plugg' in step (did you mean 'plug'?)",
               "s.yaml:3: a step needs one of load, unload, start-control-node, plug, unplug, replug, set, delete, "
               "registry, reg-file, files, open, close, request, reply, cancel, end-thread, die, sleep, wake, "
               "shut-down, read, write, disk-control, await, save, write-back, mount, medium, clock, advance, volume, "
               "log-workers, fail, expect"}));
    EXPECT_EQ(problemsOf("steps: [lod]"), (Lines{"s.yaml:1: unknown step 'lod' (did you mean 'load'?)"}));
}

TEST(ScenarioParser, reportsEveryProblemOfAFile) {
    EXPECT_EQ(problemsOf("installed: maybe\nhub-driver: [USBHUB3]\nutc-offset: x\n"),
              (Lines{"s.yaml:1: installed must be true or false",
                     "s.yaml:2: unknown key 'hub-driver' in scenario (did you mean 'hub-drivers'?)",
                     "s.yaml:3: utc-offset must be written like +01:00, found 'x'"}));
}

TEST(ScenarioParser, namesTheKnownKeysWhereNoneIsNear) {
    EXPECT_EQ(problemsOf("files: {a.log: {zzzzzz: 1}}"),
              (Lines{"s.yaml:1: unknown key 'zzzzzz' in file 'a.log'; known are text, bytes, size"}));
}

TEST(ScenarioParser, reportsKeysGivenTwice) {
    EXPECT_EQ(problemsOf("name: a\nname: b\n"), (Lines{"s.yaml:2: 'name' is given twice"}));
}

TEST(ScenarioParser, reportsWhatIsNoYaml) {
    EXPECT_EQ(problemsOf("name: [a\n").size(), 1u);
    EXPECT_EQ(problemsOf("name: [a\n").front().substr(0, 30), "s.yaml:2: not valid YAML: end ");
    EXPECT_EQ(problemsOf("- a\n"), (Lines{"s.yaml:1: a scenario must be a map, found a list"}));
}

TEST(ScenarioParser, reportsWhatIsNoText) {
    EXPECT_EQ(problemsOf(""), (Lines{"s.yaml: is empty"}));
    EXPECT_EQ(problemsOf("name: a\nclock: \xC3(\n"), (Lines{"s.yaml:2: is no UTF-8 text: byte 0xc3 at offset 15"}));
    EXPECT_EQ(problemsOf("name: \xED\xA0\x80\n"), (Lines{"s.yaml:1: is no UTF-8 text: byte 0xed at offset 6"}));
    EXPECT_EQ(problemsOf(std::string("name: \0", 7)), (Lines{"s.yaml:1: is no UTF-8 text: byte 0x00 at offset 6"}));
    EXPECT_EQ(problemsOf("name: äö€😀\tx\r\n"), Lines());
    EXPECT_EQ(scenarioOf(std::string("\xFF\xFEn\0a\0m\0e\0:\0 \0x\0\n\0", 18)).name, "x");
}

TEST(ScenarioParser, reportsASecondDocument) {
    EXPECT_EQ(problemsOf("name: x\n---\nname: y\n"),
              (Lines{"s.yaml:3: a file holds one document; here a second begins"}));
}

TEST(ScenarioParser, endlessFilesEnd) {
    EXPECT_EQ(problemsOf("steps: " + std::string(20000, '[') + std::string(20000, ']')),
              (Lines{"s.yaml:1: is nested too deeply"}));
    EXPECT_EQ(problemsOf("installed: x\npolicy:\n  A: {text: [&p {repeat: [*p, x], times: 3}]}\n"),
              (Lines{"s.yaml:1: installed must be true or false", "s.yaml:3: is nested too deeply, or within itself"}));
    std::string growing = "shared:\n  - &t0 [x, x, x, x, x, x, x, x, x, x]\n";
    for (int level = 1; level < 9; ++level) {
        const std::string alias = fmt::format("{{repeat: *t{}}}", level - 1);
        growing += fmt::format("  - &t{} [{}, {}, {}, {}, {}, {}, {}, {}, {}, {}]\n", level, alias, alias, alias, alias,
                               alias, alias, alias, alias, alias, alias);
    }
    const Lines tooMuch = problemsOf(growing + "policy: {A: {text: *t8}}\n");
    ASSERT_EQ(tooMuch.size(), 1u);
    EXPECT_NE(tooMuch.front().find("comes to more than 500000 nodes with all aliases"), std::string::npos)
        << tooMuch.front();
    EXPECT_EQ(problemsOf("policy:\n  A: {text: &t [{repeat: {repeat: a, times: 4000}, times: 4000}]}\n  B: {text: "
                         "*t}\n  C: {text: *t}\n"),
              (Lines{"s.yaml:2: comes to more than 32 million characters of text"}));
}

TEST(ScenarioParser, saysOnceWhatAliasesRepeat) {
    EXPECT_EQ(problemsOf("shared:\n  - &d {instance: x, port: y}\ndevices: {a: *d, b: *d}\n"),
              (Lines{"s.yaml:2: port must be a number from 0 to 4294967295, found 'y'"}));
}

TEST(ScenarioParser, stringIndexesCanRunOut) {
    std::string strings;
    for (int index = 1; index < 256; ++index) {
        strings += fmt::format("{}{}: s", index == 1 ? "" : ", ", index);
    }
    EXPECT_EQ(problemsOf("devices:\n  a: {instance: x, usb: {strings: {" + strings + "}, serial: y}}\n"),
              (Lines{"s.yaml:2: there is no string index left for serial"}));
}

TEST(ScenarioParser, readsADevice) {
    const Scenario scenario = scenarioOf(R"(
devices:
  stick:
    parent: root
    instance: USB\VID_0781&PID_5581\A1
    hardware-ids: ['USB\VID_0781&PID_5581&REV_0100', 'USB\VID_0781&PID_5581']
    compatible-ids: ~
    class: usb
    service: USBSTOR
    port: 4
    removable: false
    enumerator: ~
    capabilities-failure: STATUS_NO_SUCH_DEVICE
    start-failure: STATUS_UNSUCCESSFUL
    properties:
      HardwareId: {bytes: '41 00 00', type: 18}
      CompatibleIds: {fail: 0xC0000034}
    usb:
      vendor-id: 0x0781
      answers-later: true
      serial: A1
      manufacturer: {units: [0xD800, 0x41]}
      strings: {9: nine}
      answers:
        configuration-descriptor: {fail: STATUS_UNSUCCESSFUL}
        strings: {1: {shorten-to: 3}, 2: {bytes: '04 03'}}
)");
    ASSERT_EQ(scenario.devices.size(), 1u);
    EXPECT_EQ(scenario.devices[0].parent, "root");
    const sim::DeviceDescription &device = scenario.devices[0].description;
    EXPECT_EQ(device.name, "stick");
    EXPECT_EQ(device.instanceId, u"USB\\VID_0781&PID_5581\\A1");
    EXPECT_EQ(device.hardwareIds->size(), 2u);
    EXPECT_FALSE(device.compatibleIds);
    EXPECT_EQ(device.classGuid, u"{36fc9e60-c465-11cf-8056-444553540000}");
    EXPECT_EQ(device.address, 4u);
    EXPECT_FALSE(device.removable);
    EXPECT_EQ(device.enumerator, u"");
    EXPECT_EQ(device.capabilitiesFailure, STATUS_NO_SUCH_DEVICE);
    EXPECT_EQ(device.startFailure, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(device.rawProperties.at("HardwareId").data, (std::vector<std::uint8_t>{0x41, 0, 0}));
    EXPECT_EQ(device.rawProperties.at("CompatibleIds").failure, STATUS_OBJECT_NAME_NOT_FOUND);
    ASSERT_TRUE(device.usb);
    EXPECT_TRUE(device.usb->answersLater);
    EXPECT_EQ(device.usb->strings.at(device.usb->manufacturerIndex), (std::u16string{0xD800, u'A'}));
    EXPECT_EQ(device.usb->strings.at(device.usb->serialIndex), u"A1");
    EXPECT_EQ(device.usb->strings.at(9), u"nine");
    EXPECT_EQ(device.usb->configurationDescriptor.failure, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(device.usb->stringAnswers.at(1).shortenTo, 3u);
    EXPECT_EQ(device.usb->stringAnswers.at(2).replace, (std::vector<std::uint8_t>{4, 3}));
}

TEST(ScenarioParser, namesChildrenByTheirPath) {
    const Scenario scenario = scenarioOf(R"(
devices:
  keyboard:
    instance: a
    children:
      keys: {instance: b, children: {deep: {instance: c}}}
)");
    const sim::DeviceDescription &keyboard = scenario.devices[0].description;
    EXPECT_EQ(keyboard.children[0].name, "keyboard/keys");
    EXPECT_EQ(keyboard.children[0].children[0].name, "keyboard/keys/deep");
}

TEST(ScenarioParser, deviceProblemsTellWhatIsWanted) {
    EXPECT_EQ(problemsOf("devices:\n  x: {class: Usbb}\n"),
              (Lines{"s.yaml:2: setup class 'Usbb' is unknown; write its GUID in braces and quotes",
                     "s.yaml:2: a device needs an 'instance' such as USB\\VID_0781&PID_5581\\A20054F5"}));
    EXPECT_EQ(problemsOf("devices:\n  a/b: {instance: x}\n"),
              (Lines{"s.yaml:2: a device's name may not hold '/' and may not be control-node"}));
    EXPECT_EQ(problemsOf("devices:\n  a: {instance: x, parent: hubb}\n  hub: {instance: y}\n"),
              (Lines{"s.yaml:2: there is no device 'hubb' (did you mean 'hub'?)"}));
    EXPECT_EQ(problemsOf("devices:\n  a: {instance: x, port: 99999999999}\n"),
              (Lines{"s.yaml:2: port must be a number from 0 to 4294967295, found '99999999999'"}));
    EXPECT_EQ(problemsOf("devices:\n  a: {instance: x, capabilities-failure: STATUS_SUCESS}\n"),
              (Lines{"s.yaml:2: capabilities-failure must be a status such as STATUS_SUCCESS or 0xC0000001, found "
                     "'STATUS_SUCESS' (did you mean 'STATUS_SUCCESS'?)"}));
    EXPECT_EQ(problemsOf("devices:\n  a: {instance: x, use: stick}\n"),
              (Lines{"s.yaml:2: the device library has no 'stick'"}));
}

TEST(ScenarioParser, aDeviceThatContainsItselfIsReported) {
    EXPECT_EQ(problemsOf("devices:\n  a: &a\n    instance: x\n    children: {b: *a}\n").size(), 1u);
}

TEST(ScenarioParser, readsSteps) {
    const Scenario scenario = scenarioOf(oneDevice + R"(
steps:
  - load
  - plug: stick
    fail: {call: ExAllocatePool2, nth: 3, status: STATUS_NO_MEMORY}
    expect: {decision: allowed, log: none}
  - set: {CallbackMode: 2, LogLevel: ~}
  - delete: [AllowedHardwareIds]
  - advance: 5s
  - clock: 2024-03-07 9:05:01
  - fail: [{nth: 7, all-after: true}]
  - fail: none
  - volume: unmounted
  - log-workers: paused
  - files: {a.log: text, b.log: ~}
  - registry: {'class\USB': {LowerFilters: [a, b]}, 'HKLM\SYSTEM\x': ~}
  - unplug: stick
  - replug: [stick]
  - unload:
    expect: {leaks: none}
)");
    const auto &steps = scenario.steps;
    ASSERT_EQ(steps.size(), 15u);
    EXPECT_EQ(steps[1].title, "plug stick");
    ASSERT_EQ(steps[1].faults.size(), 1u);
    EXPECT_EQ(steps[1].faults[0].routine, "ExAllocatePool2");
    EXPECT_EQ(steps[1].faults[0].nth, 3u);
    EXPECT_EQ(steps[1].faults[0].status, STATUS_NO_MEMORY);
    ASSERT_EQ(steps[1].expectations.devices.size(), 2u);
    EXPECT_EQ(steps[1].expectations.devices[0].first, "stick");
    const auto &set = std::get<ChangeRegistry>(steps[2].action).changes;
    ASSERT_EQ(set.size(), 3u); // the key, then the two values
    EXPECT_EQ(set[1].name, u"CallbackMode");
    EXPECT_EQ(set[2].kind, RegOperation::Kind::deleteValue);
    EXPECT_EQ(std::get<AdvanceClock>(steps[4].action).units, 5 * unitsPerSecond);
    EXPECT_EQ(std::get<PlanFaults>(steps[6].action).faults[0].nth, 7u);
    EXPECT_TRUE(std::get<PlanFaults>(steps[6].action).faults[0].allAfter);
    EXPECT_TRUE(std::get<PlanFaults>(steps[7].action).faults.empty());
    EXPECT_EQ(std::get<ChangeFiles>(steps[10].action).files[1].bytes, std::nullopt);
    const auto &registry = std::get<ChangeRegistry>(steps[11].action).changes;
    EXPECT_EQ(registry[0].key, sim::Machine::classKey(u"{36fc9e60-c465-11cf-8056-444553540000}"));
    EXPECT_EQ(registry.back().kind, RegOperation::Kind::deleteKey);
}

TEST(ScenarioParser, stepProblemsTellWhatIsWanted) {
    EXPECT_EQ(problemsOf("steps:\n  - {load: ~, unload: ~}\n"),
              (Lines{"s.yaml:2: a step does one thing; found load, unload"}));
    EXPECT_EQ(problemsOf("steps:\n  - load: now\n"),
              (Lines{"s.yaml:2: step 'load' takes no value; 'expect' and 'fail' stand beside it"}));
    EXPECT_EQ(problemsOf("steps: [plug]"), (Lines{"s.yaml:1: step 'plug' needs a value"}));
    EXPECT_EQ(problemsOf("steps:\n  - advance: 5 s\n"),
              (Lines{"s.yaml:2: advance must be a duration such as 250ms, 5s, 2m, 1h or 3d, found '5 s'"}));
    EXPECT_EQ(problemsOf("steps:\n  - plug: stik\n" + oneDevice),
              (Lines{"s.yaml:2: there is no device 'stik' (did you mean 'stick'?)"}));
    EXPECT_EQ(problemsOf("steps:\n  - fail: {nth: 2, status: STATUS_NO_MEMORY}\n"),
              (Lines{"s.yaml:2: 'status' needs the 'call' that fails with it"}));
    EXPECT_EQ(problemsOf("steps:\n  - files: {../x: y}\n"),
              (Lines{"s.yaml:2: a file's name stands for a file directly in \\SystemRoot\\Temp"}));
    EXPECT_EQ(problemsOf("steps:\n  - registry: {HKCU\\x: {a: 1}}\n"),
              (Lines{"s.yaml:2: registry key 'HKCU\\x' has an unknown root"}));
}

TEST(ScenarioParser, expectationProblemsTellWhatIsWanted) {
    const std::string step = oneDevice + "steps:\n  - plug: stick\n    expect: ";
    EXPECT_EQ(problemsOf(step + "{decision: alowed}"),
              (Lines{"s.yaml:6: decision 'alowed' is unknown (did you mean 'allowed'?); known are allowed, read-only, "
                     "blocked, unknown, failed, none"}));
    EXPECT_EQ(problemsOf(step + "{desision: allowed}"),
              (Lines{"s.yaml:6: unknown key 'desision' in expect (did you mean 'decision'?)"}));
    EXPECT_EQ(problemsOf(step + "{log: {contain: [a]}}"),
              (Lines{"s.yaml:6: unknown key 'contain' in log (did you mean 'contains'?)",
                     "s.yaml:6: log needs one of contains, excludes, mentions and omits"}));
    EXPECT_EQ(problemsOf(step + "{message: {vendor: 1}}"),
              (Lines{"s.yaml:6: unknown key 'vendor' in message (did you mean 'vendor-id'?)"}));
    EXPECT_EQ(problemsOf(step + "{devices: {stik: {decision: allowed}}}"),
              (Lines{"s.yaml:6: there is no device 'stik' (did you mean 'stick'?)"}));
}

TEST(ScenarioParser, mergesAnchors) {
    const Scenario scenario = scenarioOf(R"(
shared:
  drive: &drive {class: USB, service: USBSTOR}
devices:
  one: {<<: *drive, instance: a}
  two: {<<: *drive, instance: b, service: OTHER}
)");
    EXPECT_EQ(scenario.devices[0].description.service, u"USBSTOR");
    EXPECT_EQ(scenario.devices[1].description.service, u"OTHER");
    EXPECT_TRUE(scenario.devices[1].description.classGuid);
}
