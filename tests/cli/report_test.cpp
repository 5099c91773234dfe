// Table, problem list and JSON.

#include "cli/report/json_report.h"
#include "cli/report/table_report.h"
#include "played.h"

#include <gtest/gtest.h>

using namespace cli;
using namespace cli::test;

namespace {

const std::string blocked = stickUnder("LogLevel: 4, BlockedCompatibleIds: Class_08, AllowedHardwareIds: [], "
                                       "ReadOnlyHardwareIds: []");

} // namespace

TEST(Table, hasOneLinePerDevice) {
    EXPECT_EQ(deviceTable(played(blocked), Style(), false),
              "  Device  Class  Decision  Enforced          Why\n"
              "  ──────  ─────  ────────  ────────────────  "
              "────────────────────────────────────────────────────────────────────\n"
              "  stick   USB    blocked   disabled, hidden  "
              "default: no rule matches; filtered by BlockedCompatibleIds: CLASS_08\n");
}

TEST(Table, showsTheMachinesOwnDevicesOnRequest) {
    const std::string table = deviceTable(played(blocked), Style(), true);
    EXPECT_NE(table.find("  control-node  System  -         nothing           the driver's own node"),
              std::string::npos);
}

TEST(Table, tellsApartADeviceThatCameTwice) {
    const std::string table = deviceTable(
        played(blocked + "steps: [load, start-control-node, plug: stick, replug: stick]\n"), Style(), false);
    EXPECT_NE(table.find("\n  stick, step 3  USB"), std::string::npos) << table;
    EXPECT_NE(table.find("\n  stick, step 4  USB"), std::string::npos) << table;
}

TEST(Table, wrapsTheLastColumn) {
    Style narrow;
    narrow.width = 80;
    const std::string table = deviceTable(played(blocked), narrow, false);
    EXPECT_NE(table.find("default: no rule matches; filtered\n"
                         "                                             by BlockedCompatibleIds: CLASS_08\n"),
              std::string::npos)
        << table;
}

TEST(Table, coloursTheDecision) {
    Style colourful;
    colourful.colours = true;
    EXPECT_NE(deviceTable(played(blocked), colourful, false).find("\x1b[31mblocked \x1b[0m"), std::string::npos);
}

TEST(Table, indentsWhatHangsOnADevice) {
    const std::string table = deviceTable(played(R"(
devices:
  parent:
    instance: USB\P\1
    class: USB
    hardware-ids: [USB\P]
    compatible-ids: [USB\COMPOSITE]
    service: usbccgp
    usb: {}
    children: {function: {instance: USB\P&MI_00\1, class: HIDClass, hardware-ids: ['USB\P&MI_00'], compatible-ids: [USB\X]}}
)"),
                                          Style(), false);
    EXPECT_NE(table.find("\n  parent      USB       allowed   nothing   composite parent"), std::string::npos) << table;
    EXPECT_NE(table.find("\n    function  HIDClass  allowed   nothing   not filterable"), std::string::npos) << table;
}

TEST(ProblemList, showsPlaceExpectedAndFound) {
    EXPECT_EQ(problemList(played(blocked), Style()), "  ✓ played\n");
    EXPECT_EQ(problemList(played("steps: [load: ~]"), Style()), "  ✓ played\n");
    EXPECT_EQ(problemList(played("steps:\n  - expect: {loaded: false}\n"), Style()), "  ✓ held: 1 expectation\n");
    EXPECT_EQ(problemList(played("steps:\n  - expect: {loaded: true, leaks: [a, b]}\n"), Style()),
              "  ✗ s.yaml:2  step 1 (expect): loaded\n"
              "      expected  true\n"
              "      found     false\n"
              "  ✗ s.yaml:2  step 1 (expect): leaks\n"
              "      expected  2 entries:\n"
              "                  a\n"
              "                  b\n"
              "      found     none\n");
}

