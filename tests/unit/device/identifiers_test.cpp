#include "device/identifiers.h"

#include "support/text.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

/// The strings that a walk visits, and the position behind each.
struct Visit {
    std::string text;
    LONG positionAfter;
    bool operator==(const Visit &) const = default;
};

void PrintTo(const Visit &visit, std::ostream *out) {
    *out << '"' << visit.text << "\" then " << visit.positionAfter;
}

std::vector<Visit> walk(const UNICODE_STRING &list) {
    std::vector<Visit> visits;
    for (LONG position = 0; position >= 0;) {
        const UNICODE_STRING view = nextMultiSzString(list, position);
        visits.push_back({utf8(view), position});
    }
    return visits;
}

using testing::ElementsAre;

class MultiSzWalk : public KernelTest {};

TEST_F(MultiSzWalk, SingleEntryWithoutTrailingNulIsVisitedOnce) {
    EXPECT_THAT(walk(Text(u"USB\\A")), ElementsAre(Visit{"USB\\A", -1}));
}

TEST_F(MultiSzWalk, EntriesAreVisitedInOrderAndTheLastOneToo) {
    EXPECT_THAT(walk(Text(multiSz({u"one", u"two", u"three"}))),
                ElementsAre(Visit{"one", 4}, Visit{"two", 8}, Visit{"three", -1}));
}

TEST_F(MultiSzWalk, NulAtTheEndAddsAnEmptyEntry) {
    EXPECT_THAT(walk(Text(std::u16string_view(u"one\0", 4))), ElementsAre(Visit{"one", 4}, Visit{"", -1}));
}

TEST_F(MultiSzWalk, TwoNulsAtTheEndAddTwoEmptyEntries) {
    EXPECT_THAT(walk(Text(std::u16string_view(u"one\0\0", 5))),
                ElementsAre(Visit{"one", 4}, Visit{"", 5}, Visit{"", -1}));
}

TEST_F(MultiSzWalk, EmptyEntryInTheMiddleIsVisited) {
    EXPECT_THAT(walk(Text(multiSz({u"one", u"", u"two"}))),
                ElementsAre(Visit{"one", 4}, Visit{"", 5}, Visit{"two", -1}));
}

TEST_F(MultiSzWalk, EmptyListIsVisitedOnceWithNothing) {
    EXPECT_THAT(walk(UNICODE_STRING{}), ElementsAre(Visit{"", -1}));
}

TEST_F(MultiSzWalk, ListOfOneNulHasTwoEmptyEntries) {
    EXPECT_THAT(walk(Text(std::u16string_view(u"\0", 1))), ElementsAre(Visit{"", 1}, Visit{"", -1}));
}

TEST_F(MultiSzWalk, EmptyViewsHaveNoBuffer) {
    const Text list(std::u16string_view(u"\0", 1));
    LONG position = 0;
    EXPECT_TRUE(nextMultiSzString(list, position).Buffer == nullptr);
    EXPECT_TRUE(nextMultiSzString(list, position).Buffer == nullptr);
}

TEST_F(MultiSzWalk, ViewsPointIntoTheList) {
    const Text list(multiSz({u"one", u"two"}));
    LONG position = 4;
    const UNICODE_STRING view = nextMultiSzString(list, position);
    EXPECT_TRUE(view.Buffer == list.buffer() + 4);
    EXPECT_EQ(view.Length, 6);
}

TEST_F(MultiSzWalk, PositionBehindTheEndGivesNothing) {
    LONG position = 10;
    EXPECT_EQ(nextMultiSzString(Text(u"one"), position).Length, 0);
    EXPECT_EQ(position, -1);
}

TEST_F(MultiSzWalk, AnyOfStopsAtTheFirstYes) {
    int visited = 0;
    const bool found = anyOfMultiSz(Text(multiSz({u"a", u"b", u"c"})), [&](const UNICODE_STRING &entry) {
        ++visited;
        return utf8(entry) == "b";
    });
    EXPECT_TRUE(found);
    EXPECT_EQ(visited, 2);
}

