#include "tests/unit/fixture/rule_set_fixture.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RuleSetLog : public RuleSetTest {
  protected:
    RuleSetLog() { setLogLevel(static_cast<LONG>(LogLevel::info)); }

    /// Puts a rule while the nth request for memory under that tag fails. Workers wait meanwhile, so that no other
    /// request comes between.
    NTSTATUS putWhileFailing(std::uint64_t allocation, std::u16string_view rule, bool appendWildcard) {
        setLogLevel(static_cast<LONG>(LogLevel::error));
        return whileFailing("ExAllocatePool2", allocation, [&] {
            kernel.workers.pause();
            const NTSTATUS status = put(rule, appendWildcard);
            kernel.faults.arm(false);
            kernel.workers.resume();
            return status;
        });
    }
};

TEST_F(RuleSetLog, TellsTheRuleAsItWasGiven) {
    put(u"vid_0781&pid_5567", true);
    EXPECT_THAT(takeLines(), ElementsAre("INFO putIdToContainerWithSerial rule = vid_0781&pid_5567"));
}

TEST_F(RuleSetLog, TellsThatTheCopyFailed) {
    EXPECT_EQ(putWhileFailing(1, u"VID_1", true), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to init fullId, status = 0xc000009a"));
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(RuleSetLog, TellsThatAppendingTheWildcardFailed) {
    EXPECT_EQ(putWhileFailing(2, u"VID_1", true), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to append path for fullId, status = 0xc000009a"));
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(RuleSetLog, TellsThatTheInsertFailed) {
    EXPECT_EQ(putWhileFailing(3, u"VID_1", true), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to put the fullId to container, status = 0xc000009a"));
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(RuleSetLog, TellsThatTheWildcardNoLongerFits) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    EXPECT_EQ(put(std::u16string(32'766, u'x'), true), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(put(std::u16string(32'767, u'x'), true), STATUS_BUFFER_TOO_SMALL);
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to append path for fullId, status = 0xc0000023",
                                         "ERROR Failed to append path for fullId, status = 0xc0000023"));
    EXPECT_THAT(texts(), IsEmpty());
}

class RuleSetLimits : public RuleSetTest {};

TEST_F(RuleSetLimits, LongestRuleWithAWildcardHas32765Characters) {
    ASSERT_EQ(put(std::u16string(32'765, u'x'), true), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre(std::string(32'765, 'X') + "\\*"));
}

TEST_F(RuleSetLimits, LongestRuleWithoutOneHas32767Characters) {
    ASSERT_EQ(put(std::u16string(32'767, u'x'), false), STATUS_SUCCESS);
    EXPECT_THAT(texts(), ElementsAre(std::string(32'767, 'X')));
    std::u16string withBackslash(32'767, u'y');
    withBackslash[5] = u'\\';
    EXPECT_EQ(put(withBackslash, true), STATUS_SUCCESS) << "nothing is to be appended";
}

class RuleSetWithoutMemory : public RuleSetTest {};

TEST_F(RuleSetWithoutMemory, StaysAsItWas) {
    put(u"OTHER");
    failEachCall([&] { return put(u"vid_1", true); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(status, failed ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS);
                     if (failed) {
                         EXPECT_THAT(texts(), ElementsAre("OTHER"));
                         EXPECT_EQ(kernel.pool.blocksInUse(), 2u);
                     }
                 });
    EXPECT_THAT(texts(), ElementsAre("OTHER", "VID_1\\*"));
}

TEST_F(RuleSetWithoutMemory, KeepsTheRuleThatWouldBeReplaced) {
    put(u"vid_1", true);
    failEachCall([&] { return put(u"VID_1", true); },
                 [&](NTSTATUS, bool) {
                     EXPECT_THAT(texts(), ElementsAre("VID_1\\*"));
                     EXPECT_EQ(kernel.pool.blocksInUse(), 2u);
                 });
}

} // namespace
} // namespace unit
