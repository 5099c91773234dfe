#include "simulator/kernel/security.h"
#include "simulator/machine/setup_classes.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

namespace behaviour {
namespace {

using testing::StartsWith;

/// Between add and start Plug and Play replaces the access list of a device whose class, or own key, configures one.
class ConfiguredSecurity : public DriverTest {
  protected:
    ConfiguredSecurity() {
        apply(readOnly({u"*"}));
        start();
    }
    void configure(std::u16string_view key, const std::string &sddl) {
        registry().setValue(key, u"Security", REG_BINARY, sim::securityFromSddl(sddl));
    }
    void configureClass(const std::string &sddl) {
        configure(sim::Machine::classKey(sim::machine::setup::portable.guid), sddl);
    }
    static constexpr const char *open = "D:P(A;;0x1f01ff;;;WD)";
};

TEST_F(ConfiguredSecurity, OfTheClassIsMadeReadOnlyBeforeAnybodyOpensThePhone) {
    configureClass(open);
    sim::DeviceNode &node = plug(phone());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.security(), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)");
    EXPECT_FALSE(sim::accessGranted(node.physicalDevice(), FILE_WRITE_DATA, {"S-1-1-0"}));
}

TEST_F(ConfiguredSecurity, OfTheDevicesOwnKeyToo) {
    const std::u16string key = u"\\Registry\\Machine\\System\\CurrentControlSet\\Enum\\" + phone().instanceId;
    registry().makeKey(key);
    configure(key, open);
    EXPECT_EQ(plug(phone()).security(), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)");
}

TEST_F(ConfiguredSecurity, ThatAlreadyDeniesWritingFirstOfAllStaysAsItIs) {
    configureClass("D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)");
    EXPECT_EQ(plug(phone()).security(), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)");
}

TEST_F(ConfiguredSecurity, ThatDeniesWritingFurtherBehindOrToOthersIsNotEnough) {
    configureClass("D:P(A;;0x1f01ff;;;WD)(D;;0x2;;;WD)");
    sim::DeviceNode &node = plug(phone());
    EXPECT_EQ(node.security(), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)(D;;0x2;;;WD)");
    machine().unplug(node);
    configureClass("D:P(D;;0x2;;;BA)(A;;0x1f01ff;;;WD)");
    EXPECT_EQ(plug(phone()).security(), "D:P(D;;0x2;;;WD)(D;;0x2;;;BA)(A;;0x1f01ff;;;WD)");
}

TEST_F(ConfiguredSecurity, WithoutWhichTheEntryOfTheAddIsEnough) {
    failCall("ZwSetSecurityObject", 2); // a second edit would fail
    EXPECT_TRUE(plug(phone()).started());
}

TEST_F(ConfiguredSecurity, OfAnAllowedPhoneIsLeftAlone) {
    apply(allowing({u"*"}));
    configureClass(open);
    sim::DeviceNode &node = plug(phone());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.security(), open);
}

TEST_F(ConfiguredSecurity, OfOtherClassesIsLeftAlone) {
    configure(sim::Machine::classKey(sim::machine::setup::usb.guid), open);
    sim::DeviceNode &node = plug(flashDrive());
    EXPECT_TRUE(node.started());
    EXPECT_EQ(node.security(), open);
}

TEST_F(ConfiguredSecurity, ThatCannotBeEditedKeepsThePhoneFromStarting) {
    configureClass(open);
    failCall("ZwSetSecurityObject", 2, STATUS_ACCESS_DENIED);
    sim::DeviceNode &node = plug(phone());
    EXPECT_EQ(node.problemCode(), 10U);
    EXPECT_FALSE(node.everStarted());
    EXPECT_EQ(takeLog().back(), "ERROR Failed to make mtp or ptp read only, status = 0xc0000022");
}

TEST_F(ConfiguredSecurity, ThatIsTooLargeKeepsThePhoneFromStarting) {
    std::string large = "D:P";
    for (int count = 0; count < 12; ++count) {
        large += "(A;;0x1f01ff;;;WD)";
    }
    configureClass(large);
    sim::DeviceNode &node = plug(phone());
    EXPECT_EQ(node.problemCode(), 10U);
    EXPECT_THAT(takeLog().back(), StartsWith("ERROR Failed to make mtp or ptp read only, status = 0x"));
}

TEST_F(ConfiguredSecurity, WithoutAnAccessListKeepsThePhoneFromStarting) {
    configureClass("O:BAG:SY");
    sim::DeviceNode &node = plug(phone());
    EXPECT_EQ(node.problemCode(), 10U);
    EXPECT_FALSE(node.everStarted());
}

} // namespace
} // namespace behaviour
