#include "log/log.h"

#include "tests/unit/fixture/log_test.h"

namespace unit {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;
using testing::IsEmpty;

class LogStatements : public LogTest {};

TEST_F(LogStatements, CarryTheirLevel) {
    LOG_ERROR(L"first");
    LOG_INFO(L"second");
    LOG_DEBUG(L"third");
    EXPECT_THAT(takeLines(), ElementsAre("ERROR first", "INFO second", "DEBUG third"));
}

TEST_F(LogStatements, AreWrittenUpToTheConfiguredLevel) {
    const LogLevel levels[] = {LogLevel::fatal, LogLevel::error, LogLevel::warn,
                               LogLevel::info,  LogLevel::debug, LogLevel::verbose};
    for (LONG configured = 0; configured <= 6; ++configured) {
        setLogLevel(configured);
        for (const LogLevel level : levels) {
            LOG_AT(level, L"text");
        }
        EXPECT_EQ(takeLines().size(), static_cast<std::size_t>(configured));
    }
}

TEST_F(LogStatements, NumbersOutsideTheListOfLevelsCountByTheirSize) {
    setLogLevel(-1);
    LOG_AT(LogLevel::fatal, L"text");
    EXPECT_THAT(takeLines(), IsEmpty());
    setLogLevel(100);
    LOG_AT(LogLevel::verbose, L"text");
    EXPECT_THAT(takeLines(), ElementsAre("VERB text"));
}

TEST_F(LogStatements, AreSilentUntilTheLogIsEnabled) {
    isLogEnabled = 0;
    LOG_ERROR(L"text");
    EXPECT_THAT(takeLines(), IsEmpty());
    enableLog();
    LOG_ERROR(L"text");
    EXPECT_THAT(takeLines(), ElementsAre("ERROR text"));
}

TEST_F(LogStatements, SuppressedOnesDoNothingAtAll) {
    setLogLevel(static_cast<LONG>(LogLevel::error));
    int evaluated = 0;
    kernel.faults.arm(true);
    LOG_INFO(L"number = ", decimal(++evaluated));
    kernel.faults.arm(false);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(kernel.faults.callsSeen(), 0u);
}

TEST_F(LogStatements, NoFileIsMadeWhileEverythingIsSuppressed) {
    setLogLevel(0);
    LOG_AT(LogLevel::fatal, L"text");
    settle();
    EXPECT_THAT(kernel.files.tempFiles(), IsEmpty());
}

TEST_F(LogStatements, StatusesAreEightLowerCaseDigitsWhenTheyAreFailures) {
    LOG_ERROR(L"status = 0x", hex(STATUS_INSUFFICIENT_RESOURCES));
    LOG_ERROR(L"status = 0x", hex(STATUS_SUCCESS));
    EXPECT_THAT(takeLines(), ElementsAre("ERROR status = 0xc000009a", "ERROR status = 0x0"));
}

TEST_F(LogStatements, EverythingBehindAHexadecimalNumberIsHexadecimal) {
    LOG_INFO(L"a = ", decimal(20), L", b = 0x", hexNumber(20), L", c = ", decimal(20));
    EXPECT_THAT(takeLines(), ElementsAre("INFO a = 20, b = 0x14, c = 14"));
}

TEST_F(LogStatements, FlagsAreOneOrZero) {
    LOG_INFO(flag(true), flag(false));
    EXPECT_THAT(takeLines(), ElementsAre("INFO 10"));
}

TEST_F(LogStatements, AddressesAreHexadecimalWithoutPadding) {
    LOG_INFO(L"device object = 0x", hexAddress(reinterpret_cast<void *>(0xFFFF800012345678)));
    LOG_INFO(L"device object = 0x", hexAddress(nullptr));
    EXPECT_THAT(takeLines(), ElementsAre("INFO device object = 0xffff800012345678", "INFO device object = 0x0"));
}

TEST_F(LogStatements, ListsKeepTheirNuls) {
    KString ids;
    ASSERT_EQ(ids.copyFrom(Text(multiSz({u"USB\\A", u"USB\\B"}))), STATUS_SUCCESS);
    LOG_INFO(L"ids = ", ids, L", end");
    EXPECT_THAT(takeLines(), ElementsAre("INFO ids = USB\\A\0USB\\B, end"s));
}

TEST_F(LogStatements, EmptyStringsShowNothing) {
    LOG_INFO(L"<", KString(), UNICODE_STRING{}, L"", L">");
    EXPECT_THAT(takeLines(), ElementsAre("INFO <>"));
}

} // namespace
} // namespace unit
