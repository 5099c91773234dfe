// Workers that come late: records wait in the queue while the driver goes on, or unloads.

#include "tests/races/support/race_test.h"

#include <dlfcn.h>

#include <thread>

namespace races {
namespace {

constexpr std::uint32_t linesEach = 60;

/// One worker takes the records in order, unless a test lets several run.
class LateWorkers : public RaceTest {
  protected:
    LateWorkers() { workers().setMode(sim::WorkQueue::Mode::ordered); }

    sim::WorkQueue &workers() { return kernel().workers; }
    /// Eight threads queue records that nobody takes yet.
    void fillQueue() {
        workers().pause();
        together([&](unsigned thread) {
            for (std::uint32_t nth = 0; nth < linesEach; ++nth) {
                logNumbered(numberOf(thread, nth));
            }
        });
        EXPECT_EQ(workers().pending(), threadCount * linesEach);
    }
    static bool imageIsMapped() {
        void *handle = dlopen(sim::defaultDriver().c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr) {
            dlclose(handle);
        }
        return handle != nullptr;
    }
    /// Of each thread, its first lines in their order and none of the later ones, whole and once.
    void expectFirstLinesOfEachThread() {
        auto found = countLines("INFO onIoDeviceControl");
        std::size_t inOrder = 0;
        for (unsigned thread = 0; thread < threadCount; ++thread) {
            for (std::uint32_t nth = 0; nth < linesEach && found[numberedLine(numberOf(thread, nth))] == 1; ++nth) {
                ++inOrder;
            }
        }
        std::erase_if(found, [](const auto &line) { return line.second == 0; });
        EXPECT_EQ(found.size(), inOrder) << "a line is there more than once, or one before it is not";
    }
};

TEST_F(LateWorkers, WriteEverythingOnceTheyCome) {
    start();
    fillQueue();
    EXPECT_THAT(countLines("INFO onIoDeviceControl"), testing::IsEmpty());
    workers().resume();
    workers().drain();
    expectNumberedLines(threadCount, linesEach);
}

TEST_F(LateWorkers, WriteEverythingOnceWhenSeveralComeAtOnce) {
    start();
    fillQueue();
    workers().setMode(sim::WorkQueue::Mode::free, threadCount);
    workers().resume();
    workers().drain();
    expectNumberedLines(threadCount, linesEach);
}

TEST_F(LateWorkers, ThatComeAfterTheUnloadDropTheirRecordsInAnImageThatIsStillThere) {
    start();
    fillQueue();
    const std::vector<std::string> before = lines();
    unload();
    EXPECT_FALSE(machine().driverLoaded());
    EXPECT_GE(workers().pending(), threadCount * linesEach) << "the unload logs lines too";
    EXPECT_TRUE(imageIsMapped());
    workers().setMode(sim::WorkQueue::Mode::free, threadCount);
    workers().resume();
    workers().drain();
    machine().settle();
    EXPECT_FALSE(imageIsMapped());
    EXPECT_EQ(lines(), before);
    EXPECT_THAT(machine().leaks(), testing::IsEmpty());
}

TEST_F(LateWorkers, ThatMeetTheUnloadWriteWhatComesBeforeTheEndOfTheLog) {
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        machine().presetClassFilters();
        start();
        kernel().clock.advance(10'000'000); // a log file of its own
        fillQueue();
        std::thread releaser([&] {
            for (int times = 0; times < round * 400; ++times) {
                std::this_thread::yield();
            }
            workers().resume();
        });
        unload();
        releaser.join();
        workers().drain();
        machine().settle();
        EXPECT_FALSE(imageIsMapped());
        expectFirstLinesOfEachThread();
        EXPECT_THAT(machine().leaks(), testing::IsEmpty());
        for (const std::string &name : kernel().files.tempFiles()) {
            kernel().files.putTempFile(name, "");
        }
    }
}

TEST_F(LateWorkers, SeveralThatMeetTheUnloadWriteEachLineWholeAndOnce) {
    workers().setMode(sim::WorkQueue::Mode::free, threadCount);
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        machine().presetClassFilters();
        start();
        unload(); // logs a line or two for each class, the last of which meet the end of the log
        workers().drain();
        machine().settle();
        EXPECT_FALSE(imageIsMapped());
        for (const auto &[line, count] : countLines("INFO RegistryUpdater removeRegistryMultiString")) {
            EXPECT_EQ(count, 1U) << line;
        }
        EXPECT_THAT(machine().leaks(), testing::IsEmpty());
        kernel().clock.advance(10'000'000);
        for (const std::string &name : kernel().files.tempFiles()) {
            kernel().files.putTempFile(name, "");
        }
    }
}

} // namespace
} // namespace races
