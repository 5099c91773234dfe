#include "kernel_fixture.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <set>
#include <vector>

namespace sim::test {

namespace {

struct Element {
    int key;
    int payload;
};

/// What the table's routines saw.
struct Log {
    std::vector<PVOID> allocated;
    std::vector<PVOID> freed;
    CLONG lastSize = 0;
    bool failAllocation = false;
    const void *lastFirst = nullptr;
    const void *lastSecond = nullptr;
};

Log *logOf(PRTL_AVL_TABLE table) {
    return static_cast<Log *>(table->TableContext);
}

RTL_GENERIC_COMPARE_RESULTS compare(PRTL_AVL_TABLE table, PVOID first, PVOID second) {
    logOf(table)->lastFirst = first;
    logOf(table)->lastSecond = second;
    const int a = static_cast<Element *>(first)->key;
    const int b = static_cast<Element *>(second)->key;
    return a < b ? GenericLessThan : a > b ? GenericGreaterThan : GenericEqual;
}

PVOID allocate(PRTL_AVL_TABLE table, CLONG bytes) {
    if (logOf(table)->failAllocation) {
        return nullptr;
    }
    logOf(table)->lastSize = bytes;
    PVOID memory = ExAllocatePool2(POOL_FLAG_PAGED, bytes, 'tseT');
    logOf(table)->allocated.push_back(memory);
    return memory;
}

VOID release(PRTL_AVL_TABLE table, PVOID buffer) {
    logOf(table)->freed.push_back(buffer);
    ExFreePoolWithTag(buffer, 'tseT');
}

class GenericTablesTest : public KernelTest {
  protected:
    GenericTablesTest() { RtlInitializeGenericTableAvl(&table, compare, allocate, release, &log); }
    ~GenericTablesTest() override {
        PVOID key = nullptr;
        while (PVOID element = RtlEnumerateGenericTableWithoutSplayingAvl(&table, &key)) {
            RtlDeleteElementGenericTableAvl(&table, element);
            key = nullptr;
        }
    }

    Element *insert(int key, int payload = 0, BOOLEAN *isNew = nullptr) {
        Element element{key, payload};
        return static_cast<Element *>(RtlInsertElementGenericTableAvl(&table, &element, sizeof element, isNew));
    }
    bool remove(int key) {
        Element element{key, 0};
        return RtlDeleteElementGenericTableAvl(&table, &element) != FALSE;
    }
    Element *lookup(int key) {
        Element element{key, 0};
        return static_cast<Element *>(RtlLookupElementGenericTableAvl(&table, &element));
    }
    std::vector<int> keysByEnumeration() {
        std::vector<int> keys;
        PVOID restart = nullptr;
        while (auto *element = static_cast<Element *>(RtlEnumerateGenericTableWithoutSplayingAvl(&table, &restart))) {
            keys.push_back(element->key);
        }
        return keys;
    }

    /// Height of a subtree; fails the test where parents, balances or order are wrong.
    int checkSubtree(PRTL_BALANCED_LINKS node, PRTL_BALANCED_LINKS parent) {
        if (node == nullptr) {
            return 0;
        }
        EXPECT_EQ(node->Parent, parent);
        const int left = checkSubtree(node->LeftChild, node);
        const int right = checkSubtree(node->RightChild, node);
        EXPECT_EQ(node->Balance, right - left);
        EXPECT_LE(std::abs(right - left), 1);
        return std::max(left, right) + 1;
    }
    void checkTree() {
        EXPECT_EQ(checkSubtree(table.BalancedRoot.RightChild, &table.BalancedRoot),
                  static_cast<int>(table.DepthOfTree));
    }

