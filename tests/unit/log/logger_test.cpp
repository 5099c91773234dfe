#include "log/logger.h"

#include "simulator/kernel/io.h"
#include "tests/unit/fixture/log_test.h"

#include <cstddef>

namespace unit {
namespace {

// Members stand in the order in which they are described, so that a memory dump can be read by the description.
static_assert(offsetof(Logger, ioObject) < offsetof(Logger, lock) && offsetof(Logger, lock) < offsetof(Logger, file) &&
              offsetof(Logger, file) < offsetof(Logger, written) &&
              offsetof(Logger, written) < offsetof(Logger, level) &&
              offsetof(Logger, level) < offsetof(Logger, sizeLimit) &&
              offsetof(Logger, sizeLimit) < offsetof(Logger, fileLimit) &&
              offsetof(Logger, fileLimit) < offsetof(Logger, extension) &&
              offsetof(Logger, extension) < offsetof(Logger, prefix) &&
              offsetof(Logger, prefix) < offsetof(Logger, directory) &&
              offsetof(Logger, directory) < offsetof(Logger, name));

class OpenedLogger : public KernelTest {
  protected:
    OpenedLogger() : driverObject(sim::createDriverObject(u"UnitTest")) { openLogger(opened, driverObject); }
    ~OpenedLogger() override {
        if (logger != nullptr) {
            closeLogger(opened);
        }
        sim::deleteDriverObject(driverObject);
    }

    PDRIVER_OBJECT driverObject;
    Logger opened{};
};

TEST_F(OpenedLogger, BelongsToTheDriverObject) {
    EXPECT_EQ(opened.ioObject, driverObject);
    EXPECT_EQ(logger, &opened);
}

TEST_F(OpenedLogger, HasNoFileYet) {
    EXPECT_EQ(opened.file, nullptr);
    EXPECT_EQ(opened.written, -1);
}

TEST_F(OpenedLogger, HasItsFixedSettings) {
    EXPECT_EQ(opened.sizeLimit, 10'485'760u);
    EXPECT_EQ(opened.fileLimit, 3u);
    EXPECT_EQ(utf8(opened.extension), "log");
    EXPECT_EQ(utf8(opened.prefix), "com.tarvenholt.myrtelhaven-");
    EXPECT_EQ(utf8(opened.directory), "\\SystemRoot\\Temp");
    EXPECT_EQ(utf8(opened.name), "driver");
}

TEST_F(OpenedLogger, IsSilentAtFirst) {
    EXPECT_EQ(opened.level, 0);
    EXPECT_EQ(isLogEnabled, 0);
    EXPECT_FALSE(isLogged(LogLevel::fatal));
}

TEST_F(OpenedLogger, IsFreeForOneWriterAtATime) {
    LARGE_INTEGER now{};
    EXPECT_EQ(KeWaitForSingleObject(&opened.lock, Executive, KernelMode, FALSE, &now), STATUS_SUCCESS);
    EXPECT_EQ(KeWaitForSingleObject(&opened.lock, Executive, KernelMode, FALSE, &now), STATUS_TIMEOUT);
    KeSetEvent(&opened.lock, IO_NO_INCREMENT, FALSE);
}

TEST_F(OpenedLogger, LevelCanBeChangedAtAnyTime) {
    enableLog();
    setLogLevel(4);
    EXPECT_TRUE(isLogged(LogLevel::info));
    EXPECT_FALSE(isLogged(LogLevel::debug));
    setLogLevel(2);
    EXPECT_FALSE(isLogged(LogLevel::info));
    EXPECT_TRUE(isLogged(LogLevel::error));
}

TEST_F(OpenedLogger, ClosingForgetsIt) {
    enableLog();
    closeLogger(opened);
    EXPECT_EQ(logger, nullptr);
    EXPECT_EQ(isLogEnabled, 0);
    EXPECT_EQ(opened.file, nullptr);
}

} // namespace
} // namespace unit
