#include "simulator/framework/framework.h"
#include "simulator/machine/setup_classes.h"
#include "simulator/machine/standard_devices.h"
#include "tests/behaviour/support/class_filters.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using testing::IsEmpty;

class Unload : public DriverTest {
  protected:
    std::optional<std::uint32_t> startType() { return registry().dword(sim::Machine::serviceKey(), u"Start"); }
};

TEST_F(Unload, TakesTheNameOutOfTheNineListsAndSetsDemandStart) {
    start();
    EXPECT_EQ(startType(), 0U);
    unload();
    for (const ClassFilterRow &row : classFilterRows) {
        EXPECT_EQ(registry().multiString(row.key(), row.valueName), std::vector<std::u16string>{});
    }
    EXPECT_EQ(startType(), 3U);
    EXPECT_FALSE(machine().driverLoaded());
    EXPECT_THAT(machine().leaks(), IsEmpty());
}

TEST_F(Unload, DoesSoWithoutAControlDevice) {
    load();
    unload();
    for (const ClassFilterRow &row : classFilterRows) {
        EXPECT_EQ(registry().multiString(row.key(), row.valueName), std::vector<std::u16string>{});
    }
    EXPECT_EQ(startType(), 3U);
}

TEST_F(Unload, LogsEachListAndTheStartTypeAndNothingAfterwards) {
    start();
    unload();
    Lines expected;
    for (const ClassFilterRow &row : classFilterRows) {
        expected.push_back("INFO RegistryUpdater removeRegistryMultiString, " + row.logText());
        expected.push_back("INFO RegistryUpdater doRegistryMultiString, " + row.logText());
    }
    expected.push_back("INFO RegistryUpdater setDriverStartType, type = 3, path = " + serviceKeyText);
    EXPECT_EQ(takeLog(), expected);
}

TEST_F(Unload, AtTheErrorLevelIsSilentWhenNothingFails) {
    setParameter(u"LogLevel", 2);
    start();
    unload();
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(Unload, ListsThatCannotBeWrittenDoNotStopTheOthersNorTheStartType) {
    start();
    failCall("WdfRegistryAssignMultiString", 1, STATUS_ACCESS_DENIED, true);
    unload();
    endFailures();
    EXPECT_EQ(startType(), 3U);
    const Lines log = takeLog();
    EXPECT_EQ(std::count(log.begin(), log.end(),
                         "ERROR RegistryUpdater failed to assign the collection, status = 0xc0000022"),
              9);
    for (const ClassFilterRow &row : classFilterRows) {
        EXPECT_EQ(registry().multiString(row.key(), row.valueName),
                  std::vector<std::u16string>{u"TarvenholtMyrtelhavenDriver"});
    }
    machine().presetClassFilters();
}

TEST_F(Unload, GivesBackEverythingAfterManyDecisions) {
    Policy policy = readOnly({u"VID_18D1*", u"VID_04B4*"});
    policy.allowed = asText(u"VID_0781&PID_5581\\A20054F50D478A23");
    apply(policy);
    start();
    plug(flashDrive());
    plug(otherFlashDrive());
    plug(phone());
    plug(vendorBoard());
    plug(keyboard());
    sim::DeviceDescription remote = mouse();
    remote.busDriver = u"tsusbhub";
    plug(remote, &machine().rootNode());
    sim::DeviceDescription unreadable = camera();
    unreadable.rawProperties["CompatibleIds"] = {STATUS_ACCESS_DENIED, {}, 0};
    plug(unreadable);
    unload();
    EXPECT_THAT(machine().leaks(), IsEmpty());
    EXPECT_EQ(sim::framework::symbolicLinkTarget(u"\\DosDevices\\Tarvenholt Myrtelhaven"), std::nullopt);
}

TEST_F(Unload, GivesBackRulesThatWereReadAndNeverUsed) {
    setParameter(u"LogLevel", 0);
    apply({asText(u"a b c d e f"), asStrings({u"1", u"2", u"3"}), asStrings({u"4", u"5", u"6"})});
    load();
    plug(mouse());
    unload();
    EXPECT_THAT(machine().leaks(), IsEmpty());
}

TEST_F(Unload, ADriverCanBeLoadedAgain) {
    for (int time = 0; time < 3; ++time) {
        SCOPED_TRACE(time);
        machine().presetClassFilters();
        apply(allowing({u"VID_0781&PID_5581"}));
        load();
        machine().plugControlNode();
        EXPECT_TRUE(plug(flashDrive()).started());
        EXPECT_EQ(filterOf("stick").mode, 2U);
        unload();
        EXPECT_THAT(machine().leaks(), IsEmpty());
        for (const char *name : {"stick", "control"}) {
            unplug(name);
        }
    }
}

TEST_F(Unload, ARemovedControlNodeLeavesFiltersWithoutControlDevice) {
    apply(allowing({u"*"}));
    sim::DeviceNode &control = start();
    EXPECT_EQ(plug(flashDrive()).problemCode(), 0U);
    machine().unplug(control);
    EXPECT_EQ(driverState(machine()).controlDevice, nullptr);
    EXPECT_EQ(plug(otherFlashDrive()).problemCode(), 29U);
    machine().plugControlNode();
    EXPECT_NE(driverState(machine()).controlDevice, nullptr);
    EXPECT_TRUE(machine().replug(deviceNode("other stick")).started());
}

} // namespace
} // namespace behaviour
