#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/log_lines.h"
#include "tests/behaviour/support/service_message.h"

#include <cstring>

namespace behaviour {
namespace {

constexpr ULONG generalTag = 'n++C';
constexpr ULONG stringTag = '++SU';

/// The register of blocked devices as a device add meets it. Its entries come from a rescan; here they are put there by
/// hand, in the driver's own memory and layout.
class BlockedRegister : public DriverTest {
  protected:
    struct Entry {
        LIST_ENTRY links;
        UNICODE_STRING text;
        PWSTR owned;
        POOL_FLAGS poolFlags;
    };

    LIST_ENTRY &head() {
        return *reinterpret_cast<LIST_ENTRY *>(
            reinterpret_cast<std::uint8_t *>(&driverState(machine()).blockedDevices) + sizeof(ERESOURCE));
    }
    void enter(std::u16string ids) {
        auto *entry = static_cast<Entry *>(ExAllocatePool2(POOL_FLAG_PAGED, sizeof(Entry), generalTag));
        const auto bytes = static_cast<USHORT>(ids.size() * sizeof(char16_t));
        entry->owned = static_cast<PWSTR>(ExAllocatePool2(POOL_FLAG_PAGED, bytes, stringTag));
        std::memcpy(entry->owned, ids.data(), bytes);
        entry->text = {bytes, bytes, entry->owned};
        entry->poolFlags = POOL_FLAG_PAGED;
        InsertTailList(&head(), &entry->links);
    }
    static std::u16string joined(const std::vector<std::u16string> &ids) {
        std::u16string list = ids.front();
        for (std::size_t index = 1; index < ids.size(); ++index) {
            list += u'\0' + ids[index];
        }
        return list;
    }
    unsigned entries() {
        unsigned count = 0;
        for (PLIST_ENTRY links = head().Flink; links != &head(); links = links->Flink) {
            ++count;
        }
        return count;
    }
    const std::vector<std::u16string> ids = idsOf(vendorBoard());
};

static_assert(sizeof(KString) == 32);
static_assert(sizeof(BlockedDeviceRegister) == sizeof(ERESOURCE) + sizeof(LIST_ENTRY));

TEST_F(BlockedRegister, AHitIsConsumedWithoutANotification) {
    const Policy policy;
    apply(policy);
    start();
    enter(joined(ids));
    EXPECT_EQ(plug(vendorBoard()).problemCode(), 29U);
    EXPECT_EQ(entries(), 0U);
    EXPECT_EQ(addOf("board").log,
              lines::all(lines::created(ids), lines::searched({"\\Driver\\USBHUB3"}), lines::reload(policy),
                         lines::judged(policy, ids, u"", false), lines::blocked(ids), lines::removedFromRegister(ids)));
}

TEST_F(BlockedRegister, OnAHitTheMessageIsNotUpdated) {
    apply({});
    start();
    enter(joined(ids));
    plug(vendorBoard());
    const FilterValues &filter = filterOf("board");
    EXPECT_EQ(filter.mode, 1U);
    EXPECT_EQ(filter.ruleType, 3U);
    const MessageBytes message(filter.message);
    EXPECT_EQ(message.mode(), 0U);
    EXPECT_EQ(message.ruleType(), 0U);
    EXPECT_EQ(message.vendorId(), 0x04B4U);
    EXPECT_EQ(message.filterable(), 1U);
}

TEST_F(BlockedRegister, TheNextTimeTheServiceIsToldAgain) {
    apply({});
    start();
    enter(joined(ids));
    sim::DeviceNode &node = plug(vendorBoard());
    machine().replug(node);
    EXPECT_EQ(addOf("board").log.back(), lines::notified(1, 3, u"EZ-USB FX2").front());
}

TEST_F(BlockedRegister, IdsThatDifferInLetterCaseAlike) {
    apply({});
    start();
    std::u16string other = joined(ids);
    for (char16_t &unit : other) {
        unit = unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
    }
    enter(other);
    plug(vendorBoard());
    EXPECT_EQ(entries(), 0U);
    EXPECT_EQ(addOf("board").log.back(), lines::removedFromRegister(ids).front());
}

TEST_F(BlockedRegister, OfTwoEntriesAHitTakesOne) {
    apply({});
    start();
    enter(u"USB\\VID_FFFF");
    enter(joined(ids));
    enter(joined(ids));
    plug(vendorBoard());
    EXPECT_EQ(entries(), 2U);
}

TEST_F(BlockedRegister, OnlyTheWholeListIsAHit) {
    apply({});
    start();
    enter(ids.front());
    enter(joined(ids) + u'\0' + u"USB\\MORE");
    plug(vendorBoard());
    EXPECT_EQ(entries(), 2U);
    EXPECT_EQ(addOf("board").log.back(), lines::notified(1, 3, u"EZ-USB FX2").front());
}

TEST_F(BlockedRegister, ADeviceThatIsAllowedNowLeavesTheRegister) {
    apply(allowing({u"*"}));
    start();
    enter(joined(ids));
    EXPECT_TRUE(plug(vendorBoard()).started());
    EXPECT_EQ(entries(), 0U);
    EXPECT_EQ(addOf("board").log.back(), lines::notified(2, 2, u"EZ-USB FX2").front());
}

TEST_F(BlockedRegister, ADeviceThatIsBlockedForBeingReadOnlyLeavesItAndIsTold) {
    apply(readOnly({u"*"}));
    start();
    enter(joined(ids));
    EXPECT_EQ(plug(vendorBoard()).problemCode(), 29U);
    EXPECT_EQ(entries(), 0U);
    EXPECT_EQ(addOf("board").log.back(), lines::notified(1, 5, u"EZ-USB FX2").front());
}

TEST_F(BlockedRegister, APhoneThatCannotBeMadeReadOnlyLeavesIt) {
    apply(readOnly({u"*"}));
    start();
    enter(joined(idsOf(phone())));
    failInAdd("ZwSetSecurityObject");
    EXPECT_EQ(plug(phone()).problemCode(), 31U);
    EXPECT_EQ(entries(), 0U);
}

TEST_F(BlockedRegister, ADeviceThatIsNotFilterableStaysInIt) {
    apply({asText(u"Class_08"), {}, {}});
    start();
    enter(joined(ids));
    EXPECT_TRUE(plug(vendorBoard()).started());
    EXPECT_EQ(entries(), 1U);
}

TEST_F(BlockedRegister, WhatIsLeftGoesWithTheDriver) {
    start();
    enter(joined(ids));
    enter(u"USB\\VID_FFFF");
    unload();
    EXPECT_THAT(machine().leaks(), testing::IsEmpty());
}

} // namespace
} // namespace behaviour
