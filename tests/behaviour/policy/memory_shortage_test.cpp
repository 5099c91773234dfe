#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

#include <set>

namespace behaviour {
namespace {

using testing::Contains;

/// Decisions while memory runs out.
class MemoryShortage : public DriverTest {
  protected:
    void startSilent(const Policy &policy) {
        setParameter(u"LogLevel", 0);
        apply(policy);
        start();
    }
};

TEST_F(MemoryShortage, AMatchThatRaisesIsNoMatch) {
    apply(allowing({u"VID_0781&PID_5581"}));
    start();
    failInAdd("FsRtlIsNameInExpression", 1, {}, true);
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U);
    const auto ids = idsOf(flashDrive());
    EXPECT_THAT(addOf("stick").log, Contains("INFO Check request isAllowed, hardwareIds = " + lines::list(ids) +
                                             ", serial = A20054F50D478A23, result = 0"));
    EXPECT_EQ(filterOf("stick").mode, 1U);
    EXPECT_EQ(filterOf("stick").filterable, 1U);
    EXPECT_TRUE(machine().replug(deviceNode("stick")).started());
}

TEST_F(MemoryShortage, AfterOneMatchThatRaisedTheNextIdIsTried) {
    // The class codes and two ids against one rule: only the last match of the last id counts.
    apply(allowing({u"VID_0781&PID_5581"}));
    start();
    unsigned blocked = 0;
    for (std::uint64_t nth = 1; nth <= 4; ++nth) {
        failInAdd("FsRtlIsNameInExpression", nth);
        blocked += plug(flashDrive()).problemCode() == 29 ? 1 : 0;
        unplug("stick");
    }
    EXPECT_EQ(blocked, 1U);
}

TEST_F(MemoryShortage, AReadOnlyMatchThatRaisesBlocks) {
    apply(readOnly({u"VID_0781&PID_5581"}));
    start();
    failInAdd("FsRtlIsNameInExpression", 1, {}, true);
    EXPECT_EQ(plug(flashDrive()).problemCode(), 29U);
}

TEST_F(MemoryShortage, ClassCodesThatCannotBeMatchedStayZeroAndTheAddGoesOn) {
    apply({});
    start();
    failInAdd("FsRtlIsNameInExpression", 1, {}, true);
    EXPECT_TRUE(plug(mouse()).started());
    const auto &message = filterOf("mouse").message;
    EXPECT_EQ(message[536], 0);
    EXPECT_EQ(message[16], 0x6D) << "the rest is there";
}

TEST_F(MemoryShortage, NoFallibleCallMakesAnAllowedStickAnythingButAllowedOrBlocked) {
    startSilent(allowing({u"VID_0781&PID_5581"}));
    unsigned stricter = 0;
    failEachCallOfAdd([&] {
        sim::DeviceNode &node = plug(flashDrive());
        const Add &add = addOf("stick");
        if (add.filter) {
            EXPECT_TRUE(add.filter->mode == 2 || add.filter->mode == 1);
            EXPECT_EQ(node.problemCode(), add.filter->mode == 1 ? 29U : 0U);
            stricter += add.filter->mode == 1 ? 1 : 0;
        } else if (add.returned != STATUS_SUCCESS) {
            EXPECT_EQ(node.problemCode(), 31U);
        }
        machine().unplug(node);
    });
    EXPECT_GE(stricter, 3U);
}

TEST_F(MemoryShortage, EachStepOfAFullIdHasItsLine) {
    setParameter(u"LogLevel", 2);
    apply(allowing({u"VID_0781&PID_5581"}));
    start();
    std::set<std::string> seen;
    for (std::uint64_t nth = 1; nth < 80; ++nth) {
        failInAdd("ExAllocatePool2", nth);
        plug(flashDrive());
        for (const std::string &line : addOf("stick").log) {
            seen.insert(line);
        }
        unplug("stick");
    }
    for (const char *line :
         {"ERROR Failed to init fullId, status = 0xc000009a", "ERROR Failed to append fullId, status = 0xc000009a",
          "ERROR Failed to append serial to fullId, status = 0xc000009a",
          "ERROR Failed to append path for fullId, status = 0xc000009a",
          "ERROR Failed to put the fullId to container, status = 0xc000009a",
          "ERROR forEachStringCallFunc failed callback, status = 0xc000009a",
          "ERROR Failed to fill device info, status = 0xc000009a", "ERROR Failed to process rules, status = 0xc000009a",
          "ERROR Failed to hardware id init, status = 0xc000009a",
          "ERROR Failed to get hardware ids, status = 0xc000009a"}) {
        EXPECT_THAT(seen, Contains(line));
    }
}

TEST_F(MemoryShortage, EveryFallibleCallOfAnAddInTurnEndsInADecisionOrAFailedAdd) {
    startSilent({}); // a stick that nothing lists
    failEachCallOfAdd([&] {
        sim::DeviceNode &node = plug(flashDrive());
        const Add &add = addOf("stick");
        EXPECT_EQ(add.returned, *add.callbackStatus);
        if (add.returned != STATUS_SUCCESS) {
            EXPECT_EQ(node.problemCode(), 31U);
        } else if (!add.filter) {
            EXPECT_TRUE(node.started()); // its enumerator could not be read
        } else if (add.filter->filterable != 0) {
            EXPECT_EQ(node.problemCode(), 29U) << "a filterable device that nothing lists never works";
        }
        machine().unplug(node);
    });
}

} // namespace
} // namespace behaviour
