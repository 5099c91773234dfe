// One registry value decides for every SD card.

#include "storage_test.h"

namespace behaviour {
namespace {

class SdCard : public StorageTest {
  protected:
    const std::vector<std::u16string> ids = idsWithin(sdCard(), "card");
    Lines createdCard() {
        return lines::all(diskAsked(ids, 12, true),
                          Lines{"INFO Create SdDiskFilterDevice, hardwareIds = " + lines::list(ids)});
    }
    Lines readRule(unsigned mode) {
        return lines::all(createdCard(),
                          Lines{"INFO Read sd rule from the registry, sd mode = " + std::to_string(mode)});
    }
    Lines allowedFor(const char *status) {
        return lines::all(
            createdCard(),
            Lines{std::string("ERROR Failed to read sd card rule. Sd card will be allow, status = 0x") + status});
    }
    Lines saying(const char *what) {
        return Lines{std::string("INFO ") + what + " device, hardwareIds = " + lines::list(ids)};
    }
    /// Plugs the card's disk below a reader that is there already.
    sim::DeviceNode &plugCard() {
        if (machine().find("slot") == nullptr) {
            sim::DeviceDescription reader = sdCard();
            part(reader, "slot").children.clear();
            plugBelowRoot(reader);
        }
        sim::DeviceDescription whole = sdCard();
        return plug(part(whole, "card"), machine().find("slot"));
    }
};

TEST_F(SdCard, IsAllowedWithoutTheValueAndTheLogSaysSo) {
    startWith();
    plugBelowRoot(sdCard());
    EXPECT_EQ(addOf("card").log, allowedFor("c0000034"));
    EXPECT_TRUE(addOf("card").attached);
    expectWritable("card");
}

TEST_F(SdCard, IsDisabledByMode1) {
    setParameter(u"SdCardMode", 1);
    startWith();
    plugBelowRoot(sdCard());
    EXPECT_EQ(addOf("card").log, lines::all(readRule(1), saying("Blocked")));
    EXPECT_EQ(addOf("card").returned, STATUS_SUCCESS);
    expectDisabled("card");
}

TEST_F(SdCard, IsReadOnlyByMode3) {
    setParameter(u"SdCardMode", 3);
    startWith();
    plugBelowRoot(sdCard());
    EXPECT_EQ(addOf("card").log, lines::all(readRule(3), Lines{"INFO Init queue"}, saying("Read-only")));
    expectReadOnly("card");
}

TEST_F(SdCard, IsAllowedByEveryOtherMode) {
    startWith();
    for (const std::uint32_t mode : {0U, 2U, 4U, 5U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(mode);
        setParameter(u"SdCardMode", mode);
        sim::DeviceNode &node = plugCard();
        EXPECT_EQ(addOf("card").log, lines::all(readRule(mode), saying("Allowed")));
        expectWritable("card");
        machine().unplug(node);
    }
}

TEST_F(SdCard, ValuesThatAreNoNumberAllowIt) {
    startWith();
    struct Case {
        std::uint32_t type;
        std::vector<std::uint8_t> data;
        const char *status;
    };
    const std::vector<Case> cases = {
        {REG_SZ, bytesOf(std::u16string_view(u"1\0", 2)), "c000000d"},
        {REG_SZ, bytesOf(std::u16string_view(u"3\0", 2)), "c000000d"},
        {REG_BINARY, {1, 0, 0, 0}, "c000000d"},
        {REG_DWORD, {1, 0, 0}, "c000000d"},
        {REG_DWORD, {1, 0, 0, 0, 0}, "c000000d"},
        {REG_MULTI_SZ, bytesOf(std::u16string_view(u"3\0\0", 3)), "c000000d"},
        {REG_MULTI_SZ, bytesOf(std::u16string_view(u"\0\0", 2)),
         "c000000d"}, // the query routine is shown one empty string
    };
    for (const Case &value : cases) {
        SCOPED_TRACE(testing::Message() << value.type << ' ' << value.data.size());
        setParameter(u"SdCardMode", value.type, value.data);
        sim::DeviceNode &node = plugCard();
        EXPECT_EQ(addOf("card").log, allowedFor(value.status));
        expectWritable("card");
        machine().unplug(node);
    }
}

TEST_F(SdCard, AnEmptyListIsReadWithoutAValueAndAllowsIt) {
    startWith();
    // The kernel's query calls nobody for a list of no strings, and says success: the mode stays 0.
    for (const std::size_t bytes : {0U, 2U}) {
        SCOPED_TRACE(bytes);
        setParameter(u"SdCardMode", REG_MULTI_SZ, std::vector<std::uint8_t>(bytes));
        sim::DeviceNode &node = plugCard();
        EXPECT_EQ(addOf("card").log, lines::all(readRule(0), saying("Allowed")));
        machine().unplug(node);
    }
}

TEST_F(SdCard, TheValueIsReadWhenACardArrives) {
    startWith();
    setParameter(u"SdCardMode", 2);
    sim::DeviceNode &first = plugCard();
    setParameter(u"SdCardMode", 3);
    expectWritable("card");
    machine().unplug(first);
    plugCard();
    expectReadOnly("card");
}

TEST_F(SdCard, NeitherRulesNorServiceAreAsked) {
    setParameter(u"CallbackMode", 1);
    setParameter(u"SdCardMode", 2);
    startWith(readOnly({u"*"}));
    plugBelowRoot(sdCard());
    expectWritable("card");
}

TEST_F(SdCard, WithoutAFrameworkDeviceDoesNotStart) {
    startWith();
    failInAdd("WdfDeviceCreate", 1, STATUS_NO_SUCH_DEVICE);
    plugBelowRoot(sdCard());
    // The add that failed is the first one, the reader's or the slot's, unless these are of no filtered class.
    expectCode31("card", STATUS_NO_SUCH_DEVICE);
    EXPECT_EQ(addOf("card").log,
              lines::all(createdCard(), Lines{"ERROR Failed to create device, status = 0xc000000e"}));
}

TEST_F(SdCard, WhoseQueueCannotBeCreatedDoesNotStart) {
    setParameter(u"SdCardMode", 3);
    startWith();
    failInAdd("WdfIoQueueCreate");
    plugBelowRoot(sdCard());
    expectCode31("card", STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(addOf("card").log, lines::all(readRule(3), Lines{"INFO Init queue", "ERROR Failed to queue creating",
                                                               "ERROR Failed to init i/o queue, status = 0xc000009a"}));
}

TEST_F(SdCard, WhateverFailsACardIsNeverWritableUnderMode3) {
    setParameter(u"SdCardMode", 3);
    startWith();
    plugCard();
    machine().unplug(deviceNode("card"));
    failEachCallOfAdd([&] {
        sim::DeviceNode &node = plugCard();
        const Lines &log = addOf("card").log;
        const bool unreadable = testing::Matches(testing::Contains(testing::HasSubstr("Sd card will be allow")))(log);
        if (node.started() && !unreadable) {
            expectReadOnly("card");
        }
        machine().unplug(node);
    });
}

} // namespace
} // namespace behaviour
