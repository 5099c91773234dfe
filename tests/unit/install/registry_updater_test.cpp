#include "install/registry_updater.h"

#include "install/class_filters.h"
#include "tests/unit/fixture/framework_test.h"

namespace unit {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using List = std::vector<std::u16string>;

constexpr std::u16string_view classes = u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class";
constexpr std::u16string_view ownName = u"TarvenholtMyrtelhavenDriver";
const std::string keyText = "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Class\\{eec5ad98-8080-425f-922a-"
                            "dabf3de3f69a}";

class RegistryUpdater : public FrameworkTest {
  protected:
    RegistryUpdater() {
        kernel.registry.makeKey(classes);
        kernel.registry.makeKey(serviceKey);
    }

    NTSTATUS add() { return addRegistryMultiString(row.keyPath, row.valueName); }
    NTSTATUS remove() { return removeRegistryMultiString(row.keyPath, row.valueName); }
    void put(const List &list) { kernel.registry.setMultiString(keyOf(row), u"LowerFilters", list); }
    std::optional<List> list() const { return listOf(row); }

    static std::u16string keyOf(const ClassFilter &filter) { return std::u16string(sim::view(filter.keyPath)); }
    std::optional<List> listOf(const ClassFilter &filter) const {
        return kernel.registry.multiString(keyOf(filter), sim::view(filter.valueName));
    }

