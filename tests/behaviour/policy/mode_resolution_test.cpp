#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

/// Who decides a device on a machine whose service is not registered.
class ModeResolution : public DriverTest {
  protected:
    /// Loads with the settings and plugs a flash drive.
    std::uint32_t modeOf(std::uint32_t callbackMode, std::uint32_t fallbackAction, const Policy &policy) {
        apply(policy);
        setParameter(u"CallbackMode", callbackMode);
        setParameter(u"CallbackFallbackAction", fallbackAction);
        machine().presetClassFilters();
        start();
        plug(flashDrive());
        const std::uint32_t mode = filterOf("stick").mode;
        unload();
        unplug("stick");
        unplug("control");
        return mode;
    }
};

TEST_F(ModeResolution, WithoutAServiceTheRulesDecideInEveryModeButTwo) {
    Policy both = allowing({u"VID_0781*"});
    for (const std::uint32_t mode : {0U, 1U, 3U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(mode);
        EXPECT_EQ(modeOf(mode, 1, both), 2U);
        EXPECT_EQ(modeOf(mode, 1, readOnly({u"VID_0781*"})), 3U);
        EXPECT_EQ(modeOf(mode, 1, {}), 1U);
    }
}

TEST_F(ModeResolution, InModeTwoTheFallbackDecidesWhateverTheLists) {
    const std::pair<std::uint32_t, std::uint32_t> actions[] = {{0, 1}, {1, 3}, {2, 1}, {3, 1}, {7, 1}, {0xFFFFFFFF, 1}};
    for (const auto &[action, mode] : actions) {
        SCOPED_TRACE(action);
        EXPECT_EQ(modeOf(2, action, allowing({u"*"})), mode);
        EXPECT_EQ(modeOf(2, action, readOnly({u"*"})), mode);
        EXPECT_EQ(modeOf(2, action, {}), mode);
    }
}

TEST_F(ModeResolution, InModeTwoTheListsAreReadAllTheSameAndNotAsked) {
    const Policy policy = allowing({u"*"});
    apply(policy);
    setParameter(u"CallbackMode", 2);
    setParameter(u"CallbackFallbackAction", 1);
    start();
    EXPECT_TRUE(plug(flashDrive()).started());
    const auto ids = idsOf(flashDrive());
    EXPECT_EQ(addOf("stick").log,
              lines::all(lines::created(ids), lines::searched({"\\Driver\\USBHUB3"}), lines::reload(policy),
                         Lines{"INFO Try to get usb mode from rule storage"}, lines::reload(policy),
                         Lines{"INFO Check request ReadOnlyUnlisted, result = 0"}, lines::removedFromRegister(ids),
                         lines::notified(3, 4, u"Ultra")));
}

TEST_F(ModeResolution, AFallbackToReadOnlyStillKnowsReadOnlyUnlisted) {
    apply(readOnly({u"*"}));
    setParameter(u"CallbackMode", 2);
    setParameter(u"CallbackFallbackAction", 1);
    start();
    plug(flashDrive());
    EXPECT_EQ(filterOf("stick").ruleType, 5U);
}

TEST_F(ModeResolution, WhatIsNotFilterableIsAllowedInEveryMode) {
    setParameter(u"CallbackMode", 2);
    apply({});
    start();
    EXPECT_TRUE(plug(mouse()).started());
    EXPECT_EQ(filterOf("mouse").mode, 2U);
}

TEST_F(ModeResolution, WithoutControlDeviceEveryFilterableDeviceIsBlockedInEveryMode) {
    for (const std::uint32_t mode : {0U, 1U, 2U}) {
        SCOPED_TRACE(mode);
        apply(allowing({u"*"}));
        setParameter(u"CallbackMode", mode);
        setParameter(u"CallbackFallbackAction", 1);
        machine().presetClassFilters();
        load();
        EXPECT_EQ(plug(flashDrive()).problemCode(), 29U);
        EXPECT_TRUE(plug(mouse()).started());
        unload();
        unplug("stick");
        unplug("mouse");
    }
}

TEST_F(ModeResolution, TheAllowedListIsAskedFirstAndTheReadOnlyListOnlyThen) {
    Policy both = allowing({u"VID_0781*"});
    both.readOnly = asStrings({u"VID_0781*"});
    apply(both);
    start();
    plug(flashDrive());
    for (const std::string &line : addOf("stick").log) {
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("isReadOnly")));
    }
}

} // namespace
} // namespace behaviour
