#include "kernel_fixture.h"

#include <vector>

namespace sim::test {

namespace {

using TimeTest = KernelTest;

constexpr std::int64_t second = 10'000'000;
constexpr std::int64_t from1601To1970 = 11'644'473'600 * second;

TIME_FIELDS fieldsOf(std::int64_t time) {
    LARGE_INTEGER value;
    value.QuadPart = time;
    TIME_FIELDS fields{};
    RtlTimeToTimeFields(&value, &fields);
    return fields;
}

TEST_F(TimeTest, clockStandsStillUntilMoved) {
    LARGE_INTEGER first;
    LARGE_INTEGER later;
    KeQuerySystemTimePrecise(&first);
    KeQuerySystemTimePrecise(&later);
    EXPECT_EQ(first.QuadPart, later.QuadPart);
    kernel.clock.advance(5 * second);
    KeQuerySystemTimePrecise(&later);
    EXPECT_EQ(later.QuadPart, first.QuadPart + 5 * second);
}

TEST_F(TimeTest, localTimeIsUtcMinusBias) {
    kernel.clock.setBias(-2 * 3600 * second);
    LARGE_INTEGER utc;
    LARGE_INTEGER local;
    KeQuerySystemTimePrecise(&utc);
    ExSystemTimeToLocalTime(&utc, &local);
    EXPECT_EQ(local.QuadPart, utc.QuadPart + 2 * 3600 * second);
}

TEST_F(TimeTest, fieldsOfTheFirstDay) {
    const TIME_FIELDS fields = fieldsOf(0);
    EXPECT_EQ(fields.Year, 1601);
    EXPECT_EQ(fields.Month, 1);
    EXPECT_EQ(fields.Day, 1);
    EXPECT_EQ(fields.Weekday, 1); // a Monday
}

TEST_F(TimeTest, fieldsOfALeapDay) {
    const TIME_FIELDS fields = fieldsOf(from1601To1970 + 951'868'799 * second + 9'999'999);
    EXPECT_EQ(fields.Year, 2000);
    EXPECT_EQ(fields.Month, 2);
    EXPECT_EQ(fields.Day, 29);
    EXPECT_EQ(fields.Hour, 23);
    EXPECT_EQ(fields.Minute, 59);
    EXPECT_EQ(fields.Second, 59);
    EXPECT_EQ(fields.Milliseconds, 999); // truncated
    EXPECT_EQ(fields.Weekday, 2);
}

TEST_F(TimeTest, negativeTimeStops) {
    EXPECT_EQ(stoppedBy([] { fieldsOf(-1); }), "time");
}

TEST_F(TimeTest, secondsSince1970HaveARange) {
    const auto seconds = [](std::int64_t time, ULONG &result) {
        LARGE_INTEGER value;
        value.QuadPart = time;
        return RtlTimeToSecondsSince1970(&value, &result) != FALSE;
    };
    ULONG result = 77;
    EXPECT_FALSE(seconds(from1601To1970 - 1, result));
    EXPECT_FALSE(seconds(from1601To1970 + 0x100000000 * second, result));
    EXPECT_EQ(result, 77u);
    EXPECT_TRUE(seconds(from1601To1970, result));
    EXPECT_EQ(result, 0u);
    EXPECT_TRUE(seconds(from1601To1970 + 0xFFFFFFFF * second + second - 1, result));
    EXPECT_EQ(result, 0xFFFFFFFFu);
}

TEST_F(TimeTest, callsAreMadeWhenTheirTimeHasCome) {
    std::vector<int> calls;
    const std::int64_t now = kernel.clock.now();
    kernel.clock.callAt(now + 20, [&] { calls.push_back(2); });
    kernel.clock.callAt(now + 10, [&] { calls.push_back(1); });
    const auto cancelled = kernel.clock.callAt(now + 15, [&] { calls.push_back(3); });
    EXPECT_TRUE(kernel.clock.cancelCall(cancelled));
    EXPECT_FALSE(kernel.clock.cancelCall(cancelled));
    kernel.clock.advance(9);
    EXPECT_TRUE(calls.empty());
    kernel.clock.advance(11);
    EXPECT_EQ(calls, (std::vector<int>{1, 2}));
    EXPECT_EQ(kernel.clock.callAt(now, [&] { calls.push_back(4); }), 0u);
    EXPECT_EQ(calls.back(), 4);
}

} // namespace

} // namespace sim::test
