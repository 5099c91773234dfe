// What the other tests of this folder rest on: ThreadSanitizer sees the locks of the simulated machine, and it sees
// what a driver does without them.

#include "simulator/kernel/sanitizer.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/races/support/race_test.h"
#include "tests/races/support/racing_driver.h"

#include <atomic>

namespace races {
namespace {

TEST(GuardedData, ByAFastMutexIsNoRace) {
    runRacingDriver([](Shared &shared) {
        meetOther();
        ExAcquireFastMutex(&shared.fastMutex);
        ++shared.count;
        ExReleaseFastMutex(&shared.fastMutex);
    });
}

TEST(GuardedData, ByAnExclusiveResourceIsNoRace) {
    runRacingDriver([](Shared &shared) {
        meetOther();
        KeEnterCriticalRegion();
        ExAcquireResourceExclusiveLite(&shared.resource, TRUE);
        ++shared.count;
        ExReleaseResourceLite(&shared.resource);
        KeLeaveCriticalRegion();
    });
}

TEST(GuardedData, ByAnEventUsedAsALockIsNoRace) {
    runRacingDriver([](Shared &shared) {
        meetOther();
        KeWaitForSingleObject(&shared.event, Executive, KernelMode, FALSE, nullptr);
        ++shared.count;
        KeSetEvent(&shared.event, IO_NO_INCREMENT, FALSE);
    });
}

TEST(GuardedData, ByAWaitLockIsNoRace) {
    runRacingDriver([](Shared &shared) {
        meetOther();
        WdfWaitLockAcquire(shared.waitLock, nullptr);
        ++shared.count;
        WdfWaitLockRelease(shared.waitLock);
    });
}

TEST(GuardedData, ByAtomicInstructionsIsNoRace) {
    runRacingDriver([](Shared &shared) {
        meetOther();
        __atomic_fetch_add(&shared.count, 1, __ATOMIC_RELAXED);
    });
}

#if SIM_THREAD_SANITIZER

/// Runs it in a process of its own, which a race ends.
#define EXPECT_RACE(statement, report)                                                                                 \
    do {                                                                                                               \
        GTEST_FLAG_SET(death_test_style, "threadsafe");                                                                \
        EXPECT_EXIT(statement, testing::ExitedWithCode(66), report);                                                   \
    } while (false)

TEST(UnguardedData, IsReported) {
    EXPECT_RACE(runRacingDriver([](Shared &shared) {
                    inTurn([&] { ++shared.count; }); // before either does what would put it before the other
                }),
                "data race");
}

TEST(UnguardedData, UnderASharedResourceIsReported) {
    EXPECT_RACE(runRacingDriver([](Shared &shared) {
                    KeEnterCriticalRegion();
                    ExAcquireResourceSharedLite(&shared.resource, TRUE);
                    inTurn([&] { ++shared.count; }); // before either does what would put it before the other
                    ExReleaseResourceLite(&shared.resource);
                    KeLeaveCriticalRegion();
                }),
                "data race");
}

TEST(UnguardedData, WrittenBeforeTheLockIsTakenIsReported) {
    EXPECT_RACE(runRacingDriver([](Shared &shared) {
                    inTurn([&] { ++shared.count; }); // before either does what would put it before the other
                    ExAcquireFastMutex(&shared.fastMutex);
                    ExReleaseFastMutex(&shared.fastMutex);
                }),
                "data race");
}

/// The driver itself, whose text of devices below no hub somebody reads without its mutex.
class UnguardedReader : public RaceTest {
  protected:
    void readWhileTheDriverWrites() {
        start();
        std::atomic<bool> writing = true;
        together(2, [&](unsigned thread) {
            for (unsigned round = 0; thread == 0 && round < 30; ++round) {
                sim::DeviceDescription remote = numberedDrive(thread, round);
                remote.busDriver = u"redirector";
                machine().plug(remote, &machine().rootNode());
            }
            while (thread == 1 && writing) {
                static_cast<void>(behaviour::notUsbHubText(machine()));
            }
            writing = false;
        });
    }
};

TEST_F(UnguardedReader, OfTheDriversDataIsReportedWithTheDriversCode) {
    EXPECT_RACE(readWhileTheDriverWrites(), "data race.*TarvenholtMyrtelhavenDriver");
}

#endif

} // namespace
} // namespace races
