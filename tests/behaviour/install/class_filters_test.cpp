#include "tests/behaviour/support/class_filters.h"

#include "tests/behaviour/support/driver_test.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using Names = std::vector<std::u16string>;

/// The driver's own entry in the class filter lists, from the start of its control node to its unload.
class ClassFilters : public DriverTest {
  protected:
    ClassFilters() {
        for (const ClassFilterRow &row : classFilterRows) {
            registry().deleteValue(row.key(), row.valueName);
        }
        machine().addService(u"partmgr");
        machine().addService(u"other");
        machine().addService(u"third");
    }
    void startNode() {
        load();
        EXPECT_TRUE(machine().plugControlNode().started());
    }
    std::optional<Names> names(const ClassFilterRow &row) { return registry().multiString(row.key(), row.valueName); }
    std::vector<std::uint8_t> bytes(const ClassFilterRow &row) {
        const auto value = registry().value(row.key(), row.valueName);
        return value ? value->data : std::vector<std::uint8_t>{0xEE};
    }
    std::uint32_t typeOf(const ClassFilterRow &row) {
        const auto value = registry().value(row.key(), row.valueName);
        return value ? value->type : 0xEE;
    }
    const ClassFilterRow &usb = classFilterRows[0];
    const ClassFilterRow &portable = classFilterRows[1];
    const ClassFilterRow &disk = classFilterRows[8];
};

TEST_F(ClassFilters, AnAbsentValueIsCreatedInEachOfTheNineClasses) {
    startNode();
    for (const ClassFilterRow &row : classFilterRows) {
        SCOPED_TRACE(row.logText());
        EXPECT_EQ(typeOf(row), static_cast<std::uint32_t>(REG_MULTI_SZ));
        EXPECT_EQ(bytes(row), bytesOf(ourName + std::u16string(2, u'\0')));
    }
    // Each class has the one list, and no class besides has any.
    EXPECT_FALSE(registry().value(disk.key(), u"LowerFilters"));
    EXPECT_FALSE(registry().value(usb.key(), u"UpperFilters"));
    const std::u16string classes = u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class";
    unsigned listed = 0;
    for (const std::u16string &key : registry().subkeys(classes)) {
        listed += registry().value(classes + u"\\" + key, u"LowerFilters") ? 1 : 0;
        listed += registry().value(classes + u"\\" + key, u"UpperFilters") ? 1 : 0;
    }
    EXPECT_EQ(listed, 9U);
}

TEST_F(ClassFilters, LinesOfTheStart) {
    load();
    machine().plugControlNode();
    Lines expected{"INFO onDriverDeviceAdd hardwareIds = Tarvenholt\\Myrtelhaven", "INFO Create control device",
                   "INFO RegistryUpdater setDriverStartType, type = 0, path = " + serviceKeyText};
    for (const ClassFilterRow &row : classFilterRows) {
        expected.push_back("INFO RegistryUpdater addRegistryMultiString, " + row.logText());
        expected.push_back("INFO RegistryUpdater doRegistryMultiString, " + row.logText());
    }
    EXPECT_EQ(addOf("control").log, expected);
    EXPECT_EQ(takeLog(), expected);
}

TEST_F(ClassFilters, TheStartTypeIsBootWhileTheNodeIsThere) {
    registry().setDword(sim::Machine::serviceKey(), u"Start", 3);
    startNode();
    EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 0U);
    unload();
    EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 3U);
}

TEST_F(ClassFilters, OthersKeepTheirOrderAndTheDriverComesLast) {
    registry().setMultiString(disk.key(), disk.valueName, {u"partmgr", u"other", u"third"});
    startNode();
    EXPECT_EQ(names(disk), (Names{u"partmgr", u"other", u"third", ourName}));
    unload();
    EXPECT_EQ(names(disk), (Names{u"partmgr", u"other", u"third"}));
}

TEST_F(ClassFilters, AnEntryInOtherLettersCountsAndStays) {
    registry().setMultiString(portable.key(), portable.valueName, {u"tarvenholtMYRTELHAVENdriver", u"other"});
    startNode();
    EXPECT_EQ(names(portable), (Names{u"tarvenholtMYRTELHAVENdriver", u"other"}));
    unload();
    EXPECT_EQ(names(portable), Names{u"other"});
}

TEST_F(ClassFilters, AnEntryInTheMiddleStaysWhereItIs) {
    registry().setMultiString(portable.key(), portable.valueName, {u"other", ourName, u"third"});
    startNode();
    EXPECT_EQ(names(portable), (Names{u"other", ourName, u"third"}));
    unload();
    EXPECT_EQ(names(portable), (Names{u"other", u"third"}));
}

TEST_F(ClassFilters, OfTwoEntriesTheRemovalTakesTheFirst) {
    registry().setMultiString(portable.key(), portable.valueName, {ourName, u"other", u"TARVENHOLTMYRTELHAVENDRIVER"});
    startNode();
    EXPECT_EQ(names(portable), (Names{ourName, u"other", u"TARVENHOLTMYRTELHAVENDRIVER"}));
    unload();
    EXPECT_EQ(names(portable), (Names{u"other", u"TARVENHOLTMYRTELHAVENDRIVER"}));
}

TEST_F(ClassFilters, NamesThatOnlyContainTheDriversAreOthers) {
    registry().setMultiString(portable.key(), portable.valueName, {ourName + u"2", u"My" + ourName});
    startNode();
    EXPECT_EQ(names(portable), (Names{ourName + u"2", u"My" + ourName, ourName}));
    unload();
    EXPECT_EQ(names(portable), (Names{ourName + u"2", u"My" + ourName}));
    registry().deleteValue(portable.key(), portable.valueName);
}

TEST_F(ClassFilters, AMissingClassKeyIsCreatedByStartAndByUnload) {
    registry().deleteKey(portable.key());
    startNode();
    EXPECT_EQ(names(portable), Names{ourName});
    registry().deleteKey(portable.key());
    registry().deleteKey(usb.key());
    unload();
    EXPECT_TRUE(registry().keyExists(portable.key()));
    EXPECT_TRUE(registry().keyExists(usb.key()));
}

TEST_F(ClassFilters, RemovingFromAnAbsentValueWritesAnEmptyListOrNone) {
    load();
    unload();
    for (const ClassFilterRow &row : classFilterRows) {
        const auto list = names(row);
        EXPECT_TRUE(!list || list->empty());
    }
}

TEST_F(ClassFilters, TheNodesNextStartRepairsTheLists) {
    startNode();
    registry().deleteValue(portable.key(), portable.valueName);
    registry().setMultiString(usb.key(), usb.valueName, {u"other"});
    registry().setDword(sim::Machine::serviceKey(), u"Start", 3);
    machine().replug(deviceNode("control"));
    EXPECT_EQ(names(portable), Names{ourName});
    EXPECT_EQ(names(usb), (Names{u"other", ourName}));
    EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 0U);
}

TEST_F(ClassFilters, ADeviceThatComesAfterTheStartMeetsTheFilter) {
    startNode();
    sim::DeviceDescription device = sim::usbVendorDevice("board", {0x04B4, 0x8613});
    plug(device);
    EXPECT_TRUE(wasAdded("board"));
    EXPECT_TRUE(wasAdded("root-hub"));
}

} // namespace
} // namespace behaviour
