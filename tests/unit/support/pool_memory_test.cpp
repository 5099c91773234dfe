#include "support/pool_memory.h"

#include "tests/unit/fixture/kernel_test.h"

#include <cstring>

namespace unit {
namespace {

class OwnedPoolMemory : public KernelTest {
  protected:
    sim::Pool::Block blockOf(const PoolMemory &memory) { return kernel.pool.blockAt(memory.get()).value(); }
};

/// A tag as pool tools show it: first letter first in memory.
std::string shown(ULONG tag) {
    char letters[sizeof tag];
    std::memcpy(letters, &tag, sizeof tag);
    return {letters, sizeof tag};
}

TEST_F(OwnedPoolMemory, TagsReadAsPoolToolsShowThem) {
    EXPECT_EQ(shown(generalPoolTag), "C++n");
    EXPECT_EQ(shown(stringPoolTag), "US++");
    EXPECT_EQ(shown(tableEntryPoolTag), "GT++");
}

TEST_F(OwnedPoolMemory, IsZeroedAndOfTheSizeAndKindAskedFor) {
    const PoolMemory memory(POOL_FLAG_PAGED, 40);
    ASSERT_TRUE(memory);
    EXPECT_EQ(blockOf(memory).size, 40u);
    EXPECT_EQ(blockOf(memory).tag, generalPoolTag);
    EXPECT_TRUE(blockOf(memory).paged);
    const UCHAR zeros[40] = {};
    EXPECT_EQ(std::memcmp(memory.get(), zeros, sizeof zeros), 0);
}

TEST_F(OwnedPoolMemory, NoBytesBecomeOneByte) {
    const PoolMemory memory(POOL_FLAG_NON_PAGED, 0);
    ASSERT_TRUE(memory);
    EXPECT_EQ(blockOf(memory).size, 1u);
    EXPECT_FALSE(blockOf(memory).paged);
}

TEST_F(OwnedPoolMemory, IsEmptyWhenThePoolHasNone) {
    const bool empty =
        whileFailing("ExAllocatePool2", 1, [] { return !static_cast<bool>(PoolMemory(POOL_FLAG_PAGED, 8)); });
    EXPECT_TRUE(empty);
}

TEST_F(OwnedPoolMemory, IsFreedAtTheEndOfItsScope) {
    {
        const PoolMemory memory(POOL_FLAG_PAGED, 8);
        EXPECT_EQ(kernel.pool.blocksInUse(), 1u);
    }
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
}

TEST_F(OwnedPoolMemory, MovingHandsTheBlockOver) {
    PoolMemory first(POOL_FLAG_PAGED, 8);
    void *const block = first.get();
    PoolMemory second(std::move(first));
    EXPECT_EQ(second.get(), block);
    PoolMemory third(POOL_FLAG_PAGED, 16);
    third = std::move(second);
    EXPECT_EQ(third.get(), block);
}

} // namespace
} // namespace unit
