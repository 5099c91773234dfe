#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using testing::Contains;
using testing::Not;
using testing::StartsWith;

/// Rules at the limits of a counted string.
class LongRules : public DriverTest {
  protected:
    LongRules() {
        apply({});
        start();
    }
    static std::u16string piece(std::size_t characters) { return std::u16string(characters, u'x'); }
    /// The add of a flash drive; its log without the long rules themselves, which are given by their lengths.
    Lines logWithLengths() {
        unplug("stick");
        plug(flashDrive());
        const std::string begin = "INFO putIdToContainerWithSerial rule = ";
        Lines log;
        for (const std::string &line : addOf("stick").log) {
            const bool longRule = line.starts_with(begin) && line.size() > begin.size() + 100;
            log.push_back(longRule ? begin + std::to_string(line.size() - begin.size()) : line);
        }
        return log;
    }
};

TEST_F(LongRules, APieceOf32767CharactersIsTaken) {
    apply({asText(piece(32'767) + u" Class_08"), {}, {}});
    const Lines log = logWithLengths();
    EXPECT_THAT(log, Contains("INFO putIdToContainerWithSerial rule = 32767"));
    EXPECT_THAT(log, Not(Contains(StartsWith("ERROR Max rule size"))));
    EXPECT_EQ(filterOf("stick").filterable, 1U);
}

TEST_F(LongRules, APieceOf32768CharactersIsSkippedAndThoseAroundItAreKept) {
    apply({asText(u"Class_06 " + piece(32'768) + u" Class_08"), {}, {}});
    const Lines log = logWithLengths();
    const auto at = std::find(log.begin(), log.end(), "INFO putIdToContainerWithSerial rule = Class_06");
    ASSERT_LE(at + 3, log.end());
    EXPECT_EQ(at[1], "ERROR Max rule size more then USHRT_MAX. The rule will be skipped");
    EXPECT_EQ(at[2], "INFO putIdToContainerWithSerial rule = Class_08");
    EXPECT_EQ(filterOf("stick").filterable, 1U);
}

TEST_F(LongRules, TheStoredNulCountsWithTheLastPiece) {
    apply({asText(u"Class_08 " + piece(32'767)), {}, {}});
    EXPECT_THAT(logWithLengths(), Contains("ERROR Max rule size more then USHRT_MAX. The rule will be skipped"));
    apply({asText(u"Class_08 " + piece(32'766)), {}, {}});
    EXPECT_THAT(logWithLengths(), Contains("INFO putIdToContainerWithSerial rule = 32766"));
}

TEST_F(LongRules, ASkippedPieceMayBeTheOnlyOne) {
    apply({asText(piece(40'000)), asStrings({}), asStrings({})});
    const Lines log = logWithLengths();
    EXPECT_THAT(log, Contains("ERROR Max rule size more then USHRT_MAX. The rule will be skipped"));
    EXPECT_THAT(log, Not(Contains(StartsWith("ERROR Failed to read"))));
    EXPECT_EQ(filterOf("stick").filterable, 0U);
}

TEST_F(LongRules, AWildcardStillFitsBehind32765Characters) {
    apply({asText(u"Class_08"), asText(piece(32'765) + u" VID_0781&PID_5581"), asStrings({})});
    EXPECT_THAT(logWithLengths(), Not(Contains(StartsWith("ERROR"))));
    EXPECT_EQ(filterOf("stick").mode, 2U);
}

TEST_F(LongRules, BehindOneCharacterMoreItDoesNotAndTheListEndsThere) {
    for (const std::size_t characters : {32'766, 32'767}) {
        SCOPED_TRACE(characters);
        apply({asText(u"Class_08"), asText(u"VID_04B4* " + piece(characters) + u" VID_0781*"),
               asStrings({u"VID_0781*"})});
        const Lines log = logWithLengths();
        const auto at =
            std::find(log.begin(), log.end(), "INFO putIdToContainerWithSerial rule = " + std::to_string(characters));
        ASSERT_LE(at + 7, log.end());
        EXPECT_EQ(Lines(at + 1, at + 7), (Lines{"ERROR Failed to append path for fullId, status = 0xc0000023",
                                                "ERROR forEachStringCallFunc failed callback, status = 0xc0000023",
                                                "ERROR Failed to read allowed rules key, status = 0xc0000023",
                                                "INFO Query multistring key, parameter = ReadOnlyHardwareIds",
                                                "INFO putIdToContainerWithSerial rule = VID_0781*",
                                                "ERROR Failed to read readonly rules key, status = 0xc0000023"}));
        EXPECT_EQ(filterOf("stick").mode, 3U);
    }
}

TEST_F(LongRules, RulesBeforeAFailedOneStay) {
    apply({asText(u"Class_08"), asText(u"VID_0781* " + piece(32'766) + u" "), asStrings({})});
    logWithLengths();
    EXPECT_EQ(filterOf("stick").mode, 2U);
}

TEST_F(LongRules, AStringOfAListFailsLikewiseAndIsReadAgainAsText) {
    apply({asText(u"Class_08"), asStrings({u"VID_0781*", piece(32'766)}), asStrings({})});
    const Lines log = logWithLengths();
    const auto at = std::find(log.begin(), log.end(), "INFO putIdToContainerWithSerial rule = 32766");
    ASSERT_LE(at + 6, log.end());
    EXPECT_EQ(Lines(at + 1, at + 6), (Lines{"ERROR Failed to append path for fullId, status = 0xc0000023",
                                            "ERROR forEachStringCallFunc failed callback, status = 0xc0000023",
                                            "INFO Query string key, parameter = AllowedHardwareIds",
                                            "ERROR Invalid parameter when wdf query memory",
                                            "ERROR Failed to read allowed rules key, status = 0xc000000d"}));
    EXPECT_EQ(filterOf("stick").mode, 2U) << "rules before the failed one stay";
}

TEST_F(LongRules, ARuleWithABackslashNeedsNoWildcard) {
    apply({asText(u"Class_08"), asText(piece(32'000) + u"\\" + piece(766) + u" VID_0781*"), asStrings({})});
    EXPECT_THAT(logWithLengths(), Not(Contains(StartsWith("ERROR"))));
    EXPECT_EQ(filterOf("stick").mode, 2U);
}

} // namespace
} // namespace behaviour
