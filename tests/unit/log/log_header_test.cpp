#include "log/log_stream.h"

#include "support/pool_memory.h"
#include "tests/unit/fixture/log_test.h"

namespace unit {
namespace {

class LogHeader : public LogTest {
  protected:
    std::string headerAt(std::int64_t time, LogLevel level = LogLevel::info) {
        kernel.clock.set(time);
        const LogStream line(level);
        return utf8(line.counted());
    }

    static constexpr std::int64_t oneMinute = 600'000'000;
};

TEST_F(LogHeader, HourHasNoWidthAndEverythingElseBehindTheYearHas) {
    EXPECT_EQ(headerAt(systemTime(2024, 3, 7, 9, 5, 1, 42)), "2024-03-07 9:05:01.042 INFO ");
}

TEST_F(LogHeader, HourAfterMidnightIsASingleZero) {
    EXPECT_EQ(headerAt(systemTime(2025, 1, 1, 0, 5, 0, 7)), "2025-01-01 0:05:00.007 INFO ");
}

TEST_F(LogHeader, LargestFields) {
    EXPECT_EQ(headerAt(systemTime(2025, 12, 31, 23, 59, 59, 999)), "2025-12-31 23:59:59.999 INFO ");
}

TEST_F(LogHeader, LeapDay) {
    EXPECT_EQ(headerAt(systemTime(2024, 2, 29, 10, 0, 0, 100)), "2024-02-29 10:00:00.100 INFO ");
}

TEST_F(LogHeader, MillisecondsAreCutNotRounded) {
    EXPECT_EQ(headerAt(systemTime(2024, 3, 7, 9, 5, 1, 42) + 9'999), "2024-03-07 9:05:01.042 INFO ");
}

TEST_F(LogHeader, BeginningOfTime) {
    EXPECT_EQ(headerAt(0), "1601-01-01 0:00:00.000 INFO ");
}

TEST_F(LogHeader, YearHasNoWidth) {
    EXPECT_EQ(headerAt(systemTime(12024, 3, 7, 9, 5, 1, 42)), "12024-03-07 9:05:01.042 INFO ");
}

TEST_F(LogHeader, TimeIsLocal) {
    kernel.clock.setBias(-60 * oneMinute); // one hour east
    EXPECT_EQ(headerAt(systemTime(2024, 12, 31, 23, 30)), "2025-01-01 0:30:00.000 INFO ");
    kernel.clock.setBias(480 * oneMinute); // eight hours west
    EXPECT_EQ(headerAt(systemTime(2024, 3, 1, 7, 59)), "2024-02-29 23:59:00.000 INFO ");
}

TEST_F(LogHeader, BelongsToTheMomentAtWhichTheLineIsBegun) {
    kernel.clock.set(systemTime(2024, 3, 7, 9, 5, 1, 42));
    LogStream line(LogLevel::error);
    kernel.clock.set(systemTime(2024, 3, 7, 10));
    line.append(L"text");
    EXPECT_EQ(utf8(line.counted()), "2024-03-07 9:05:01.042 ERROR text");
}

TEST_F(LogHeader, LineIsBuiltInNonPagedMemoryWithOneAllocation) {
    const LogStream line(LogLevel::info);
    const auto block = kernel.pool.blockAt(line.text()).value();
    EXPECT_FALSE(block.paged);
    EXPECT_EQ(block.tag, generalPoolTag);
    EXPECT_EQ(block.size, 4096u);
    EXPECT_EQ(kernel.pool.blocksInUse(), 1u);
}

TEST_F(LogHeader, NumbersBehindItAreDecimalAndHaveNoWidth) {
    kernel.clock.set(systemTime(2024, 3, 7, 9, 5, 1, 42));
    LogStream line(LogLevel::info);
    line.appendUnsigned32(16);
    EXPECT_EQ(utf8(line.counted()), "2024-03-07 9:05:01.042 INFO 16");
}

TEST_F(LogHeader, EveryLevelHasItsName) {
    const std::pair<LONG, const char *> names[] = {{0, "NONE"},
                                                   {1, "FATAL"},
                                                   {2, "ERROR"},
                                                   {3, "WARN"},
                                                   {4, "INFO"},
                                                   {5, "DEBUG"},
                                                   {6, "VERB"},
                                                   {7, "UNKNOWN"},
                                                   {-1, "UNKNOWN"},
                                                   {100, "UNKNOWN"},
                                                   {0x7FFFFFFF, "UNKNOWN"}};
    for (const auto &[number, name] : names) {
        const auto level = static_cast<LogLevel>(number);
        const std::u16string_view levelName(reinterpret_cast<const char16_t *>(logLevelName(level)));
        EXPECT_EQ(sim::toUtf8(levelName), name);
        EXPECT_EQ(headerAt(systemTime(2024, 3, 7, 9, 5, 1, 42), level),
                  "2024-03-07 9:05:01.042 " + std::string(name) + " ");
    }
}

} // namespace
} // namespace unit
