#include "kernel_fixture.h"

#include <cstring>

#undef ExFreePool

namespace sim::test {

namespace {

constexpr ULONG tag = 'tseT';

using PoolTest = KernelTest;

PVOID allocate(SIZE_T bytes, POOL_FLAGS flags = POOL_FLAG_NON_PAGED) {
    return ExAllocatePool2(flags, bytes, tag);
}

TEST_F(PoolTest, memoryIsZeroedUnlessUninitialised) {
    auto *zeroed = static_cast<unsigned char *>(allocate(64));
    auto *fresh = static_cast<unsigned char *>(allocate(64, POOL_FLAG_PAGED | POOL_FLAG_UNINITIALIZED));
    EXPECT_EQ(std::count(zeroed, zeroed + 64, 0), 64);
    EXPECT_EQ(std::count(fresh, fresh + 64, 0), 0);
    ExFreePoolWithTag(zeroed, tag);
    ExFreePoolWithTag(fresh, tag);
    EXPECT_TRUE(kernel.pool.leaks().empty());
}

TEST_F(PoolTest, blocksAreAligned) {
    PVOID small = allocate(1);
    PVOID page = allocate(PAGE_SIZE);
    PVOID large = allocate(PAGE_SIZE + 1);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(small) % 16, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(page) % PAGE_SIZE, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(large) % PAGE_SIZE, 0u);
    for (PVOID block : {small, page, large}) {
        ExFreePool(block);
    }
}

TEST_F(PoolTest, tagZeroAndUnknownRequiredFlagsGiveNull) {
    EXPECT_EQ(ExAllocatePool2(POOL_FLAG_NON_PAGED, 8, 0), nullptr);
    EXPECT_EQ(allocate(8, POOL_FLAG_NON_PAGED | 0x10000), nullptr);
}

TEST_F(PoolTest, moreThanTheMachineHasGivesNull) {
    for (const SIZE_T bytes : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 15, SIZE_MAX - 4096, SIZE_MAX / 2, SIZE_T{1} << 40,
                               SIZE_T{1} << 31, (SIZE_T{1} << 30) + 1}) {
        EXPECT_EQ(allocate(bytes), nullptr) << bytes;
        EXPECT_EQ(allocate(bytes, POOL_FLAG_PAGED), nullptr) << bytes;
    }
    EXPECT_EQ(kernel.pool.bytesInUse(), 0u);
    PVOID block = allocate(1 << 20);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(allocate(SIZE_T{1} << 30), nullptr) << "what is in use counts";
    ExFreePoolWithTag(block, tag);
}

TEST_F(PoolTest, unknownOptionalFlagsAreIgnored) {
    PVOID block = allocate(8, POOL_FLAG_NON_PAGED | 0x8000000000000000ULL);
    ASSERT_NE(block, nullptr);
    ExFreePoolWithTag(block, tag);
}

TEST_F(PoolTest, zeroBytesAreRefused) {
    EXPECT_EQ(stoppedBy([] { allocate(0); }), "pool size");
}

TEST_F(PoolTest, exactlyOneKindMustBeNamed) {
    EXPECT_EQ(stoppedBy([] { allocate(8, 0); }), "pool kind");
    EXPECT_EQ(stoppedBy([] { allocate(8, POOL_FLAG_NON_PAGED | POOL_FLAG_PAGED); }), "pool kind");
}

TEST_F(PoolTest, wrongTagStops) {
    PVOID block = allocate(8);
    EXPECT_EQ(stoppedBy([&] { ExFreePoolWithTag(block, 'gnrW'); }), "pool tag");
    ExFreePoolWithTag(block, 0);
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

TEST_F(PoolTest, doubleFreeAndForeignAddressesStop) {
    PVOID block = allocate(8);
    ExFreePoolWithTag(block, tag);
    const std::string rule = stoppedBy([&] { ExFreePoolWithTag(block, tag); });
    EXPECT_TRUE(rule == "double free" || rule == "pool address") << rule;
    int local = 0;
    EXPECT_EQ(stoppedBy([&] { ExFreePoolWithTag(&local, tag); }), "pool address");
}

TEST_F(PoolTest, irqlLimitsDependOnTheKind) {
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [] { allocate(8, POOL_FLAG_PAGED); }), "irql");
    PVOID paged = allocate(8, POOL_FLAG_PAGED);
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { kernel.pool.checkAccess(paged, 8, "test", nullptr); }), "irql");
    EXPECT_EQ(stoppedAt(APC_LEVEL, [&] { ExFreePoolWithTag(paged, tag); }), "");
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [] { ExFreePoolWithTag(allocate(8), tag); }), "");
    EXPECT_EQ(stoppedAt(3, [] { allocate(8); }), "irql");
}

TEST_F(PoolTest, accessBehindTheBlockIsNoticed) {
    auto *block = static_cast<char *>(allocate(24));
    EXPECT_EQ(stoppedBy([&] { kernel.pool.checkAccess(block, 24, "test", nullptr); }), "");
    EXPECT_EQ(stoppedBy([&] { kernel.pool.checkAccess(block + 8, 17, "test", nullptr); }), "pool overrun");
    ExFreePoolWithTag(block, tag);
}

TEST_F(PoolTest, leaksNameTagSizeAndCallSite) {
    PVOID block = allocate(40, POOL_FLAG_PAGED);
    const auto leaks = kernel.leaks();
    ASSERT_EQ(leaks.size(), 1u);
    EXPECT_NE(leaks[0].find("paged pool"), std::string::npos) << leaks[0];
    EXPECT_NE(leaks[0].find("'Test'"), std::string::npos) << leaks[0];
    EXPECT_NE(leaks[0].find("40 bytes"), std::string::npos) << leaks[0];
    EXPECT_NE(leaks[0].find("!"), std::string::npos) << leaks[0];
    ExFreePoolWithTag(block, tag);
    EXPECT_TRUE(kernel.leaks().empty());
}

TEST_F(PoolTest, statisticsFollowTheBlocks) {
    PVOID first = allocate(100);
    PVOID second = allocate(50);
    EXPECT_EQ(kernel.pool.bytesInUse(), 150u);
    ExFreePoolWithTag(first, tag);
    EXPECT_EQ(kernel.pool.bytesInUse(), 50u);
    EXPECT_EQ(kernel.pool.peakBytes(), 150u);
    ExFreePoolWithTag(second, tag);
}

TEST_F(PoolTest, chosenAllocationFails) {
    kernel.faults.failNamed("ExAllocatePool2", 2, std::nullopt, false);
    kernel.faults.arm(true);
    PVOID first = allocate(8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(allocate(8), nullptr);
    PVOID third = allocate(8);
    EXPECT_NE(third, nullptr);
    ExFreePool(first);
    ExFreePool(third);
}

TEST_F(PoolTest, defaultBugCheckPrintsAndAborts) {
    setBugCheckHandler({});
    EXPECT_DEATH(bugCheck("some rule", "SomeRoutine", "what happened", nullptr),
                 "bug check \\[some rule\\] SomeRoutine: what happened");
}

} // namespace

} // namespace sim::test
