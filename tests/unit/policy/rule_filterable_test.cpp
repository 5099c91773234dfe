#include "tests/unit/fixture/rule_storage_fixture.h"

namespace unit {
namespace {

struct FilterableCase {
    const char16_t *rules; ///< as text, separated by spaces
    std::u16string compatibleIds;
    bool filterable;
};

void PrintTo(const FilterableCase &filterable, std::ostream *out) {
    *out << sim::toUtf8(filterable.rules) << " on " << sim::toUtf8(filterable.compatibleIds);
}

class Filterable : public RuleStorageTest<RuleStorage>, public testing::WithParamInterface<FilterableCase> {};

TEST_P(Filterable, IsDecidedByTheBlockedRules) {
    putString(blockedValue, GetParam().rules);
    (void)reloadSilently();
    EXPECT_EQ(storage.isFilterable(Text(GetParam().compatibleIds)), GetParam().filterable);
}

INSTANTIATE_TEST_SUITE_P(ExactLookupIgnoresCase, Filterable,
                         testing::Values(FilterableCase{u"Class_08", u"USB\\Class_08", true},
                                         FilterableCase{u"Class_08", u"USB\\CLASS_08", true},
                                         FilterableCase{u"CLASS_08", u"usb\\class_08", true},
                                         FilterableCase{u"Class_08", u"USB\\Class_08&SubClass_06&Prot_50", false},
                                         FilterableCase{u"Class_08", u"USB\\Class_0", false},
                                         FilterableCase{u"Class_08", u"Class_08", true}));
INSTANTIATE_TEST_SUITE_P(WildcardsDoNotIgnoreCase, Filterable,
                         testing::Values(FilterableCase{u"Class_0*", u"USB\\Class_08", false},
                                         FilterableCase{u"Class_0*", u"USB\\CLASS_08", true},
                                         FilterableCase{u"class_??", u"USB\\CLASS_08", true},
                                         FilterableCase{u"class_??", u"USB\\class_08", false},
                                         FilterableCase{u"MS_COMP_*", u"USB\\MS_COMP_MTP", true},
                                         FilterableCase{u"*", u"USB\\Class_08", true}));
INSTANTIATE_TEST_SUITE_P(
    SeveralIdsAndRules, Filterable,
    testing::Values(FilterableCase{u"Class_06 Class_08", multiSz({u"USB\\Class_03", u"USB\\Class_08"}), true},
                    FilterableCase{u"Class_06 Class_08", multiSz({u"USB\\Class_03", u"USB\\Class_09"}), false},
                    FilterableCase{u"Class_06", multiSz({u"USB\\Class_06", u""}), true}));
INSTANTIATE_TEST_SUITE_P(UnusualIds, Filterable,
                         testing::Values(FilterableCase{u"Class_08", u"", false}, FilterableCase{u"*", u"", false},
                                         FilterableCase{u"*", u"USB\\", false},
                                         FilterableCase{u"\\Class_08", u"\\Class_08", true},
                                         FilterableCase{u"Class_08", u"\\Class_08", false},
                                         FilterableCase{u"B\\C", u"A\\B\\C", true},
                                         FilterableCase{u"", u"USB\\X", false}));

class FilterableList : public RuleStorageTest<RuleStorage> {
  protected:
    bool isFilterable(const char16_t *id) { return storage.isFilterable(Text(id)); }
};

TEST_F(FilterableList, RuleOfAListGainsTheWildcardAndNoLongerMatchesTheBareId) {
    putList(blockedValue, {u"Class_08"});
    (void)reloadSilently();
    EXPECT_FALSE(isFilterable(u"USB\\Class_08"));
    EXPECT_FALSE(isFilterable(u"USB\\CLASS_08"));
    EXPECT_TRUE(isFilterable(u"USB\\CLASS_08\\X"));
    EXPECT_TRUE(isFilterable(u"USB\\class_08\\*")) << "the exact lookup takes the rule's text literally";
}

TEST_F(FilterableList, EmptyRuleOfAListMatchesIdsThatBeginWithABackslash) {
    putList(blockedValue, {u"\\*"});
    (void)reloadSilently();
    EXPECT_TRUE(isFilterable(u"\\ANY"));
    EXPECT_FALSE(isFilterable(u"USB\\ANY"));
}

TEST_F(FilterableList, NothingIsWithoutRules) {
    EXPECT_FALSE(isFilterable(u"USB\\Class_08"));
    putList(blockedValue, {});
    (void)reloadSilently();
    EXPECT_FALSE(isFilterable(u"USB\\Class_08"));
}

TEST_F(FilterableList, NothingIsLoggedAndNothingHeldAfterwards) {
    putString(blockedValue, u"Class_08");
    (void)reloadSilently();
    takeLines();
    EXPECT_TRUE(isFilterable(u"USB\\Class_08"));
    EXPECT_FALSE(isFilterable(u"USB\\Class_09"));
    EXPECT_THAT(takeLines(), testing::IsEmpty());
    EXPECT_EQ(sim::currentThread().criticalRegionDepth, 0u);
    EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
}

class ReadOnlyUnlisted : public RuleStorageTest<RuleStorage> {
  protected:
    bool isUnlisted(const std::vector<std::u16string> &readOnlyRules) {
        putList(blockedValue, {});
        putList(allowedValue, {});
        putList(readOnlyValue, readOnlyRules);
        EXPECT_EQ(reloadSilently(), STATUS_SUCCESS);
        return storage.isReadOnlyUnlisted();
    }
};

TEST_F(ReadOnlyUnlisted, IsOneRuleThatBeginsWithAStar) {
    EXPECT_TRUE(isUnlisted({u"*"}));
    EXPECT_TRUE(isUnlisted({u"*\\*"}));
    EXPECT_TRUE(isUnlisted({u"*X"}));
    EXPECT_TRUE(isUnlisted({u"*", u"*"})) << "the same rule twice is one rule";
}

TEST_F(ReadOnlyUnlisted, IsNothingElse) {
    EXPECT_FALSE(isUnlisted({}));
    EXPECT_FALSE(isUnlisted({u"VID_1"}));
    EXPECT_FALSE(isUnlisted({u"VID_*"}));
    EXPECT_FALSE(isUnlisted({u"?*"}));
    EXPECT_FALSE(isUnlisted({u"*", u"VID_1"}));
}

} // namespace
} // namespace unit
