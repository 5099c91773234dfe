// Eight threads log at once: each line is in the log whole and once.

#include "myrtelhaven_service.h"
#include "simulator/kernel/strings.h"
#include "tests/behaviour/support/control_code.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/races/support/race_test.h"

#include <atomic>

namespace races {
namespace {

class LogStorm : public RaceTest {
  protected:
    void storm(std::uint32_t linesEach) {
        together([&](unsigned thread) {
            for (std::uint32_t nth = 0; nth < linesEach; ++nth) {
                logNumbered(numberOf(thread, nth));
            }
        });
    }
    std::size_t fileCount() { return kernel().files.tempFiles().size(); }
};

TEST_F(LogStorm, EveryLineIsWrittenOnce) {
    start();
    storm(200);
    expectNumberedLines(threadCount, 200);
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(LogStorm, EveryLineIsWrittenOnceInTheFilesThatItNeeds) {
    start();
    // Room for a bit more than a third of the lines, so that it takes three files, the most that are kept. Each begins
    // in another second: a file of the same second would take the place of the one before.
    Logger &log = behaviour::driverState(machine()).logger;
    machine().settle();
    log.sizeLimit = 48 * 1024;
    kernel().clock.advance(10'000'000);
    kernel().trace.setObserver([this](const sim::TraceEvent &event) {
        if (event.kind == sim::TraceEvent::Kind::tableInsert) {
            kernel().clock.advance(10'000'000); // files are listed right after one was begun
        }
    });
    storm(200);
    machine().settle();
    kernel().trace.setObserver({});
    EXPECT_EQ(fileCount(), 3U);
    expectNumberedLines(threadCount, 200);
    for (const std::string &name : kernel().files.tempFiles()) {
        EXPECT_LE(kernel().files.tempFile(name)->size(), 48U * 1024) << name;
    }
}

TEST_F(LogStorm, OldFilesGoAndThoseKeptAreWhole) {
    start();
    Logger &log = behaviour::driverState(machine()).logger;
    machine().settle();
    log.sizeLimit = 8 * 1024;
    kernel().trace.setObserver([this](const sim::TraceEvent &event) {
        if (event.kind == sim::TraceEvent::Kind::tableInsert) {
            kernel().clock.advance(10'000'000);
        }
    });
    storm(200);
    machine().settle();
    kernel().trace.setObserver({});
    EXPECT_EQ(fileCount(), 3U);
    const auto kept = countLines("INFO onIoDeviceControl");
    EXPECT_GT(kept.size(), 2 * 8 * 1024U / 80) << "two of the files are full";
    for (const auto &[line, count] : kept) {
        EXPECT_EQ(count, 1U) << line;
    }
}

TEST_F(LogStorm, AFileThatReachesTenMebibytesIsFollowedByAnother) {
    // A rule of 30,000 characters is a line of its own each time the lists are read, twice for each drive.
    constexpr unsigned drivesEach = 23;
    const std::u16string longRule = u"VID_" + std::u16string(30'000, u'A');
    behaviour::Policy policy;
    policy.allowed = behaviour::asStrings({longRule});
    apply(policy);
    start();
    kernel().clock.advance(10'000'000); // the second file gets a name of its own
    together([&](unsigned thread) {
        for (unsigned round = 0; round < drivesEach; ++round) {
            machine().unplug(machine().plug(numberedDrive(thread, round)));
        }
    });
    machine().settle();
    const std::string line = "INFO putIdToContainerWithSerial rule = " + sim::toUtf8(longRule);
    EXPECT_EQ(countLines(line)[line], 2 * threadCount * drivesEach);
    ASSERT_EQ(fileCount(), 2U);
    const std::size_t first = kernel().files.tempFile(kernel().files.tempFiles().front())->size();
    EXPECT_LE(first, 10U * 1024 * 1024);
    EXPECT_GT(first, 10U * 1024 * 1024 - 40'000);
}

/// Lines are let through and suppressed in turn.
class LogLevelRace : public LogStorm {
  protected:
    void reloadLevel(std::uint32_t level) {
        setParameter(u"LogLevel", level);
        behaviour::sendControlCode(control(), IOCTL_RELOAD_LOG_SETTINGS);
    }
};

TEST_F(LogLevelRace, LinesAreThereWhenTheirLevelWasOnAllTheTime) {
    start();
    constexpr std::uint32_t linesEach = 200;
    std::atomic<unsigned> logging = threadCount - 1;
    std::atomic<unsigned> begun = 0; // odd: off
    std::atomic<unsigned> made = 0;
    std::mutex mutex;
    std::map<std::string, bool> certain; // whether the line must be there
    together([&](unsigned thread) {
        if (thread == 0) {
            for (unsigned number = 1; logging != 0 || number % 2 == 0; ++number) {
                begun = number;
                reloadLevel(number % 2 == 1 ? 0 : 4);
                made = number;
            }
            return;
        }
        for (std::uint32_t nth = 0; nth < linesEach; ++nth) {
            const unsigned before = made;
            logNumbered(numberOf(thread, nth));
            const unsigned after = begun;
            if (before == after) {
                const std::lock_guard lock(mutex);
                certain[numberedLine(numberOf(thread, nth))] = before % 2 == 0;
            }
        }
        --logging;
    });
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        logNumbered(numberOf(thread, linesEach));
        certain[numberedLine(numberOf(thread, linesEach))] = true; // the last change was to the level that lets it
    }
    auto found = countLines("INFO onIoDeviceControl, ioctl code = ");
    for (const auto &[line, expected] : certain) {
        EXPECT_EQ(found[line], expected ? 1U : 0U) << line;
    }
    for (const auto &[line, count] : found) {
        if (line != "INFO onIoDeviceControl, ioctl code = " + std::to_string(IOCTL_RELOAD_LOG_SETTINGS)) {
            EXPECT_LE(count, 1U) << line;
        }
    }
}

} // namespace
} // namespace races
