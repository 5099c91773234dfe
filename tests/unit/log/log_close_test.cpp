#include "log/log.h"

#include "tests/unit/fixture/log_writer_fixture.h"

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>

namespace unit {
namespace {

using testing::IsEmpty;

class LogClose : public LogWriterTest {};

TEST_F(LogClose, ClosesTheFile) {
    writeLine(u"text");
    closeLogger(*log);
    EXPECT_EQ(log->file, nullptr);
    EXPECT_EQ(logger, nullptr);
    EXPECT_EQ(isLogEnabled, 0);
    EXPECT_EQ(openLog(GENERIC_WRITE | DELETE, 0), STATUS_SUCCESS) << "nobody has it open any more";
    log.reset();
}

TEST_F(LogClose, WorksWithoutAFile) {
    closeLog();
    EXPECT_THAT(kernel.files.tempFiles(), IsEmpty());
}

TEST_F(LogClose, StatementsAfterwardsDoNothing) {
    closeLog();
    LOG_ERROR(L"too late");
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

TEST_F(LogClose, WorkersThatComeLaterDropTheirRecords) {
    writeLine(u"text");
    kernel.workers.pause();
    for (int line = 0; line < 3; ++line) {
        submitLine(u"too late");
    }
    closeLog(); // its memory is gone from here on
    kernel.workers.resume();
    settle();
    EXPECT_EQ(fileOf(startSecond), "text\r\n");
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

TEST_F(LogClose, LateWorkersAreHarmlessWithoutAFileToo) {
    kernel.workers.pause();
    submitLine(u"too late");
    closeLog();
    kernel.workers.resume();
    settle();
    EXPECT_THAT(kernel.files.tempFiles(), IsEmpty());
}

TEST_F(LogClose, LogCanBeOpenedAgain) {
    writeLine(u"first run");
    closeLog();
    nextSecond();
    log = std::make_unique<Logger>();
    openLogger(*log, driverObject);
    writeLine(u"second run");
    EXPECT_EQ(fileOf(startSecond), "first run\r\n");
    EXPECT_EQ(fileOf(startSecond + 1), "second run\r\n");
}

/// Stops the first worker while it writes its record: in the rotation behind the file it has just begun.
class LogCloseDuringWrite : public LogWriterTest {
  protected:
    LogCloseDuringWrite() {
        kernel.workers.setMode(sim::WorkQueue::Mode::free, 4);
        kernel.trace.setObserver([this](const sim::TraceEvent &event) {
            if (event.kind == sim::TraceEvent::Kind::tableInsert) {
                std::call_once(stopped, [this] {
                    writing.set_value();
                    mayGoOn.get_future().wait();
                });
            }
        });
        submitLine(u"being written");
        const bool began = writing.get_future().wait_for(longEnough) == std::future_status::ready;
        EXPECT_TRUE(began) << "nothing is listed after a new file";
    }
    ~LogCloseDuringWrite() override { kernel.trace.setObserver({}); }

    /// Queues a line and waits until a worker has it so far that only the log itself is missing.
    void submitLineThatWaits(std::u16string_view text) {
        kernel.faults.clear();
        kernel.faults.arm(true); // counts without failing anything
        submitLine(text);
        while (kernel.faults.callsSeen(sim::FaultThread::worker) == 0) { // it makes room for the UTF-8 text
            std::this_thread::yield();
        }
        kernel.faults.arm(false);
        for (int times = 0; times < 1000; ++times) {
            std::this_thread::yield(); // likely enough to reach the lock; the outcome is the same if not
        }
    }
    /// Closes the log while the record is held up, and lets it go on as soon as the closing has begun.
    void closeMeanwhile() {
        std::atomic<bool> closed = false;
        std::thread closer([&] {
            closeLog();
            closed = true;
        });
        while (!isLoggerClosing()) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(closed);
        mayGoOn.set_value();
        closer.join();
    }

    static constexpr std::chrono::minutes longEnough{1};
    std::once_flag stopped;
    std::promise<void> writing;
    std::promise<void> mayGoOn;
};

TEST_F(LogCloseDuringWrite, WaitsForTheRecordBeingWrittenAndForNoOther) {
    submitLineThatWaits(u"waits for the lock");
    submitLineThatWaits(u"waits for the lock too");
    closeMeanwhile();
    settle();
    EXPECT_EQ(fileOf(startSecond), "being written\r\n");
}

TEST_F(LogCloseDuringWrite, DoesNotWaitForRecordsThatNoWorkerHasTaken) {
    kernel.workers.pause();
    submitLine(u"too late");
    closeMeanwhile(); // the other worker is still held back
    kernel.workers.resume();
    settle();
    EXPECT_EQ(fileOf(startSecond), "being written\r\n");
}

} // namespace
} // namespace unit