    Log log;
    RTL_AVL_TABLE table;
};

TEST_F(GenericTablesTest, insertAsksForTheHeaderToo) {
    BOOLEAN isNew = FALSE;
    Element *stored = insert(5, 50, &isNew);
    EXPECT_EQ(log.lastSize, sizeof(Element) + 0x20);
    EXPECT_EQ(isNew, TRUE);
    EXPECT_EQ(reinterpret_cast<char *>(stored), static_cast<char *>(log.allocated[0]) + 0x20);
    EXPECT_EQ(stored->payload, 50);
}

TEST_F(GenericTablesTest, insertOfAnEqualKeyReturnsTheOldElement) {
    Element *stored = insert(5, 50);
    BOOLEAN isNew = TRUE;
    EXPECT_EQ(insert(5, 51, &isNew), stored);
    EXPECT_EQ(isNew, FALSE);
    EXPECT_EQ(stored->payload, 50);
    EXPECT_EQ(log.allocated.size(), 1u);
}

TEST_F(GenericTablesTest, failedAllocationLeavesTheTableAlone) {
    insert(1);
    log.failAllocation = true;
    BOOLEAN isNew = TRUE;
    EXPECT_EQ(insert(2, 0, &isNew), nullptr);
    EXPECT_EQ(isNew, FALSE);
    EXPECT_EQ(RtlNumberGenericTableElementsAvl(&table), 1u);
}

TEST_F(GenericTablesTest, compareGetsTheCallersBufferFirst) {
    Element *stored = insert(5);
    Element wanted{5, 0};
    EXPECT_EQ(RtlLookupElementGenericTableAvl(&table, &wanted), stored);
    EXPECT_EQ(log.lastFirst, &wanted);
    EXPECT_EQ(log.lastSecond, stored);
}

TEST_F(GenericTablesTest, freeGetsTheHeader) {
    insert(5);
    EXPECT_TRUE(remove(5));
    ASSERT_EQ(log.freed.size(), 1u);
    EXPECT_EQ(log.freed[0], log.allocated[0]);
    EXPECT_FALSE(remove(5));
}

TEST_F(GenericTablesTest, elementsAreCountedInKeyOrder) {
    for (const int key : {30, 10, 20}) {
        insert(key);
    }
    EXPECT_EQ(static_cast<Element *>(RtlGetElementGenericTableAvl(&table, 0))->key, 10);
    EXPECT_EQ(static_cast<Element *>(RtlGetElementGenericTableAvl(&table, 2))->key, 30);
    EXPECT_EQ(static_cast<Element *>(RtlGetElementGenericTableAvl(&table, 1))->key, 20);
    EXPECT_EQ(RtlGetElementGenericTableAvl(&table, 3), nullptr);
    remove(10);
    EXPECT_EQ(static_cast<Element *>(RtlGetElementGenericTableAvl(&table, 0))->key, 20);
}

TEST_F(GenericTablesTest, enumerationKeyIsTheHeader) {
    insert(2);
    insert(1);
    PVOID key = nullptr;
    auto *first = static_cast<Element *>(RtlEnumerateGenericTableWithoutSplayingAvl(&table, &key));
    EXPECT_EQ(first->key, 1);
    EXPECT_EQ(static_cast<char *>(key) + 0x20, reinterpret_cast<char *>(first));
    RtlEnumerateGenericTableWithoutSplayingAvl(&table, &key);
    PVOID last = key;
    EXPECT_EQ(RtlEnumerateGenericTableWithoutSplayingAvl(&table, &key), nullptr);
    EXPECT_EQ(key, last);
}

TEST_F(GenericTablesTest, enumerationKeptInTheTableSurvivesDeletion) {
    for (int key = 0; key < 6; ++key) {
        insert(key);
    }
    std::vector<int> seen;
    for (PVOID element = RtlEnumerateGenericTableAvl(&table, TRUE); element != nullptr;
         element = RtlEnumerateGenericTableAvl(&table, FALSE)) {
        const int key = static_cast<Element *>(element)->key;
        seen.push_back(key);
        if (key % 2 == 1) {
            remove(key);
        }
    }
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST_F(GenericTablesTest, emptyTable) {
    PVOID key = nullptr;
    EXPECT_TRUE(RtlIsGenericTableEmptyAvl(&table));
    EXPECT_EQ(RtlEnumerateGenericTableWithoutSplayingAvl(&table, &key), nullptr);
    EXPECT_EQ(RtlGetElementGenericTableAvl(&table, 0), nullptr);
    EXPECT_EQ(lookup(1), nullptr);
}

TEST_F(GenericTablesTest, fullLookupFeedsFullInsert) {
    insert(5);
    Element element{3, 33};
    PVOID parent = nullptr;
    TABLE_SEARCH_RESULT result = TableFoundNode;
    EXPECT_EQ(RtlLookupElementGenericTableFullAvl(&table, &element, &parent, &result), nullptr);
    EXPECT_EQ(result, TableInsertAsLeft);
    BOOLEAN isNew = FALSE;
    RtlInsertElementGenericTableFullAvl(&table, &element, sizeof element, &isNew, parent, result);
    EXPECT_TRUE(isNew);
    EXPECT_EQ(keysByEnumeration(), (std::vector<int>{3, 5}));
}

TEST_F(GenericTablesTest, randomInsertsAndDeletesKeepOrderAndBalance) {
    std::mt19937 random(1);
    std::set<int> model;
    for (int round = 0; round < 3000; ++round) {
        const int key = static_cast<int>(random() % 300);
        if (random() % 2 == 0) {
            BOOLEAN isNew = FALSE;
            insert(key, 0, &isNew);
            EXPECT_EQ(isNew != FALSE, model.insert(key).second);
        } else {
            EXPECT_EQ(remove(key), model.erase(key) == 1);
        }
        if (round % 50 == 0) {
            checkTree();
            EXPECT_EQ(keysByEnumeration(), std::vector<int>(model.begin(), model.end()));
            ASSERT_EQ(RtlNumberGenericTableElementsAvl(&table), model.size());
            ULONG index = 0;
            for (const int wanted : model) {
                EXPECT_EQ(static_cast<Element *>(RtlGetElementGenericTableAvl(&table, index++))->key, wanted);
            }
        }
    }
}

TEST_F(GenericTablesTest, walkingBackByIndex) {
    for (int key = 0; key < 40; ++key) {
        insert(key);
    }
    for (int index = 39; index >= 0; --index) {
        EXPECT_EQ(static_cast<Element *>(RtlGetElementGenericTableAvl(&table, static_cast<ULONG>(index)))->key, index);
    }
}

TEST_F(GenericTablesTest, pagedTableAtDispatchLevelStops) {
    auto *paged = static_cast<PRTL_AVL_TABLE>(ExAllocatePool2(POOL_FLAG_PAGED, sizeof(RTL_AVL_TABLE), 'tseT'));
    RtlInitializeGenericTableAvl(paged, compare, allocate, release, &log);
    EXPECT_EQ(stoppedAt(DISPATCH_LEVEL, [&] { RtlIsGenericTableEmptyAvl(paged); }), "irql");
    ExFreePoolWithTag(paged, 'tseT');
}

TEST_F(GenericTablesTest, uninitialisedOrCopiedTableStops) {
    RTL_AVL_TABLE copy = table;
    EXPECT_EQ(stoppedBy([&] { RtlIsGenericTableEmptyAvl(&copy); }), "generic table");
}

TEST_F(GenericTablesTest, traceTellsWhatWasFound) {
    std::vector<TraceEvent> events;
    kernel.trace.setObserver([&](const TraceEvent &event) { events.push_back(event); });
    Element *stored = insert(7);
    lookup(7);
    lookup(8);
    RtlGetElementGenericTableAvl(&table, 0);
    PVOID key = nullptr;
    while (RtlEnumerateGenericTableWithoutSplayingAvl(&table, &key) != nullptr) {
    }
    kernel.trace.setObserver({});
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[0].kind, TraceEvent::Kind::tableInsert);
    EXPECT_EQ(events[0].element, stored);
    EXPECT_EQ(events[1].kind, TraceEvent::Kind::tableLookup);
    EXPECT_EQ(events[1].element, stored);
    EXPECT_EQ(events[2].element, nullptr);
    EXPECT_EQ(events[3].kind, TraceEvent::Kind::tableElement);
    EXPECT_EQ(events[3].table, &table);
    EXPECT_EQ(events[4].kind, TraceEvent::Kind::tableElement);
    EXPECT_EQ(events[4].table, &table);
    EXPECT_EQ(events[4].element, stored);
}

} // namespace

} // namespace sim::test
