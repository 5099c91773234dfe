#include "control/blocked_device_register.h"

#include "support/pool_memory.h"
#include "tests/unit/fixture/log_test.h"

#include <thread>

namespace unit {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;
using testing::IsEmpty;

/// A register and what lies in it: a lock, then the head of a list whose entries hold their ids behind their links.
class BlockedDevices : public LogTest {
  protected:
    BlockedDevices() {
        static_assert(sizeof(BlockedDeviceRegister) == sizeof(ERESOURCE) + sizeof(LIST_ENTRY));
        setLogLevel(0);
        blocked.initialize();
    }
    ~BlockedDevices() override {
        kernel.faults.arm(false);
        blocked.destroy();
    }

    NTSTATUS add(const std::u16string &ids) { return blocked.add(device, Text(ids)); }
    bool contains(const std::u16string &ids) { return blocked.contains(Text(ids)); }
    void remove(const std::u16string &ids) { blocked.remove(Text(ids)); }

    ERESOURCE *lock() { return reinterpret_cast<ERESOURCE *>(&blocked); }
    LIST_ENTRY *head() { return reinterpret_cast<LIST_ENTRY *>(lock() + 1); }
    static KString &idsOf(LIST_ENTRY *links) { return *reinterpret_cast<KString *>(links + 1); }
    std::vector<std::string> entries() {
        std::vector<std::string> all;
        for (LIST_ENTRY *links = head()->Flink; links != head(); links = links->Flink) {
            all.push_back(utf8(idsOf(links)));
        }
        return all;
    }

