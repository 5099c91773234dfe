#include "tests/unit/fixture/rule_storage_fixture.h"

namespace unit {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;

class ThunderboltRules : public RuleStorageTest<ThunderboltRuleStorage> {
  protected:
    ThunderboltRules() {
        putString(blockedValue, u"");
        putString(allowedValue, u"");
        putString(readOnlyValue, u"");
    }
    bool isAllowed(const std::u16string &ids) { return storage.isAllowed(Text(ids)); }
    bool isReadOnly(const std::u16string &ids) { return storage.isReadOnly(Text(ids)); }
};

TEST_F(ThunderboltRules, TextRulesMatchTheBareId) {
    putString(allowedValue, u"ven_144d&dev_a808");
    putString(readOnlyValue, u"VEN_8086*");
    ASSERT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_TRUE(isAllowed(u"PCI\\VEN_144D&DEV_A808"));
    EXPECT_TRUE(isAllowed(u"PCI\\ven_144d&dev_a808"));
    EXPECT_FALSE(isAllowed(u"PCI\\VEN_144D&DEV_A808&SUBSYS_1"));
    EXPECT_FALSE(isAllowed(u"PCI\\VEN_8086&DEV_1"));
    EXPECT_TRUE(isReadOnly(u"PCI\\VEN_8086&DEV_1"));
}

TEST_F(ThunderboltRules, ListRulesMatchIdsWithASecondBackslashOnly) {
    putList(allowedValue, {u"VEN_144D&DEV_A808"});
    ASSERT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_FALSE(isAllowed(u"PCI\\VEN_144D&DEV_A808"));
    EXPECT_TRUE(isAllowed(u"PCI\\VEN_144D&DEV_A808\\X"));
}

TEST_F(ThunderboltRules, AnyOfTheIdsMayMatch) {
    putString(allowedValue, u"B");
    ASSERT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_TRUE(isAllowed(multiSz({u"PCI\\A", u"PCI\\B"})));
    EXPECT_FALSE(isAllowed(multiSz({u"PCI\\A", u"PCI\\C"})));
}

TEST_F(ThunderboltRules, BlockedTextWithoutDataHasNoDefault) {
    kernel.registry.setValue(parametersKey, blockedValue, REG_SZ, {});
    setLogLevel(static_cast<LONG>(LogLevel::info));
    ASSERT_EQ(storage.reload(), STATUS_SUCCESS);
    EXPECT_THAT(takeLines(), testing::Not(testing::Contains(testing::HasSubstr("use default value"))));
}

TEST_F(ThunderboltRules, TellEveryComparisonAndTheAnswer) {
    putString(allowedValue, u"a b");
    ASSERT_EQ(reloadSilently(), STATUS_SUCCESS);
    EXPECT_TRUE(isAllowed(multiSz({u"PCI\\X", u"PCI\\A"})));
    EXPECT_FALSE(isReadOnly(u"PCI\\X"));
    EXPECT_THAT(takeLines(), ElementsAre("INFO Rule=A fullId=X", "INFO Rule=B fullId=X", "INFO Rule=A fullId=A",
                                         "INFO Check request isAllowed, hardwareIds = PCI\\X\0PCI\\A, result = 1"s,
                                         "INFO Check request isReadOnly, hardwareIds = PCI\\X, result = 0"));
}

TEST_F(ThunderboltRules, WithoutMemoryTheAnswerIsNo) {
    putString(allowedValue, u"A");
    ASSERT_EQ(reloadSilently(), STATUS_SUCCESS);
    setLogLevel(0);
    failEachCall([&] { return isAllowed(u"PCI\\A"); }, [](bool allowed, bool failed) { EXPECT_EQ(allowed, !failed); });
    setLogLevel(static_cast<LONG>(LogLevel::error));
    kernel.workers.pause();
    EXPECT_FALSE(whileFailing("ExAllocatePool2", 1, [&] { return isAllowed(multiSz({u"PCI\\X", u"PCI\\A"})); }));
    kernel.workers.resume();
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to init fullId, status = 0xc000009a"));
}

TEST_F(ThunderboltRules, ReloadReportsItsFailure) {
    kernel.registry.deleteKey(parametersKey);
    EXPECT_EQ(reloadSilently(), STATUS_OBJECT_NAME_NOT_FOUND);
}

TEST_F(ThunderboltRules, ReloadLeavesNothingBehindWhateverFails) {
    putString(allowedValue, u"A B");
    putList(readOnlyValue, {u"C"});
    setLogLevel(0);
    failEachCall([&] { return storage.reload(); },
                 [&](NTSTATUS, bool) {
                     EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
                     storage.clearRules();
                     EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
                 });
}

} // namespace
} // namespace unit
