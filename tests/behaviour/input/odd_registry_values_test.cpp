#include "tests/behaviour/support/class_filters.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/behaviour/support/driver_test.h"

namespace behaviour {
namespace {

/// REG_NONE to REG_QWORD, and two that no system knows.
constexpr std::uint32_t valueTypes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0xFFFFFFFF};
constexpr std::size_t valueSizes[] = {0, 1, 2, 3, 4, 5, 8, 0xFFFE, 0xFFFF, 0x10000};

/// Each value that the driver reads, in every type and in sizes around those that matter, filled with one byte.
class OddRegistryValues : public DriverTest {
  protected:
    OddRegistryValues() {
        apply({});
        setParameter(u"LogLevel", 0);
    }
    template<typename Try>
    static void forEachForm(Try attempt) {
        for (const std::uint32_t type : valueTypes) {
            for (const std::size_t size : valueSizes) {
                for (const std::uint8_t byte : {0x41, 0x00}) {
                    if (byte == 0 && type != REG_SZ && type != REG_MULTI_SZ && type != REG_DWORD) {
                        continue; // nobody looks at the content
                    }
                    SCOPED_TRACE("type " + std::to_string(type) + ", " + std::to_string(size) + " bytes of " +
                                 std::to_string(byte));
                    attempt(type, std::vector<std::uint8_t>(size, byte));
                }
            }
        }
    }
    /// Plugs a flash drive in under the list in every form.
    void judgeUnder(std::u16string_view list, std::uint32_t expectedMode,
                    const std::function<bool(std::uint32_t type, std::size_t size)> &isException) {
        start();
        sim::DeviceDescription device = flashDrive();
        device.children.clear();
        forEachForm([&](std::uint32_t type, std::vector<std::uint8_t> data) {
            const std::size_t size = data.size();
            setParameter(list, type, std::move(data));
            unplug("stick");
            adds.clear();
            plug(device);
            if (!isException(type, size)) {
                EXPECT_EQ(filterOf("stick").mode, expectedMode);
            }
        });
    }
    static bool never(std::uint32_t, std::size_t) { return false; }
};

TEST_F(OddRegistryValues, ANumberIsFourBytesOfTypeDword) {
    forEachForm([this](std::uint32_t type, const std::vector<std::uint8_t> &data) {
        for (const char16_t *name : {u"CallbackMode", u"CallbackTimeout", u"CallbackFallbackAction", u"LogLevel"}) {
            setParameter(name, type, data);
        }
        ASSERT_EQ(machine().loadDriver(), STATUS_SUCCESS);
        const DriverContext &context = driverState(machine());
        const bool isNumber = type == REG_DWORD && data.size() == 4;
        const std::uint32_t number = isNumber ? data[0] * 0x01010101U : 0;
        EXPECT_EQ(context.callbackMode, number);
        EXPECT_EQ(context.callbackTimeout, isNumber ? number : 30U);
        EXPECT_EQ(context.callbackFallbackAction, number);
        EXPECT_EQ(context.logger.level, static_cast<LONG>(number));
        setParameter(u"LogLevel", 0);
        unload();
    });
}

TEST_F(OddRegistryValues, WithoutABlockedListThatCanBeReadNothingIsFiltered) {
    // Text without a single character stands for the usual list.
    judgeUnder(u"BlockedCompatibleIds", 2,
               [](std::uint32_t type, std::size_t size) { return type == REG_SZ && size < 2; });
}

TEST_F(OddRegistryValues, TextWithoutACharacterIsTheUsualBlockedList) {
    start();
    for (const std::size_t size : {0, 1}) {
        setParameter(u"BlockedCompatibleIds", REG_SZ, std::vector<std::uint8_t>(size, 0x41));
        unplug("stick");
        plug(flashDrive());
        EXPECT_EQ(filterOf("stick").mode, 1U) << size;
    }
}

TEST_F(OddRegistryValues, AnAllowedListThatCannotBeReadAllowsNothing) {
    judgeUnder(u"AllowedHardwareIds", 1, never);
}

TEST_F(OddRegistryValues, AReadOnlyListThatCannotBeReadMakesNothingReadOnly) {
    judgeUnder(u"ReadOnlyHardwareIds", 1, never);
}

TEST_F(OddRegistryValues, AllThreeListsAtOnceLeaveADeviceThatRuns) {
    start();
    forEachForm([this](std::uint32_t type, const std::vector<std::uint8_t> &data) {
        for (const auto &[name, list] : Policy().values()) {
            setParameter(name, type, data);
        }
        unplug("mouse");
        EXPECT_TRUE(plug(mouse()).started()) << "a mouse is in no list of classes, however it is stored";
        adds.clear();
    });
}

TEST_F(OddRegistryValues, AClassFilterListIsRepairedWhenItIsAListAndElseLeftAlone) {
    forEachForm([this](std::uint32_t type, const std::vector<std::uint8_t> &data) {
        for (const ClassFilterRow &row : classFilterRows) {
            registry().setValue(row.key(), row.valueName, type, data);
        }
        ASSERT_EQ(machine().loadDriver(), STATUS_SUCCESS);
        machine().plugControlNode();
        const bool isList = type == REG_MULTI_SZ && data.size() >= 4 && data.size() % 2 == 0 && data[0] == 0;
        for (const ClassFilterRow &row : classFilterRows) {
            const auto value = registry().value(row.key(), row.valueName);
            ASSERT_TRUE(value.has_value());
            if (isList) {
                EXPECT_EQ(registry().multiString(row.key(), row.valueName), std::vector<std::u16string>{ourName});
            } else {
                EXPECT_EQ(value->type, type);
                EXPECT_EQ(value->data, data);
            }
        }
        unload();
        adds.clear();
    });
}

} // namespace
} // namespace behaviour
