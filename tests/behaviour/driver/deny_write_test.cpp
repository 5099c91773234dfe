#include "simulator/kernel/security.h"
#include "simulator/machine/setup_classes.h"
#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

#include <cstring>

namespace behaviour {
namespace {

const std::vector<std::string> everyone{"S-1-1-0"};
const std::vector<std::string> administrator{"S-1-5-32-544", "S-1-1-0"};
const std::vector<std::string> systemAccount{"S-1-5-18", "S-1-1-0"};

/// The entry that makes a phone read-only.
class DenyWrite : public DriverTest {
  protected:
    DenyWrite() {
        apply(readOnly({u"*"}));
        start();
    }
    /// The DACL's bytes, cut from a self-relative descriptor.
    static std::vector<std::uint8_t> daclOf(const std::vector<std::uint8_t> &descriptor) {
        std::uint32_t offset = 0;
        std::memcpy(&offset, descriptor.data() + 16, sizeof(offset));
        std::uint16_t size = 0;
        std::memcpy(&size, descriptor.data() + offset + 2, sizeof(size));
        return {descriptor.begin() + offset, descriptor.begin() + offset + size};
    }
    static std::vector<std::uint8_t> cut(const std::vector<std::uint8_t> &bytes, std::size_t begin, std::size_t end) {
        return {bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end)};
    }
};

TEST_F(DenyWrite, StandsBeforeEveryOtherEntry) {
    EXPECT_EQ(plug(phone()).security(), "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;SY)(A;;0x1f01ff;;;BA)(A;;0x1201bf;;;WD)");
}

TEST_F(DenyWrite, ByteForByte) {
    const std::vector<std::uint8_t> before = daclOf(sim::securityFromSddl(usualSecurity));
    const sim::DeviceNode &node = plug(phone());
    const std::vector<std::uint8_t> after = daclOf(sim::deviceSecurity(node.physicalDevice()));
    ASSERT_GE(after.size(), before.size() + 20);
    EXPECT_EQ(cut(after, 0, 8), (std::vector<std::uint8_t>{2, 0, 0, 1, 4, 0, 0, 0})) << "256 bytes, four entries";
    EXPECT_EQ(cut(after, 8, 28),
              (std::vector<std::uint8_t>{1, 0, 20, 0, 2, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(cut(after, 28, 28 + before.size() - 8), cut(before, 8, before.size()));
}

TEST_F(DenyWrite, EverybodyReadsAndNobodyWrites) {
    PDEVICE_OBJECT device = plug(phone()).physicalDevice(); // what is opened by name
    for (const auto &account : {everyone, administrator, systemAccount}) {
        EXPECT_TRUE(sim::accessGranted(device, FILE_READ_DATA, account));
        EXPECT_TRUE(sim::accessGranted(device, GENERIC_READ, account));
        EXPECT_FALSE(sim::accessGranted(device, FILE_WRITE_DATA, account));
        EXPECT_FALSE(sim::accessGranted(device, GENERIC_READ | GENERIC_WRITE, account));
        EXPECT_TRUE(sim::accessGranted(device, FILE_APPEND_DATA, account)) << "only writing data is denied";
    }
}

TEST_F(DenyWrite, OwnerAndGroupStay) {
    sim::DeviceDescription device = phone();
    device.security = "O:BAG:SYD:(A;;0x1f01ff;;;WD)";
    EXPECT_EQ(plug(device).security(), "O:BAG:SYD:(D;;0x2;;;WD)(A;;0x1f01ff;;;WD)");
}

TEST_F(DenyWrite, AnEmptyAccessListGetsTheEntryAlone) {
    sim::DeviceDescription device = phone();
    device.security = "D:";
    EXPECT_EQ(plug(device).security(), "D:(D;;0x2;;;WD)");
}

TEST_F(DenyWrite, ANewDeviceObjectGetsItOnce) {
    sim::DeviceNode &node = plug(phone());
    EXPECT_EQ(machine().replug(node).security(),
              "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;SY)(A;;0x1f01ff;;;BA)(A;;0x1201bf;;;WD)");
}

TEST_F(DenyWrite, GoesWhenThePhoneIsAllowed) {
    sim::DeviceNode &node = plug(phone());
    apply(allowing({u"*"}));
    EXPECT_EQ(machine().replug(node).security(), usualSecurity);
}

TEST_F(DenyWrite, TheFunctionOfACompositePhoneGetsItAndThePhoneDoesNot) {
    sim::DeviceDescription device = sim::usbCompositeDevice(
        "phone", {0x05AC, 0x12A8, 0x0E04, u"Apple Inc.", u"iPhone", u"00008030000E28A13C62802E"},
        {sim::usbPtpFunction("pictures"),
         {"keys", {0x03, 0, 0}, u"HidUsb", std::u16string(sim::machine::setup::humanInterface.guid)}});
    device.security = usualSecurity;
    device.children[0].security = usualSecurity;
    plug(device);
    EXPECT_EQ(deviceNode("phone").security(), usualSecurity);
    EXPECT_EQ(deviceNode("pictures").security(),
              "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;SY)(A;;0x1f01ff;;;BA)(A;;0x1201bf;;;WD)");
}

TEST_F(DenyWrite, AnAccessListThatFillsTheBufferToTheLastByteFits) {
    sim::DeviceDescription device = phone();
    std::string entries;
    for (int count = 0; count < 9; ++count) {
        entries += "(A;;0x1;;;WD)"; // 20 bytes each
    }
    device.security = "D:" + entries + "(A;;0x1;;;BA)(A;;0x1;;;BA)"; // 24 each: 236 in all, with the header
    EXPECT_EQ(plug(device).security(), "D:(D;;0x2;;;WD)" + entries + "(A;;0x1;;;BA)(A;;0x1;;;BA)");
}

} // namespace
} // namespace behaviour
