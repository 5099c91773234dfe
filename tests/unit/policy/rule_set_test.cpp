#include "policy/rule_set.h"

#include "support/pool_memory.h"
#include "tests/unit/fixture/rule_set_fixture.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct RuleCase {
    const char16_t *rule;
    const char *withWildcard;
    const char *without;
};

void PrintTo(const RuleCase &rule, std::ostream *out) {
    *out << '"' << sim::toUtf8(rule.rule) << '"';
}

class RuleNormalisation : public RuleSetTest, public testing::WithParamInterface<RuleCase> {};

TEST_P(RuleNormalisation, WithTheSerialWildcard) {
    ASSERT_EQ(put(GetParam().rule, true), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre(GetParam().withWildcard));
}

TEST_P(RuleNormalisation, WithoutTheSerialWildcard) {
    ASSERT_EQ(put(GetParam().rule, false), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre(GetParam().without));
}

INSTANTIATE_TEST_SUITE_P(
    Rules, RuleNormalisation,
    testing::Values(RuleCase{u"vid_0781&pid_5567", "VID_0781&PID_5567\\*", "VID_0781&PID_5567"},
                    RuleCase{u"VID_0781&PID_5567\\abc", "VID_0781&PID_5567\\ABC", "VID_0781&PID_5567\\ABC"},
                    RuleCase{u"VID_0781&PID_5567\\ABC*", "VID_0781&PID_5567\\ABC*", "VID_0781&PID_5567\\ABC*"},
                    RuleCase{u"\\x", "\\X", "\\X"}, RuleCase{u"x\\", "X\\", "X\\"}, RuleCase{u"\\", "\\", "\\"},
                    RuleCase{u"*", "*\\*", "*"}, RuleCase{u"", "\\*", ""}, RuleCase{u"a/b", "A/B\\*", "A/B"},
                    RuleCase{u"Class_e0", "CLASS_E0\\*", "CLASS_E0"}));
INSTANTIATE_TEST_SUITE_P(OtherLetters, RuleNormalisation,
                         testing::Values(RuleCase{u"\u00E9\u00FF", "\u00C9\u0178\\*", "\u00C9\u0178"},
                                         RuleCase{u"\u0436\u03B1", "\u0416\u0391\\*", "\u0416\u0391"},
                                         RuleCase{u"stra\u00DFe", "STRA\u00DFE\\*", "STRA\u00DFE"}));

class RuleSets : public RuleSetTest {};

TEST_F(RuleSets, StartEmpty) {
    EXPECT_EQ(rules.count(), 0u);
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(RuleSets, HoldTheSameRuleOnce) {
    put(u"VID_1");
    put(u"VID_1");
    EXPECT_THAT(texts(), ElementsAre("VID_1"));
    EXPECT_EQ(kernel.pool.blocksInUse(), 2u) << "one entry and its text";
}

TEST_F(RuleSets, HoldARuleInTwoCasesOnce) {
    put(u"vid_1");
    put(u"Vid_1");
    put(u"VID_1");
    EXPECT_THAT(texts(), ElementsAre("VID_1"));
}

TEST_F(RuleSets, TellRulesApartByTheirWildcard) {
    put(u"VID_1", false);
    put(u"VID_1", true);
    EXPECT_THAT(texts(), ElementsAre("VID_1", "VID_1\\*"));
}

TEST_F(RuleSets, RuleThatComesAgainReplacesTheTextOfTheFirst) {
    put(u"VID_1");
    const RuleEntry *before = rules.find(Text(u"VID_1"));
    const WCHAR *oldText = before->key.Buffer;
    put(u"vid_1");
    const RuleEntry *after = rules.find(Text(u"VID_1"));
    EXPECT_EQ(after, before);
    EXPECT_FALSE(after->key.Buffer == oldText);
    EXPECT_EQ(kernel.pool.blocksInUse(), 2u) << "the old text is freed";
    EXPECT_TRUE(after->key.Buffer == after->text.buffer());
    EXPECT_EQ(utf8(after->key), "VID_1");
}

TEST_F(RuleSets, AreOrderedByTextWithLettersBeforeUnderscores) {
    for (const char16_t *rule : {u"B", u"A_", u"a", u"AB", u"", u"1", u"*"}) {
        put(rule);
    }
    EXPECT_THAT(texts(), ElementsAre("", "*", "1", "A", "AB", "A_", "B"));
}

TEST_F(RuleSets, KeepEntriesAndTextsInPagedPoolUnderTheirTags) {
    put(u"VID_1");
    const RuleEntry *entry = rules.find(Text(u"VID_1"));
    const auto entryBlock = kernel.pool.blockAt(entry).value();
    EXPECT_EQ(entryBlock.tag, tableEntryPoolTag);
    EXPECT_TRUE(entryBlock.paged);
    EXPECT_EQ(entryBlock.size, sizeof(RTL_BALANCED_LINKS) + sizeof(RuleEntry));
    const auto textBlock = kernel.pool.blockAt(entry->text.buffer()).value();
    EXPECT_EQ(textBlock.tag, stringPoolTag);
    EXPECT_TRUE(textBlock.paged);
    EXPECT_EQ(textBlock.size, 10u);
}

TEST_F(RuleSets, WildcardGrowsTheTextToExactlyItsLength) {
    put(u"VID_1", true);
    const RuleEntry *entry = rules.find(Text(u"VID_1\\*"));
    EXPECT_EQ(kernel.pool.blockAt(entry->text.buffer()).value().size, 14u);
    EXPECT_EQ(entry->key.MaximumLength, 14);
}

TEST_F(RuleSets, KeyAndTextShowTheSame) {
    put(u"vid_1", true);
    const RuleEntry *entry = rules.find(Text(u"VID_1\\*"));
    EXPECT_EQ(utf8(entry->key), utf8(entry->text));
    EXPECT_TRUE(entry->key.Buffer == entry->text.buffer());
}

TEST_F(RuleSets, FindIgnoresCaseAndKnowsNoWildcards) {
    put(u"Class_08");
    put(u"VID_*");
    EXPECT_NE(rules.find(Text(u"Class_08")), nullptr);
    EXPECT_NE(rules.find(Text(u"class_08")), nullptr);
    EXPECT_EQ(rules.find(Text(u"Class_0")), nullptr);
    EXPECT_EQ(rules.find(Text(u"Class_088")), nullptr);
    EXPECT_EQ(rules.find(Text(u"VID_1")), nullptr);
    EXPECT_EQ(rules.find(UNICODE_STRING{}), nullptr);
}

TEST_F(RuleSets, ClearFreesEveryRuleAndLeavesTheSetUsable) {
    for (char16_t letter = u'a'; letter <= u'z'; ++letter) {
        put(std::u16string(3, letter));
    }
    EXPECT_EQ(rules.count(), 26u);
    rules.clear();
    EXPECT_EQ(rules.count(), 0u);
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
    put(u"again");
    EXPECT_THAT(texts(), ElementsAre("AGAIN"));
}

TEST_F(RuleSets, AnyRuleStopsAtTheFirstYes) {
    put(u"A");
    put(u"B");
    put(u"C");
    int visited = 0;
    EXPECT_TRUE(rules.anyRule([&](const UNICODE_STRING &rule) {
        ++visited;
        return utf8(rule) == "B";
    }));
    EXPECT_EQ(visited, 2);
    EXPECT_FALSE(rules.anyRule([](const UNICODE_STRING &) { return false; }));
}

} // namespace
} // namespace unit
