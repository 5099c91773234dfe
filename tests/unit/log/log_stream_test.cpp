#include "log/log_stream.h"

#include "support/pool_memory.h"
#include "support/text.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

using namespace std::string_literals;

class LogStreams : public KernelTest {
  protected:
    static std::string shown(const LogStream &stream) { return utf8(stream.counted()); }
    sim::Pool::Block blockOf(const LogStream &stream) { return kernel.pool.blockAt(stream.text()).value(); }

    static void appendBytes(LogStream &stream, std::size_t bytes) {
        const Text text(std::u16string(bytes / 2, u'x'));
        stream.append(text.buffer(), bytes);
    }

    LogStream stream{POOL_FLAG_PAGED};
};

TEST_F(LogStreams, StartsWithoutBuffer) {
    EXPECT_TRUE(stream.text() == nullptr);
    EXPECT_EQ(stream.length(), 0u);
    EXPECT_EQ(stream.capacity(), 0u);
    EXPECT_FALSE(stream.failed());
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

TEST_F(LogStreams, FirstAppendAllocates4096BytesForACapacityOf2048) {
    stream.append(L"a");
    EXPECT_EQ(stream.capacity(), 2048u);
    EXPECT_EQ(stream.length(), 2u);
    EXPECT_EQ(blockOf(stream).size, 4096u);
    EXPECT_EQ(blockOf(stream).tag, generalPoolTag);
}

TEST_F(LogStreams, BufferComesFromTheKindOfPoolAskedFor) {
    stream.append(L"a");
    EXPECT_TRUE(blockOf(stream).paged);
    LogStream nonPaged(POOL_FLAG_NON_PAGED);
    nonPaged.append(L"a");
    EXPECT_FALSE(blockOf(nonPaged).paged);
}

struct GrowthCase {
    std::size_t held;
    std::size_t appended;
    std::uint64_t capacity;
};

void PrintTo(const GrowthCase &growth, std::ostream *out) {
    *out << growth.appended << " bytes behind " << growth.held;
}

class LogStreamGrowth : public LogStreams, public testing::WithParamInterface<GrowthCase> {};

TEST_P(LogStreamGrowth, FollowsTheRule) {
    const GrowthCase &growth = GetParam();
    appendBytes(stream, growth.held);
    appendBytes(stream, growth.appended);
    EXPECT_EQ(stream.length(), growth.held + growth.appended);
    EXPECT_EQ(stream.capacity(), growth.capacity);
    EXPECT_EQ(blockOf(stream).size, growth.capacity * 2);
    EXPECT_EQ(kernel.pool.blocksInUse(), 1u) << "the old buffer is freed";
}

INSTANTIATE_TEST_SUITE_P(FirstAppend, LogStreamGrowth,
                         testing::Values(GrowthCase{0, 2, 2048}, GrowthCase{0, 2044, 2048},
                                         GrowthCase{0, 2046, (2046 + 1) * 2}, GrowthCase{0, 2048, (2048 + 1) * 2},
                                         GrowthCase{0, 3000, 6002}));
INSTANTIATE_TEST_SUITE_P(LaterAppend, LogStreamGrowth,
                         testing::Values(GrowthCase{2000, 46, 2048}, GrowthCase{2000, 48, (2048 + 48 + 1) * 2},
                                         GrowthCase{2, 3000, (2048 + 3000 + 1) * 2}, GrowthCase{3000, 3000, 6002},
                                         GrowthCase{3000, 3002, (6002 + 3002 + 1) * 2}));

TEST_F(LogStreams, GrowthKeepsTheTextAndEndsItWithZeros) {
    stream.append(L"begin ");
    appendBytes(stream, 3000);
    stream.append(L" end");
    EXPECT_EQ(shown(stream), "begin " + std::string(1500, 'x') + " end");
    for (std::uint64_t at = stream.length() / 2; at < stream.capacity() / 2; ++at) {
        ASSERT_EQ(stream.text()[at], L'\0') << at;
    }
}

TEST_F(LogStreams, TextThatFillsTheCapacityIsStillFollowedByANul) {
    appendBytes(stream, 2044);
    stream.append(L"y");
    EXPECT_EQ(stream.capacity(), 2048u);
    EXPECT_EQ(stream.length(), 2046u);
    EXPECT_EQ(stream.text()[1023], L'\0');
}

TEST_F(LogStreams, CountedStringsAreAppendedByTheirLength) {
    stream.append(Text(multiSz({u"one", u"two"})));
    UNICODE_STRING shorter = literal(L"threex");
    shorter.Length = 10;
    stream.append(shorter);
    EXPECT_EQ(shown(stream), "one\0twothree"s);
}

TEST_F(LogStreams, AppendsChain) {
    stream.append(L"a").append(literal(L"b")).append(L"cd", 2).appendUnsigned32(1).setHex().appendUnsigned32(255);
    EXPECT_EQ(shown(stream), "abc1ff");
}

TEST_F(LogStreams, NothingToAppendChangesNothing) {
    stream.append(nullptr, 10).append(L"x", 0).append(L"").append(UNICODE_STRING{});
    stream.append(static_cast<const WCHAR *>(nullptr));
    EXPECT_EQ(stream.length(), 0u);
    EXPECT_TRUE(stream.text() == nullptr);
    EXPECT_FALSE(stream.failed());
}

TEST_F(LogStreams, TextsBeyond64KiBAreHeldWhole) {
    for (int times = 0; times < 3; ++times) {
        appendBytes(stream, 60'000);
    }
    EXPECT_EQ(stream.length(), 180'000u);
    EXPECT_FALSE(stream.failed());
    EXPECT_EQ(stream.counted().Length, 65'534) << "a counted string can't say more";
}

TEST_F(LogStreams, WithoutMemoryTheFirstAppendLeavesAnEmptyDeadStream) {
    whileFailing("ExAllocatePool2", 1, [&] { return stream.append(L"lost").failed(); });
    EXPECT_TRUE(stream.failed());
    stream.append(L"more").appendUnsigned32(7);
    EXPECT_EQ(stream.length(), 0u);
    EXPECT_TRUE(stream.text() == nullptr);
}

TEST_F(LogStreams, WithoutMemoryForGrowthTheTextStaysAndNothingIsAddedAnyMore) {
    stream.append(L"kept");
    whileFailing("ExAllocatePool2", 1, [&] {
        appendBytes(stream, 3000);
        return true;
    });
    EXPECT_TRUE(stream.failed());
    stream.append(L"x");
    stream.setWidth(3).appendUnsigned32(1);
    EXPECT_EQ(shown(stream), "kept");
    EXPECT_EQ(stream.capacity(), 2048u);
}

TEST_F(LogStreams, EndOfScopeFreesTheText) {
    {
        LogStream inner(POOL_FLAG_PAGED);
        inner.append(L"text");
        EXPECT_EQ(kernel.pool.blocksInUse(), 1u);
    }
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

} // namespace
} // namespace unit
