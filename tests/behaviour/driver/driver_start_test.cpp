#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/driver_test.h"

namespace behaviour {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct CallbackSettings {
    std::uint32_t mode;
    std::uint32_t timeout;
    std::uint32_t fallbackAction;
    bool operator==(const CallbackSettings &) const = default;
};

class DriverStart : public DriverTest {
  protected:
    CallbackSettings settings() {
        const DriverContext &context = driverState(machine());
        return {context.callbackMode, context.callbackTimeout, context.callbackFallbackAction};
    }
    Lines linesOfLoad() {
        EXPECT_EQ(machine().loadDriver(), STATUS_SUCCESS);
        return takeLog();
    }
    static constexpr CallbackSettings defaults{0, 30, 0};
};

TEST_F(DriverStart, WithoutParametersKeyHasDefaultsAndASilentLog) {
    registry().deleteKey(sim::Machine::parametersKey());
    EXPECT_THAT(linesOfLoad(), IsEmpty());
    EXPECT_EQ(settings(), defaults);
    EXPECT_THAT(kernel().files.tempFiles(), IsEmpty());
}

TEST_F(DriverStart, ReadsTheCallbackSettings) {
    setParameter(u"CallbackMode", 2);
    setParameter(u"CallbackTimeout", 45);
    setParameter(u"CallbackFallbackAction", 0xFFFFFFFF);
    load();
    EXPECT_EQ(settings(), (CallbackSettings{2, 45, 0xFFFFFFFF}));
}

TEST_F(DriverStart, AMissingSettingKeepsItsDefault) {
    setParameter(u"CallbackMode", 1);
    load();
    EXPECT_EQ(settings(), (CallbackSettings{1, 30, 0}));
}

TEST_F(DriverStart, AZeroTimeoutIsTakenAsItStands) {
    setParameter(u"CallbackTimeout", 0);
    load();
    EXPECT_EQ(settings(), (CallbackSettings{0, 0, 0}));
}

TEST_F(DriverStart, SettingsOfAnotherTypeOrSizeKeepTheirDefaults) {
    const std::vector<std::uint8_t> fourBytes{7, 0, 0, 0};
    const std::pair<std::uint32_t, std::vector<std::uint8_t>> forms[] = {
        {REG_BINARY, fourBytes},
        {REG_DWORD, {7, 0}},
        {REG_DWORD, {7, 0, 0, 0, 0, 0, 0, 0}},
        {REG_DWORD, {}},
        {REG_DWORD_BIG_ENDIAN, fourBytes},
        {REG_QWORD, {7, 0, 0, 0, 0, 0, 0, 0}},
        {REG_SZ, bytesOf(u"7\0")},
        {REG_NONE, fourBytes},
    };
    for (const auto &[type, data] : forms) {
        SCOPED_TRACE(type);
        setParameter(u"CallbackMode", type, data);
        setParameter(u"CallbackTimeout", type, data);
        setParameter(u"CallbackFallbackAction", type, data);
        load();
        EXPECT_EQ(settings(), defaults);
        unload();
    }
}

TEST_F(DriverStart, ChangedSettingsTakeEffectWithTheNextLoad) {
    load();
    setParameter(u"CallbackMode", 2);
    plug(sim::usbVendorDevice("any", {1, 2}));
    EXPECT_EQ(settings(), defaults);
    unload();
    load();
    EXPECT_EQ(settings(), (CallbackSettings{2, 30, 0}));
}

TEST_F(DriverStart, ValueNamesAreFoundInAnyLetterCase) {
    setParameter(u"callbackTIMEOUT", 9);
    load();
    EXPECT_EQ(settings().timeout, 9U);
}

TEST_F(DriverStart, TheFirstLineIsWrittenFromInfoUpwards) {
    const std::pair<std::uint32_t, bool> levels[] = {
        {0, false}, {1, false}, {2, false},  {3, false},         {4, true},           {5, true},
        {6, true},  {7, true},  {100, true}, {0x7FFFFFFF, true}, {0x80000000, false}, {0xFFFFFFFF, false}};
    for (const auto &[level, written] : levels) {
        SCOPED_TRACE(level);
        setParameter(u"LogLevel", level);
        EXPECT_EQ(linesOfLoad(), written ? Lines{"INFO Driver start"} : Lines{});
        setParameter(u"LogLevel", 0);
        unload();
        takeLog();
    }
}

TEST_F(DriverStart, AMissingOrMistypedLogLevelIsSilence) {
    registry().deleteValue(sim::Machine::parametersKey(), u"LogLevel");
    EXPECT_THAT(linesOfLoad(), IsEmpty());
    unload();
    setParameter(u"LogLevel", REG_SZ, bytesOf(u"4\0"));
    EXPECT_THAT(linesOfLoad(), IsEmpty());
}

TEST_F(DriverStart, TheFirstLineIsTheFirstBytesOfANewFile) {
    load();
    ASSERT_THAT(kernel().files.tempFiles(), ElementsAre("com.tarvenholt.myrtelhaven-driver-1709726400.log"));
    EXPECT_EQ(kernel().files.tempFile("com.tarvenholt.myrtelhaven-driver-1709726400.log"),
              "2024-03-06 12:00:00.000 INFO Driver start\r\n");
}

TEST_F(DriverStart, ReadsNumbersThroughTheExtendedRoutine) {
    setParameter(u"CallbackMode", 1);
    failCall("RtlQueryRegistryValues", 1, {}, true);
    load();
    EXPECT_EQ(settings().mode, 1U);
    endFailures();
    unload();
    failCall("RtlQueryRegistryValuesEx", 1, {}, true);
    load();
    EXPECT_EQ(settings(), defaults);
}

TEST_F(DriverStart, ReadsNumbersThroughTheOlderRoutineWhereTheExtendedOneIsMissing) {
    setParameter(u"CallbackMode", 1);
    kernel().systemRoutines[u"RtlQueryRegistryValuesEx"] = nullptr;
    EXPECT_EQ(linesOfLoad(), Lines{"INFO Driver start"});
    EXPECT_EQ(settings().mode, 1U);
}

TEST_F(DriverStart, AFailedFrameworkDriverObjectIsReturnedAndLogsNothing) {
    failCall("WdfDriverCreate", 1, STATUS_INVALID_IMAGE_FORMAT);
    EXPECT_EQ(machine().loadDriver(), STATUS_INVALID_IMAGE_FORMAT);
    EXPECT_FALSE(machine().driverLoaded());
    EXPECT_THAT(kernel().files.tempFiles(), IsEmpty());
    EXPECT_THAT(machine().leaks(), IsEmpty());
    endFailures();
    EXPECT_EQ(linesOfLoad(), Lines{"INFO Driver start"});
}

TEST_F(DriverStart, NothingElseCanKeepItFromLoading) {
    setParameter(u"LogLevel", 0);
    for (std::uint64_t nth = 1; nth < 20; ++nth) {
        SCOPED_TRACE(nth);
        failCall("ExAllocatePool2", nth, {}, true);
        ASSERT_EQ(machine().loadDriver(), STATUS_SUCCESS);
        EXPECT_EQ(settings(), defaults);
        endFailures();
        unload();
        EXPECT_THAT(machine().leaks(), IsEmpty());
    }
}

TEST_F(DriverStart, BeginsWithEmptyRulesNoControlDeviceAndRoomForTheTextOfDevices) {
    load();
    DriverContext &context = driverState(machine());
    EXPECT_EQ(context.controlDevice, nullptr);
    EXPECT_EQ(notUsbHubText(machine()), "");
    EXPECT_EQ(context.notUsbHubText.maximumLength(), 10'240);
    EXPECT_EQ(context.logger.level, 4);
    EXPECT_EQ(context.logger.sizeLimit, 10'485'760U);
    EXPECT_EQ(context.logger.fileLimit, 3U);
}

} // namespace
} // namespace behaviour
