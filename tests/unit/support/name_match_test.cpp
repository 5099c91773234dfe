#include "support/name_match.h"

#include "support/text.h"
#include "tests/unit/fixture/kernel_test.h"

namespace unit {
namespace {

struct MatchCase {
    const char16_t *expression;
    const char16_t *name;
    CaseRule rule;
    bool matches;
};

void PrintTo(const MatchCase &match, std::ostream *out) {
    *out << sim::toUtf8(match.expression) << " on " << sim::toUtf8(match.name);
}

class NameMatch : public KernelTest, public testing::WithParamInterface<MatchCase> {};

TEST_P(NameMatch, AnswersAsTheFileSystemMatchesNames) {
    const MatchCase &match = GetParam();
    EXPECT_EQ(matchesExpression(Text(match.expression), Text(match.name), match.rule), match.matches);
}

constexpr auto asWritten = CaseRule::asWritten;
constexpr auto ignoreCase = CaseRule::ignoreCase;

INSTANTIATE_TEST_SUITE_P(
    WholeName, NameMatch,
    testing::Values(MatchCase{u"ABC", u"ABC", asWritten, true}, MatchCase{u"ABC", u"ABCD", asWritten, false},
                    MatchCase{u"ABCD", u"ABC", asWritten, false},
                    MatchCase{u"*", u"ANY.THING\\AT ALL", asWritten, true}, MatchCase{u"A*", u"BA", asWritten, false},
                    MatchCase{u"A?C", u"ABC", asWritten, true}, MatchCase{u"AB?", u"AB", asWritten, false}));
INSTANTIATE_TEST_SUITE_P(EmptyText, NameMatch,
                         testing::Values(MatchCase{u"", u"", asWritten, true}, MatchCase{u"", u"A", asWritten, false},
                                         MatchCase{u"*", u"", asWritten, false},
                                         MatchCase{u"*", u"", ignoreCase, false},
                                         MatchCase{u"", u"", ignoreCase, true}));
INSTANTIATE_TEST_SUITE_P(LetterCase, NameMatch,
                         testing::Values(MatchCase{u"ABC", u"abc", asWritten, false},
                                         MatchCase{u"abc", u"abc", asWritten, true},
                                         MatchCase{u"ABC", u"aBc", ignoreCase, true},
                                         MatchCase{u"abc", u"abc", ignoreCase, false}, // only the name is upcased
                                         MatchCase{u"abc", u"ABC", ignoreCase, false},
                                         MatchCase{u"\u00C9", u"\u00E9", ignoreCase, true},
                                         MatchCase{u"STRASSE", u"stra\u00DFe", ignoreCase, false}));
INSTANTIATE_TEST_SUITE_P(
    DosWildcards, NameMatch,
    testing::Values(MatchCase{u"ABC\"", u"ABC", asWritten, true}, MatchCase{u"ABC\"", u"ABC.", asWritten, true},
                    MatchCase{u"A>C", u"ABC", asWritten, true}, MatchCase{u"A>", u"A", asWritten, true},
                    MatchCase{u"A>.C", u"A.C", asWritten, true}, MatchCase{u"A<", u"A.B", asWritten, false},
                    MatchCase{u"A<B", u"AXX.B", asWritten, true}));

class NameMatchWithoutMemory : public KernelTest {};

TEST_F(NameMatchWithoutMemory, CountsAsNoMatch) {
    const Text name(u"vid_0781");
    ASSERT_TRUE(matchesExpression(literal(L"VID_*"), name, ignoreCase));
    EXPECT_FALSE(whileFailing("FsRtlIsNameInExpression", 1,
                              [&] { return matchesExpression(literal(L"VID_*"), name, ignoreCase); }));
    EXPECT_TRUE(matchesExpression(literal(L"VID_*"), name, ignoreCase)) << "the next match has memory again";
}

TEST_F(NameMatchWithoutMemory, CountsAsNoMatchForALongExpressionToo) {
    const Text expression(std::u16string(200, u'?') + u"*");
    const Text name(std::u16string(201, u'x'));
    ASSERT_TRUE(matchesExpression(expression, name, asWritten));
    EXPECT_FALSE(
        whileFailing("FsRtlIsNameInExpression", 1, [&] { return matchesExpression(expression, name, asWritten); }));
}

TEST_F(NameMatchWithoutMemory, AnyRaisedStatusIsCaught) {
    for (const NTSTATUS status : {STATUS_NO_MEMORY, STATUS_INSUFFICIENT_RESOURCES}) {
        kernel.faults.clear();
        kernel.faults.failNamed("FsRtlIsNameInExpression", 1, status, true);
        kernel.faults.arm(true);
        EXPECT_FALSE(matchesExpression(literal(L"*"), literal(L"A"), ignoreCase));
        kernel.faults.arm(false);
    }
}

} // namespace
} // namespace unit
