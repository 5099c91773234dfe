#include "kernel_fixture.h"

#include <excpt.h>

#include <vector>

namespace sim::test {

namespace {

using NameMatchTest = KernelTest;

bool match(std::u16string_view expression, std::u16string_view name, bool ignoreCase = false) {
    Text pattern(expression);
    Text text(name);
    return FsRtlIsNameInExpression(&pattern, &text, ignoreCase, nullptr) != FALSE;
}

struct Case {
    std::u16string_view expression;
    std::u16string_view name;
    bool hit;
};

TEST_F(NameMatchTest, knownAnswers) {
    const Case cases[] = {
        {u"", u"", true},
        {u"", u"a", false},
        {u"a", u"", false},
        {u"*", u"", false},
        {u"*", u"a.b\\c", true},
        {u"?", u"a", true},
        {u"?", u"", false},
        {u"a?", u"a", false},
        {u"*.", u"F0_.", true},
        {u"F0_*.", u"F0_", false},
        {u"F0_*.", u"F0_.", true},
        {u"F0_*.*", u"F0_001", false},
        {u"F0_*.*", u"F0_001.", true},
        {u"ntoskrnl.exe\"", u"ntoskrnl.exe", true},
        {u"a\"b", u"a.b", true},
        {u"a\"b", u"ab", false},
        {u"F<", u"FILE", true},
        {u"F<", u"FILE.TXT", false},
        {u"F<.TXT", u"FILE.OLD.TXT", true},
        {u"ab<exe", u"abcdexe", true},
        {u"ab<exe", u"ab.exe", true},
        {u"ab<.exe", u"ab.exe", true},
        {u"a>c.exe", u"abc.exe", true},
        {u"a>c.exe", u"ac.exe", false},
        {u"a>>>.exe", u"a.exe", true},
        {u"a>>>.exe", u"abc.exe", true},
        {u"a>", u"a", true},
        {u"FI<<<<<<<<", u"FILE", true},
        {u"**.?.c.d", u"a.b.c.d", true},
        {u"VID_0781&PID_*\\*", u"VID_0781&PID_5567\\12AB", true},
        {u"VID_0781&PID_*\\*", u"VID_0781&PID_5567", false},
        {u"CLASS_08", u"CLASS_08", true},
        {u"CLASS_08", u"CLASS_08&", false},
        {u"a*b*c", u"aXbYbZc", true},
        {u"a*b*c", u"aXbYbZ", false},
        {u"a?c", u"a*c", true},
        {u"a*c", u"a<c", true},
    };
    for (const Case &known : cases) {
        EXPECT_EQ(match(known.expression, known.name), known.hit)
            << toUtf8(known.expression) << " against " << toUtf8(known.name);
    }
}

TEST_F(NameMatchTest, onlyTheNameIsUpcased) {
    EXPECT_TRUE(match(u"ABC*", u"abcd", true));
    EXPECT_FALSE(match(u"abc*", u"abcd", true));
    EXPECT_FALSE(match(u"ABC", u"abc", false));
    EXPECT_TRUE(match(u"abc", u"abc", false));
}

TEST_F(NameMatchTest, ownUpcaseTableIsUsed) {
    std::vector<WCHAR> table(0x10000);
    for (std::size_t unit = 0; unit < table.size(); ++unit) {
        table[unit] = static_cast<WCHAR>(unit == u'x' ? u'Y' : unit);
    }
    Text expression(u"Y");
    Text name(u"x");
    EXPECT_TRUE(FsRtlIsNameInExpression(&expression, &name, TRUE, table.data()));
}

TEST_F(NameMatchTest, manyStarsStayFast) {
    std::u16string expression;
    for (int index = 0; index < 100; ++index) {
        expression += u"*A";
    }
    EXPECT_FALSE(match(expression, std::u16string(2000, u'B')));
}

TEST_F(NameMatchTest, lowMemoryRaisesWhereItAllocates) {
    kernel.faults.failNamed("FsRtlIsNameInExpression", 1, std::nullopt, true);
    kernel.faults.failNamed("FsRtlIsNameInExpression", 0, std::nullopt, false);
    kernel.faults.arm(true);
    EXPECT_TRUE(match(u"A*", u"AB", false)); // short, as it is: needs no memory
    kernel.faults.clear();
    kernel.faults.failNamed("FsRtlIsNameInExpression", 1, std::nullopt, false);
    NTSTATUS raised = STATUS_SUCCESS;
    try {
        match(u"A*", u"ab", true);
    } catch (const PlatformStructuredException &exception) {
        raised = exception.code;
    }
    EXPECT_EQ(raised, STATUS_NO_MEMORY);
    EXPECT_TRUE(match(u"A*", u"ab", true));
}

TEST_F(NameMatchTest, traceCarriesExpressionNameAndAnswer) {
    std::vector<TraceEvent> events;
    kernel.trace.setObserver([&](const TraceEvent &event) { events.push_back(event); });
    match(u"A*", u"abc", true);
    kernel.trace.setObserver({});
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, TraceEvent::Kind::nameMatch);
    EXPECT_EQ(events[0].text, u"A*");
    EXPECT_EQ(events[0].name, u"abc");
    EXPECT_TRUE(events[0].hit);
}

} // namespace

} // namespace sim::test