    const ClassFilter &row = classFilters[1];
};

TEST_F(RegistryUpdater, AddCreatesTheKeyAndTheValue) {
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_EQ(list(), List{std::u16string(ownName)});
    EXPECT_EQ(kernel.registry.value(keyOf(row), u"LowerFilters")->type, static_cast<ULONG>(REG_MULTI_SZ));
}

TEST_F(RegistryUpdater, AddAppendsBehindTheOtherFilters) {
    put({u"WpdUpFltr", u"abc"});
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_EQ(list(), (List{u"WpdUpFltr", u"abc", std::u16string(ownName)}));
}

TEST_F(RegistryUpdater, AddFindsTheNameInAnyCaseAndPlace) {
    const List before = {u"first", u"TARVENHOLTmyrtelhavendriver", u"last"};
    put(before);
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_EQ(list(), before);
}

TEST_F(RegistryUpdater, AddDoesNotTakeAPartForTheName) {
    put({u"TarvenholtMyrtelhavenDriver2", u"TarvenholtMyrtelhaven"});
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_EQ(list()->size(), 3u);
}

TEST_F(RegistryUpdater, AddToAnEmptyListWorks) {
    kernel.registry.setValue(keyOf(row), u"LowerFilters", REG_MULTI_SZ, std::vector<std::uint8_t>(4));
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_EQ(list(), List{std::u16string(ownName)});
}

TEST_F(RegistryUpdater, RemoveKeepsTheOtherFiltersInOrder) {
    put({u"first", std::u16string(ownName), u"last"});
    EXPECT_EQ(remove(), STATUS_SUCCESS);
    EXPECT_EQ(list(), (List{u"first", u"last"}));
}

TEST_F(RegistryUpdater, RemoveTakesTheFirstOfTwoEntriesOnly) {
    put({u"tarvenholtmyrtelhavendriver", u"between", std::u16string(ownName)});
    EXPECT_EQ(remove(), STATUS_SUCCESS);
    EXPECT_EQ(list(), (List{u"between", std::u16string(ownName)}));
}

TEST_F(RegistryUpdater, RemoveOfTheOnlyEntryLeavesAnEmptyList) {
    put({std::u16string(ownName)});
    EXPECT_EQ(remove(), STATUS_SUCCESS);
    EXPECT_EQ(list(), List{});
}

TEST_F(RegistryUpdater, RemoveFromAnAbsentValueCreatesTheKeyAndWritesAnEmptyList) {
    EXPECT_EQ(remove(), STATUS_SUCCESS);
    EXPECT_TRUE(kernel.registry.keyExists(keyOf(row)));
    EXPECT_EQ(list(), List{});
}

TEST_F(RegistryUpdater, AddAfterRemoveOfEverythingWorks) {
    EXPECT_EQ(remove(), STATUS_SUCCESS);
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_EQ(list(), List{std::u16string(ownName)});
}

TEST_F(RegistryUpdater, TellsWhatItDoes) {
    EXPECT_EQ(add(), STATUS_SUCCESS);
    EXPECT_THAT(takeLines(), ElementsAre("INFO RegistryUpdater doRegistryMultiString, name = LowerFilters, value = "
                                         "TarvenholtMyrtelhavenDriver, path = " +
                                         keyText));
}

TEST_F(RegistryUpdater, ValueOfAnotherTypeStaysAsItIs) {
    kernel.registry.setString(keyOf(row), u"LowerFilters", u"text");
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(add(), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_EQ(kernel.registry.value(keyOf(row), u"LowerFilters")->type, static_cast<ULONG>(REG_SZ));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR RegistryUpdater failed to query multistring, status = 0xc0000024"));
}

TEST_F(RegistryUpdater, ListWithoutAnyBytesIsLeftAlone) {
    kernel.registry.setValue(keyOf(row), u"LowerFilters", REG_MULTI_SZ, {});
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(add(), STATUS_RESOURCE_DATA_NOT_FOUND);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR RegistryUpdater failed to query multistring, status = 0xc0000089"));
}

TEST_F(RegistryUpdater, ListOfALoneNulIsLeftAlone) {
    kernel.registry.setValue(keyOf(row), u"LowerFilters", REG_MULTI_SZ, std::vector<std::uint8_t>(2));
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(add(), STATUS_OBJECT_TYPE_MISMATCH);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR RegistryUpdater failed to query multistring, status = 0xc0000024"));
}

TEST_F(RegistryUpdater, MissingClassesKeyIsToldAndReturned) {
    kernel.registry.deleteKey(classes);
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(add(), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_THAT(takeLines(),
                ElementsAre("ERROR RegistryUpdater failed to create multistring in registry, status = 0xc0000034"));
}

struct FailingStep {
    const char *routine;
    std::vector<std::string> lines;
};

TEST_F(RegistryUpdater, EveryFailingStepIsToldAndLeavesTheListAsItWas) {
    const List before = {u"first"};
    setLogLevel(static_cast<LONG>(LogLevel::error));
    const FailingStep steps[] = {
        {"WdfRegistryCreateKey",
         {"ERROR RegistryUpdater failed to create multistring in registry, status = 0xc000009a"}},
        {"WdfCollectionCreate", {"ERROR RegistryUpdater failed to create collection, status = 0xc000009a"}},
        {"WdfRegistryQueryMultiString", {"ERROR RegistryUpdater failed to query multistring, status = 0xc000009a"}},
        {"WdfStringCreate",
         {"ERROR Failed to create wdf string, status = 0xc000009a",
          "ERROR RegistryUpdater failed to call callback, status = 0xc000009a"}},
        {"WdfCollectionAdd",
         {"ERROR Failed to add wdf collection, status = 0xc000009a",
          "ERROR RegistryUpdater failed to call callback, status = 0xc000009a"}},
        {"WdfRegistryAssignMultiString",
         {"ERROR RegistryUpdater failed to assign the collection, status = 0xc000009a"}},
    };
    for (const FailingStep &step : steps) {
        SCOPED_TRACE(step.routine);
        put(before);
        EXPECT_EQ(whileFailing(
                      step.routine, 1, [&] { return add(); }, STATUS_INSUFFICIENT_RESOURCES),
                  STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_THAT(takeLines(), testing::ElementsAreArray(step.lines));
        EXPECT_EQ(list(), before);
    }
}

class ClassFilterLists : public RegistryUpdater {
  protected:
    std::vector<bool> present() {
        std::vector<bool> answers;
        for (const ClassFilter &filter : classFilters) {
            const auto names = listOf(filter);
            answers.push_back(names && *names == List{std::u16string(ownName)});
        }
        return answers;
    }
};

TEST_F(ClassFilterLists, AddingReachesAllNine) {
    addClassFilters();
    EXPECT_THAT(present(), Each(true));
    EXPECT_EQ(present().size(), 9u);
}

TEST_F(ClassFilterLists, RemovingReachesAllNine) {
    addClassFilters();
    removeClassFilters();
    EXPECT_THAT(present(), Each(false));
}

TEST_F(ClassFilterLists, EachListIsAnnouncedInOrder) {
    addClassFilters();
    const std::vector<std::string> lines = takeLines();
    ASSERT_EQ(lines.size(), 18u);
    for (std::size_t index = 0; index < 9; ++index) {
        const std::string details =
            "name = " + utf8(classFilters[index].valueName) +
            ", value = TarvenholtMyrtelhavenDriver, path = " + utf8(classFilters[index].keyPath);
        EXPECT_EQ(lines[2 * index], "INFO RegistryUpdater addRegistryMultiString, " + details);
        EXPECT_EQ(lines[2 * index + 1], "INFO RegistryUpdater doRegistryMultiString, " + details);
    }
    removeClassFilters();
    EXPECT_THAT(takeLines().at(0), testing::StartsWith("INFO RegistryUpdater removeRegistryMultiString, name = "
                                                       "LowerFilters, value = TarvenholtMyrtelhavenDriver, path = "));
}

TEST_F(ClassFilterLists, OneThatFailsDoesNotStopTheOthers) {
    setLogLevel(0);
    whileFailing("WdfRegistryCreateKey", 4, [] {
        addClassFilters();
        return true;
    });
    EXPECT_THAT(present(), ElementsAre(true, true, true, false, true, true, true, true, true));
    whileFailing("WdfRegistryCreateKey", 2, [] {
        removeClassFilters();
        return true;
    });
    EXPECT_THAT(present(), ElementsAre(false, true, false, false, false, false, false, false, false));
}

TEST_F(ClassFilterLists, NothingIsLeftBehindWhateverFails) {
    setLogLevel(0);
    failEachCall(
        [] {
            addClassFilters();
            removeClassFilters();
            return true;
        },
        [&](bool, bool) { EXPECT_EQ(kernel.pool.blocksInUse(), 0u); });
}

class DriverStartType : public RegistryUpdater {
  protected:
    std::optional<std::uint32_t> start() { return kernel.registry.dword(serviceKey, u"Start"); }
};

TEST_F(DriverStartType, IsWrittenAsANumber) {
    EXPECT_EQ(setDriverStartType(StartType::boot), STATUS_SUCCESS);
    EXPECT_EQ(start(), 0u);
    EXPECT_EQ(setDriverStartType(StartType::demand), STATUS_SUCCESS);
    EXPECT_EQ(start(), 3u);
    EXPECT_THAT(takeLines(),
                ElementsAre("INFO RegistryUpdater setDriverStartType, type = 0, path = "
                            "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver",
                            "INFO RegistryUpdater setDriverStartType, type = 3, path = "
                            "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver"));
}

TEST_F(DriverStartType, OfAMissingServiceIsToldWithThePath) {
    kernel.registry.deleteKey(serviceKey);
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(setDriverStartType(StartType::boot), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_FALSE(kernel.registry.keyExists(serviceKey)) << "the key is opened, not created";
    EXPECT_THAT(takeLines(),
                ElementsAre("ERROR RegistryUpdater failed to open registry key, status = 0xc0000034, path = "
                            "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver"));
}

TEST_F(DriverStartType, ThatCannotBeWrittenIsTold) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(whileFailing("WdfRegistryAssignULong", 1, [] { return setDriverStartType(StartType::demand); }),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR RegistryUpdater failed to assign ulong value to registry key, status = "
                                         "0xc000009a"));
    EXPECT_EQ(start(), std::nullopt);
}

} // namespace
} // namespace unit
