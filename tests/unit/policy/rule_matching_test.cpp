#include "tests/unit/fixture/rule_storage_fixture.h"

#include <thread>

namespace unit {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;
using testing::IsEmpty;

struct MatchingCase {
    const char16_t *rule; ///< as one string of a list, so that it gains the wildcard
    std::u16string hardwareIds;
    const char16_t *serial;
    bool matches;
};

void PrintTo(const MatchingCase &match, std::ostream *out) {
    *out << sim::toUtf8(match.rule) << " on " << sim::toUtf8(match.hardwareIds) << " \\ " << sim::toUtf8(match.serial);
}

class RuleMatching : public RuleStorageTest<RuleStorage>, public testing::WithParamInterface<MatchingCase> {
  protected:
    void load(std::u16string_view value, const std::u16string &rule) {
        putList(blockedValue, {});
        putList(allowedValue, {});
        putList(readOnlyValue, {});
        putList(value, {rule});
        ASSERT_EQ(reloadSilently(), STATUS_SUCCESS);
    }
};

TEST_P(RuleMatching, OfAllowedRules) {
    load(allowedValue, GetParam().rule);
    EXPECT_EQ(storage.isAllowed(Text(GetParam().hardwareIds), Text(GetParam().serial)), GetParam().matches);
    EXPECT_FALSE(storage.isReadOnly(Text(GetParam().hardwareIds), Text(GetParam().serial)));
}

TEST_P(RuleMatching, OfReadOnlyRules) {
    load(readOnlyValue, GetParam().rule);
    EXPECT_EQ(storage.isReadOnly(Text(GetParam().hardwareIds), Text(GetParam().serial)), GetParam().matches);
    EXPECT_FALSE(storage.isAllowed(Text(GetParam().hardwareIds), Text(GetParam().serial)));
}

INSTANTIATE_TEST_SUITE_P(RuleWithoutBackslash, RuleMatching,
                         testing::Values(MatchingCase{u"vid_0781&pid_5567", u"USB\\VID_0781&PID_5567", u"12AB", true},
                                         MatchingCase{u"vid_0781&pid_5567", u"USB\\VID_0781&PID_5567", u"", true},
                                         MatchingCase{u"vid_0781&pid_5567", u"usb\\vid_0781&pid_5567", u"x", true},
                                         MatchingCase{u"VID_0781", u"USB\\VID_0781&PID_5567", u"x", false},
                                         MatchingCase{u"VID_0781*", u"USB\\VID_0781&PID_5567", u"x", true},
                                         MatchingCase{u"*", u"USB\\VID_0781&PID_5567", u"", true},
                                         MatchingCase{u"USB", u"USB\\VID_0781", u"x", false}));
INSTANTIATE_TEST_SUITE_P(RuleWithSerial, RuleMatching,
                         testing::Values(MatchingCase{u"VID_1&PID_2\\ABC", u"USB\\VID_1&PID_2", u"ABC", true},
                                         MatchingCase{u"VID_1&PID_2\\ABC", u"USB\\VID_1&PID_2", u"abc", true},
                                         MatchingCase{u"vid_1&pid_2\\abc", u"USB\\VID_1&PID_2", u"ABC", true},
                                         MatchingCase{u"VID_1&PID_2\\ABC", u"USB\\VID_1&PID_2", u"ABCD", false},
                                         MatchingCase{u"VID_1&PID_2\\ABC", u"USB\\VID_1&PID_2", u"", false},
                                         MatchingCase{u"VID_1&PID_2\\", u"USB\\VID_1&PID_2", u"", true},
                                         MatchingCase{u"VID_1&PID_2\\", u"USB\\VID_1&PID_2", u"A", false},
                                         MatchingCase{u"VID_1&PID_2\\A*C", u"USB\\VID_1&PID_2", u"a1c", true},
                                         MatchingCase{u"VID_?&PID_2\\A", u"USB\\VID_9&PID_2", u"A", true}));
INSTANTIATE_TEST_SUITE_P(
    SeveralIds, RuleMatching,
    testing::Values(MatchingCase{u"VID_1", multiSz({u"USB\\VID_1&REV_1", u"USB\\VID_1"}), u"S", true},
                    MatchingCase{u"VID_1&REV_1", multiSz({u"USB\\VID_1&REV_1", u"USB\\VID_1"}), u"S", true},
                    MatchingCase{u"VID_2", multiSz({u"USB\\VID_1&REV_1", u"USB\\VID_1"}), u"S", false}));
INSTANTIATE_TEST_SUITE_P(
    UnusualIds, RuleMatching,
    testing::Values(MatchingCase{u"\\X\\S", u"\\X", u"S", true}, MatchingCase{u"X", u"\\X", u"S", false},
                    MatchingCase{u"\\S", u"USB\\", u"S", true}, MatchingCase{u"\\S", u"", u"S", true},
                    MatchingCase{u"NOBUS", u"NOBUS", u"S", true}, MatchingCase{u"B", u"A\\B\\C", u"S", true},
                    MatchingCase{u"\u00E9", u"USB\\\u00C9", u"S", true},
                    MatchingCase{u"\u00E9", u"USB\\\u00E9", u"S", true}));

class RuleMatchingLog : public RuleStorageTest<RuleStorage> {
  protected:
    RuleMatchingLog() {
        putList(blockedValue, {});
        putList(allowedValue, {u"VID_1"});
        putList(readOnlyValue, {u"VID_2"});
        EXPECT_EQ(reloadSilently(), STATUS_SUCCESS);
    }
};

TEST_F(RuleMatchingLog, TellsIdsSerialAndAnswer) {
    (void)storage.isAllowed(Text(multiSz({u"USB\\VID_1&REV_1", u"USB\\VID_1"})), Text(u"s1"));
    (void)storage.isReadOnly(Text(u"USB\\VID_1"), Text(u""));
    EXPECT_THAT(takeLines(),
                ElementsAre("INFO Check request isAllowed, hardwareIds = USB\\VID_1&REV_1\0USB\\VID_1, "
                            "serial = s1, result = 1"s,
                            "INFO Check request isReadOnly, hardwareIds = USB\\VID_1, serial = , result = 0"));
}

TEST_F(RuleMatchingLog, HoldsTheLockForReadingInACriticalRegion) {
    auto *lock = reinterpret_cast<ERESOURCE *>(reinterpret_cast<char *>(&storage) + 3 * sizeof(RuleSet));
    int matches = 0;
    kernel.trace.setObserver([&](const sim::TraceEvent &event) {
        if (event.kind != sim::TraceEvent::Kind::nameMatch) {
            return;
        }
        ++matches;
        EXPECT_EQ(sim::currentThread().criticalRegionDepth, 1u);
        std::thread([&] {
            KeEnterCriticalRegion();
            EXPECT_FALSE(ExAcquireResourceExclusiveLite(lock, FALSE));
            EXPECT_TRUE(ExAcquireResourceSharedLite(lock, FALSE));
            ExReleaseResourceLite(lock);
            KeLeaveCriticalRegion();
        }).join();
    });
    setLogLevel(0);
    EXPECT_TRUE(storage.isAllowed(Text(u"USB\\VID_1"), Text(u"S")));
    EXPECT_TRUE(storage.isReadOnly(Text(u"USB\\VID_2"), Text(u"S")));
    kernel.trace.setObserver({});
    EXPECT_EQ(matches, 2);
    EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
}

class RuleMatchingWithoutMemory : public RuleMatchingLog {
  protected:
    RuleMatchingWithoutMemory() { setLogLevel(static_cast<LONG>(LogLevel::error)); }