    PDEVICE_OBJECT device = reinterpret_cast<PDEVICE_OBJECT>(0xFFFF800012345670);
    BlockedDeviceRegister blocked;
};

TEST_F(BlockedDevices, AreEmptyAtFirst) {
    EXPECT_THAT(entries(), IsEmpty());
    EXPECT_FALSE(contains(u"USB\\A"));
    EXPECT_FALSE(contains(u""));
}

TEST_F(BlockedDevices, AreAppendedInOrder) {
    add(u"C");
    add(u"A");
    add(u"B");
    EXPECT_THAT(entries(), ElementsAre("C", "A", "B"));
}

TEST_F(BlockedDevices, KeepTheWholeListOfIds) {
    const std::u16string ids = multiSz({u"USB\\VID_1&REV_1", u"USB\\VID_1"});
    add(ids);
    EXPECT_TRUE(contains(ids));
    EXPECT_FALSE(contains(u"USB\\VID_1&REV_1")) << "the first id is not the whole list";
    EXPECT_FALSE(contains(u"USB\\VID_1"));
    EXPECT_FALSE(contains(ids + u'\0'));
}

TEST_F(BlockedDevices, AreFoundInAnyCase) {
    add(u"USB\\Vid_ab");
    EXPECT_TRUE(contains(u"usb\\vid_AB"));
}

TEST_F(BlockedDevices, MayBeThereTwiceAndOneRemovalTakesTheFirst) {
    add(u"A");
    add(u"B");
    add(u"a");
    remove(u"A");
    EXPECT_THAT(entries(), ElementsAre("B", "a"));
    EXPECT_TRUE(contains(u"A"));
    remove(u"A");
    EXPECT_THAT(entries(), ElementsAre("B"));
    EXPECT_FALSE(contains(u"A"));
}

TEST_F(BlockedDevices, RemovalOfWhatIsNotThereChangesNothing) {
    remove(u"A");
    add(u"A");
    remove(u"B");
    remove(u"");
    EXPECT_THAT(entries(), ElementsAre("A"));
}

TEST_F(BlockedDevices, RemovalIgnoresCase) {
    add(u"USB\\Vid_ab");
    remove(u"usb\\VID_AB");
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(BlockedDevices, EmptyIdsAreAnEntryToo) {
    EXPECT_EQ(add(u""), STATUS_SUCCESS);
    EXPECT_TRUE(contains(u""));
    remove(u"");
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(BlockedDevices, AreAllReleasedAtOnceAndTheRegisterGoesOn) {
    add(u"A");
    add(u"B");
    blocked.releaseAll();
    EXPECT_THAT(entries(), IsEmpty());
    EXPECT_EQ(kernel.pool.blocksInUse(), 0u);
    add(u"C");
    EXPECT_THAT(entries(), ElementsAre("C"));
}

TEST_F(BlockedDevices, EntriesAndIdsAreInPagedPoolUnderTheirTags) {
    add(u"USB\\A");
    const auto entry = kernel.pool.blockAt(head()->Flink).value();
    EXPECT_EQ(entry.tag, generalPoolTag);
    EXPECT_TRUE(entry.paged);
    const auto ids = kernel.pool.blockAt(idsOf(head()->Flink).buffer()).value();
    EXPECT_EQ(ids.tag, stringPoolTag);
    EXPECT_EQ(ids.size, 10u);
}

TEST_F(BlockedDevices, AddingWithoutMemoryAddsNothing) {
    add(u"A");
    failEachCall([&] { return add(u"B"); },
                 [&](NTSTATUS status, bool failed) {
                     EXPECT_EQ(status, failed ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS);
                     EXPECT_EQ(entries().size(), failed ? 1u : 2u);
                     EXPECT_EQ(kernel.pool.blocksInUse(), failed ? 2u : 4u);
                     EXPECT_EQ(sim::currentThread().resourcesHeld, 0u);
                 });
}

class BlockedDevicesLog : public BlockedDevices {
  protected:
    BlockedDevicesLog() { setLogLevel(static_cast<LONG>(LogLevel::info)); }
};

TEST_F(BlockedDevicesLog, TellsWhatIsDone) {
    add(multiSz({u"USB\\A", u"USB\\B"}));
    EXPECT_FALSE(contains(u"USB\\A"));
    remove(u"usb\\a");
    blocked.releaseAll();
    EXPECT_THAT(takeLines(), ElementsAre("INFO Add blocked device, device object = 0xffff800012345670, "
                                         "hardwareIds = USB\\A\0USB\\B"s,
                                         "INFO Remove blocked device, hardwareIds = usb\\a",
                                         "INFO Release blocked devices resources"));
}

TEST_F(BlockedDevicesLog, TellsWhatFailed) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    for (const std::uint64_t allocation : {1u, 2u}) {
        kernel.workers.pause();
        whileFailing("ExAllocatePool2", allocation, [&] { return add(u"A"); });
        kernel.workers.resume();
    }
    EXPECT_THAT(takeLines(), ElementsAre("ERROR Failed to allocate blocked device",
                                         "ERROR Failed to hardware id init, status = 0xc000009a"));
}

class BlockedDevicesFromSeveralThreads : public BlockedDevices {};

TEST_F(BlockedDevicesFromSeveralThreads, LoseNothing) {
    std::vector<std::thread> threads;
    for (char16_t letter : {u'a', u'b', u'c', u'd'}) {
        threads.emplace_back([this, letter] {
            const std::u16string ids(8, letter);
            for (int times = 0; times < 100; ++times) {
                add(ids);
                EXPECT_TRUE(contains(ids));
                if (times % 2 == 0) {
                    remove(ids);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(entries().size(), 200u);
}

/// A broken list must stop the system before it is followed.
class CorruptBlockedDevicesDeathTest : public BlockedDevices {
  protected:
    CorruptBlockedDevicesDeathTest() {
        add(u"A");
        add(u"B");
        add(u"C");
    }
    LIST_ENTRY *first() { return head()->Flink; }
    LIST_ENTRY *second() { return first()->Flink; }
    LIST_ENTRY *third() { return second()->Flink; }

    static constexpr const char *fastFail = "fast fail.*code 3 ";
};

TEST_F(CorruptBlockedDevicesDeathTest, ForwardLinkOfThePreviousEntry) {
    EXPECT_DEATH(
        {
            const LIST_ENTRY *entry = second();
            first()->Flink = third();
            head()->Flink = const_cast<LIST_ENTRY *>(entry);
            remove(u"B");
        },
        fastFail);
}

TEST_F(CorruptBlockedDevicesDeathTest, BackLinkOfTheNextEntry) {
    EXPECT_DEATH(
        {
            third()->Blink = first();
            remove(u"B");
        },
        fastFail);
}

TEST_F(CorruptBlockedDevicesDeathTest, WhileReleasingAll) {
    EXPECT_DEATH(
        {
            second()->Blink = second();
            blocked.releaseAll();
        },
        fastFail);
}

TEST_F(CorruptBlockedDevicesDeathTest, WhileAppending) {
    EXPECT_DEATH(
        {
            third()->Flink = first();
            add(u"D");
        },
        fastFail);
}

} // namespace
} // namespace unit