TEST(SummaryLine, tellsWhetherAScenarioHeld) {
    EXPECT_EQ(summaryLine(played("name: fine"), Style()), "✓ s.yaml  fine\n");
    EXPECT_EQ(summaryLine(played("name: bad\nsteps: [expect: {loaded: true}]"), Style()),
              "✗ s.yaml  bad (1 not met)\n");
}

TEST(LogReport, showsLevelAndTextByStep) {
    EXPECT_EQ(logReport(played("policy: {LogLevel: 4}\nsteps: [load]\n"), Style()).substr(0, 53),
              "  step 1: load\n    INFO  Driver start\n  end\n    INFO ");
    EXPECT_EQ(logReport(played("steps: [load]"), Style()), "  (the driver wrote no log)\n");
}

TEST(Json, tellsEverythingOfADeviceAdd) {
    const auto json = jsonOf(played(blocked));
    EXPECT_EQ(json["file"], "s.yaml");
    EXPECT_EQ(json["usable"], true);
    EXPECT_EQ(json["held"], true);
    ASSERT_EQ(json["devices"].size(), 2u);
    const auto &device = json["devices"][1];
    EXPECT_EQ(device["device"], "stick");
    EXPECT_EQ(device["instance"], "USB\\VID_0781&PID_5581\\A1");
    EXPECT_EQ(device["class"], "USB");
    EXPECT_EQ(device["asked"], true);
    EXPECT_EQ(device["attached"], "usb-filter");
    EXPECT_EQ(device["returned"]["code"], "0x00000000");
    EXPECT_EQ(device["returned"]["name"], "STATUS_SUCCESS");
    EXPECT_EQ(device["callbackStatus"]["name"], "STATUS_SUCCESS");
    EXPECT_EQ(device["state"], "disabled");
    EXPECT_EQ(device["problem"], 29);
    EXPECT_EQ(device["hidden"], true);
    EXPECT_EQ(device["filterable"], true);
    EXPECT_EQ(device["mode"], 1);
    EXPECT_EQ(device["ruleType"], 3);
    EXPECT_EQ(device["decision"], "blocked");
    EXPECT_EQ(device["enforcement"], "disabled-and-hidden");
    EXPECT_EQ(device["why"]["reason"], "default");
    EXPECT_TRUE(device["why"]["decidedBy"].is_null());
    EXPECT_EQ(device["why"]["filterableBy"]["rule"], "CLASS_08");
    EXPECT_EQ(device["message"].get<std::string>().size(), 2u * 1474);
    EXPECT_EQ(device["log"][0]["level"], "INFO");
    EXPECT_EQ(device["log"][0]["text"],
              "onDriverDeviceAdd hardwareIds = USB\\VID_0781&PID_5581&REV_0100␀USB\\VID_0781&PID_5581");
    EXPECT_EQ(json["steps"][0]["title"], "load");
    EXPECT_EQ(json["steps"][0]["status"]["name"], "STATUS_SUCCESS");
    EXPECT_EQ(json["steps"][0]["log"][0]["text"], "Driver start");
    EXPECT_TRUE(json["steps"][3]["step"].is_null()); // the end
}

TEST(Json, tellsWhatWasNotMet) {
    const auto json = jsonOf(played("steps:\n  - expect: {loaded: true}\n"));
    EXPECT_EQ(json["held"], false);
    const auto &failure = json["steps"][0]["failures"][0];
    EXPECT_EQ(failure["line"], 2);
    EXPECT_EQ(failure["what"], "loaded");
    EXPECT_EQ(failure["expected"], "true");
    EXPECT_EQ(failure["found"], "false");
}

TEST(Json, tellsWhyAFileCannotBeUsed) {
    const auto json = jsonOf("s.yaml", UnusableFile({"s.yaml", 3}, "is odd"));
    EXPECT_EQ(json.dump(), R"({"file":"s.yaml","usable":false,"held":false,"problems":[{"file":"s.yaml","line":3,)"
                           R"("message":"is odd"}]})");
}