    bool isAllowedWhileFailing(const char *routine, std::uint64_t nth, const std::u16string &ids) {
        kernel.workers.settle(); // the log's workers call the same routines
        kernel.workers.pause();
        const bool allowed = whileFailing(routine, nth, [&] { return storage.isAllowed(Text(ids), Text(u"S")); });
        kernel.workers.resume();
        return allowed;
    }
};

TEST_F(RuleMatchingWithoutMemory, AnswersNoAndTellsWhatFailed) {
    EXPECT_FALSE(isAllowedWhileFailing("ExAllocatePool2", 1, u"USB\\VID_1"));
    EXPECT_FALSE(isAllowedWhileFailing("ExAllocatePool2", 2, u"USB\\VID_1"));
    EXPECT_FALSE(isAllowedWhileFailing("ExAllocatePool2", 3, u"USB\\VID_1"));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to init fullId, status = 0xc000009a",
                                         "ERROR Failed to append fullId, status = 0xc000009a",
                                         "ERROR Failed to append serial to fullId, status = 0xc000009a"));
}

TEST_F(RuleMatchingWithoutMemory, EndsTheMatchEvenIfALaterIdWouldMatch) {
    EXPECT_FALSE(isAllowedWhileFailing("ExAllocatePool2", 1, multiSz({u"USB\\OTHER", u"USB\\VID_1"})));
}

TEST_F(RuleMatchingWithoutMemory, OfThePatternMatchGoesOnWithTheNextId) {
    EXPECT_FALSE(isAllowedWhileFailing("FsRtlIsNameInExpression", 1, u"USB\\VID_1"));
    EXPECT_TRUE(isAllowedWhileFailing("FsRtlIsNameInExpression", 1, multiSz({u"USB\\VID_1", u"USB\\VID_1"})));
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(RuleMatchingWithoutMemory, TextsTooLongForACountedStringAnswerNo) {
    const Text longId(u"USB\\" + std::u16string(32'767 - 4, u'x'));
    EXPECT_FALSE(storage.isAllowed(longId, Text(std::u16string(10, u's'))));
    const Text longest(std::u16string(32'767, u'x'));
    EXPECT_FALSE(storage.isAllowed(longest, Text(u"s")));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to append serial to fullId, status = 0xc0000023",
                                         "ERROR Failed to append fullId, status = 0xc0000023"));
}

TEST_F(RuleMatchingWithoutMemory, AnswersNoWhateverFailsAndLeavesNothing) {
    setLogLevel(0);
    const std::size_t blocks = kernel.pool.blocksInUse();
    failEachCall([&] { return storage.isAllowed(Text(u"USB\\VID_1"), Text(u"S")); },
                 [&](bool allowed, bool failed) {
                     EXPECT_EQ(allowed, !failed);
                     EXPECT_EQ(kernel.pool.blocksInUse(), blocks);
                     EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
                 });
}

} // namespace
} // namespace unit