TEST_F(MultiSzWalk, AnyOfIsFalseWithoutAYes) {
    EXPECT_FALSE(anyOfMultiSz(Text(multiSz({u"a", u"b"})), [](const UNICODE_STRING &) { return false; }));
}

struct StripCase {
    const char16_t *identifier;
    const char *stripped;
};

void PrintTo(const StripCase &strip, std::ostream *out) {
    *out << sim::toUtf8(strip.identifier);
}

class IdWithoutBus : public KernelTest, public testing::WithParamInterface<StripCase> {};

TEST_P(IdWithoutBus, IsWhatFollowsTheFirstBackslash) {
    EXPECT_EQ(utf8(idWithoutBus(Text(GetParam().identifier))), GetParam().stripped);
}

INSTANTIATE_TEST_SUITE_P(Identifiers, IdWithoutBus,
                         testing::Values(StripCase{u"USB\\Class_08", "Class_08"},
                                         StripCase{u"USB\\COMPOSITE", "COMPOSITE"},
                                         StripCase{u"USB\\VID_0781&PID_5567&REV_0100", "VID_0781&PID_5567&REV_0100"},
                                         StripCase{u"A\\B\\C", "B\\C"}, StripCase{u"A\\\\B", "\\B"},
                                         StripCase{u"A\\", ""}, StripCase{u"USB\\", ""}, StripCase{u"\\B", "\\B"},
                                         StripCase{u"\\", "\\"}, StripCase{u"\\A\\B", "\\A\\B"},
                                         StripCase{u"NOBUS", "NOBUS"}, StripCase{u"", ""}));

struct InterfaceCase {
    std::u16string_view hardwareIds;
    ULONG number;
};

void PrintTo(const InterfaceCase &interface, std::ostream *out) {
    *out << sim::toUtf8(interface.hardwareIds);
}

class InterfaceNumber : public KernelTest, public testing::WithParamInterface<InterfaceCase> {};

TEST_P(InterfaceNumber, IsReadFromTheEndOfTheFirstId) {
    EXPECT_EQ(getInterfaceNumber(Text(GetParam().hardwareIds)), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(Functions, InterfaceNumber,
                         testing::Values(InterfaceCase{u"USB\\VID_0781&PID_5581&MI_01", 1},
                                         InterfaceCase{u"USB\\VID_0781&PID_5581&MI_00", 0},
                                         InterfaceCase{u"USB\\VID_0781&PID_5581&MI_0A", 10},
                                         InterfaceCase{u"USB\\VID_0781&PID_5581&MI_0a", 10},
                                         InterfaceCase{u"USB\\VID_0781&PID_5581&MI_FF", 255},
                                         InterfaceCase{u"&MI_02", 2}, InterfaceCase{u"&MI_01&MI_03", 3}));
INSTANTIATE_TEST_SUITE_P(DigitsThatAreNone, InterfaceNumber,
                         testing::Values(InterfaceCase{u"USB\\VID_0781&MI_ZZ", 0}, InterfaceCase{u"USB\\X&MI_1Z", 1}));
INSTANTIATE_TEST_SUITE_P(OtherIds, InterfaceNumber,
                         testing::Values(InterfaceCase{u"", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781&PID_5581", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781&MI_1", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781&MI_", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781&MI_001", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781&mi_01", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781&MI_01&Col01", noInterfaceNumber},
                                         InterfaceCase{u"USB\\VID_0781_MI_01", noInterfaceNumber}));

TEST_F(MultiSzWalk, InterfaceNumberOfLaterIdsDoesNotCount) {
    EXPECT_EQ(getInterfaceNumber(Text(multiSz({u"USB\\VID_1&PID_2", u"USB\\VID_1&MI_01"}))), noInterfaceNumber);
    EXPECT_EQ(getInterfaceNumber(Text(multiSz({u"USB\\VID_1&MI_04", u"USB\\VID_1"}))), 4u);
    EXPECT_EQ(getInterfaceNumber(Text(multiSz({u"", u"USB\\VID_1&MI_01"}))), noInterfaceNumber);
}

} // namespace
} // namespace unit
