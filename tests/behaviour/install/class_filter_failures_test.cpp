#include "tests/behaviour/support/class_filters.h"
#include "tests/behaviour/support/driver_test.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using Names = std::vector<std::u16string>;

class ClassFilterFailures : public DriverTest {
  protected:
    ClassFilterFailures() {
        for (const ClassFilterRow &row : classFilterRows) {
            registry().deleteValue(row.key(), row.valueName);
        }
    }
    void SetUp() override { registry().setDword(sim::Machine::serviceKey(), u"Start", 3); }
    /// Starts the control node while the nth call of a routine in its add fails.
    void startFailing(const std::string &routine, std::uint64_t nth, NTSTATUS status) {
        load();
        failInAdd(routine, nth, status);
        EXPECT_TRUE(machine().plugControlNode().started()) << "nobody looks at the results";
        EXPECT_EQ(addOf("control").returned, STATUS_SUCCESS);
    }
    /// The lines of the start with the given ones after the `row`th list (counted from one).
    Lines linesWith(std::size_t row, const Lines &failures) {
        Lines expected{"INFO onDriverDeviceAdd hardwareIds = Tarvenholt\\Myrtelhaven", "INFO Create control device",
                       "INFO RegistryUpdater setDriverStartType, type = 0, path = " + serviceKeyText};
        std::size_t number = 0;
        for (const ClassFilterRow &one : classFilterRows) {
            expected.push_back("INFO RegistryUpdater addRegistryMultiString, " + one.logText());
            expected.push_back("INFO RegistryUpdater doRegistryMultiString, " + one.logText());
            if (++number == row) {
                expected.insert(expected.end(), failures.begin(), failures.end());
            }
        }
        return expected;
    }
    void expectAllButRow(std::size_t failed) {
        for (std::size_t row = 1; row <= 9; ++row) {
            SCOPED_TRACE(row);
            const ClassFilterRow &one = classFilterRows[row - 1];
            EXPECT_EQ(registry().value(one.key(), one.valueName).has_value(), row != failed);
        }
    }
};

TEST_F(ClassFilterFailures, EachStepOfARowLogsAndLeavesThatRowAlone) {
    const struct {
        const char *routine;
        std::uint64_t nth;
        std::size_t row;
        Lines lines;
    } cases[] = {
        {"WdfRegistryCreateKey",
         1,
         1,
         {"ERROR RegistryUpdater failed to create multistring in registry, status = 0xc0000022"}},
        {"WdfRegistryCreateKey",
         9,
         9,
         {"ERROR RegistryUpdater failed to create multistring in registry, status = 0xc0000022"}},
        {"WdfCollectionCreate", 2, 2, {"ERROR RegistryUpdater failed to create collection, status = 0xc0000022"}},
        {"WdfRegistryQueryMultiString",
         3,
         3,
         {"ERROR RegistryUpdater failed to query multistring, status = 0xc0000022"}},
        {"WdfStringCreate",
         4,
         4,
         {"ERROR Failed to create wdf string, status = 0xc0000022",
          "ERROR RegistryUpdater failed to call callback, status = 0xc0000022"}},
        {"WdfCollectionAdd",
         5,
         5,
         {"ERROR Failed to add wdf collection, status = 0xc0000022",
          "ERROR RegistryUpdater failed to call callback, status = 0xc0000022"}},
        {"WdfRegistryAssignMultiString",
         6,
         6,
         {"ERROR RegistryUpdater failed to assign the collection, status = 0xc0000022"}},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.routine);
        startFailing(one.routine, one.nth, STATUS_ACCESS_DENIED);
        EXPECT_EQ(addOf("control").log, linesWith(one.row, one.lines));
        expectAllButRow(one.row);
        unload();
        for (const ClassFilterRow &row : classFilterRows) {
            registry().deleteValue(row.key(), row.valueName);
        }
        unplug("control");
    }
}

TEST_F(ClassFilterFailures, AWarningOfTheQueryCountsAsAFailure) {
    startFailing("WdfRegistryQueryMultiString", 1, STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(addOf("control").log,
              linesWith(1, {"ERROR RegistryUpdater failed to query multistring, status = 0x80000005"}));
    expectAllButRow(1);
}

TEST_F(ClassFilterFailures, AValueOfAnotherTypeOrFormIsNotTouched) {
    const ClassFilterRow &portable = classFilterRows[1];
    const std::tuple<std::uint32_t, std::vector<std::uint8_t>, const char *> forms[] = {
        {REG_SZ, bytesOf(u"other\0"), "c0000024"},
        {REG_BINARY, {1, 2, 3, 4}, "c0000024"},
        {REG_DWORD, {1, 0, 0, 0}, "c0000024"},
        {REG_MULTI_SZ, bytesOf(u"other"), "c0000024"},                      // no terminators
        {REG_MULTI_SZ, bytesOf(std::u16string_view(u"\0", 1)), "c0000024"}, // an editor's empty list
        {REG_MULTI_SZ, {}, "c0000089"},
    };
    for (const auto &[type, data, status] : forms) {
        SCOPED_TRACE(type);
        SCOPED_TRACE(data.size());
        registry().setValue(portable.key(), portable.valueName, type, data);
        load();
        machine().plugControlNode();
        const Lines &log = addOf("control").log;
        const auto line =
            std::find_if(log.begin(), log.end(), [](const std::string &text) { return text.starts_with("ERROR"); });
        ASSERT_NE(line, log.end());
        EXPECT_EQ(*line, std::string("ERROR RegistryUpdater failed to query multistring, status = 0x") + status);
        unload();
        const auto value = registry().value(portable.key(), portable.valueName);
        ASSERT_TRUE(value);
        EXPECT_EQ(value->type, type);
        EXPECT_EQ(value->data, data);
        unplug("control");
    }
    registry().deleteValue(portable.key(), portable.valueName);
}

TEST_F(ClassFilterFailures, TheServiceKeyThatCannotBeOpened) {
    startFailing("WdfRegistryOpenKey", 1, STATUS_ACCESS_DENIED);
    EXPECT_EQ(addOf("control").log[3],
              "ERROR RegistryUpdater failed to open registry key, status = 0xc0000022, path = " + serviceKeyText);
    EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 3U) << "as it was";
    expectAllButRow(0);
}

TEST_F(ClassFilterFailures, TheStartTypeThatCannotBeWritten) {
    startFailing("WdfRegistryAssignULong", 1, STATUS_ACCESS_DENIED);
    EXPECT_EQ(addOf("control").log[3],
              "ERROR RegistryUpdater failed to assign ulong value to registry key, status = 0xc0000022");
    EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 3U) << "as it was";
    expectAllButRow(0);
}

TEST_F(ClassFilterFailures, AtUnloadEachFailedRowIsLoggedAndTheRestIsDone) {
    start();
    failCall("WdfRegistryCreateKey", 2, STATUS_ACCESS_DENIED);
    unload();
    const Lines log = takeLog();
    ASSERT_EQ(log.size(), 9U * 2 + 2);
    EXPECT_EQ(log[4], "ERROR RegistryUpdater failed to create multistring in registry, status = 0xc0000022");
    EXPECT_EQ(registry().multiString(classFilterRows[1].key(), u"LowerFilters"), Names{ourName});
    EXPECT_EQ(registry().multiString(classFilterRows[8].key(), u"UpperFilters"), Names{});
    EXPECT_EQ(registry().dword(sim::Machine::serviceKey(), u"Start"), 3U);
    registry().deleteValue(classFilterRows[1].key(), u"LowerFilters");
}

} // namespace
} // namespace behaviour
