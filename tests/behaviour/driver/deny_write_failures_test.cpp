#include "tests/behaviour/support/devices.h"
#include "tests/behaviour/support/log_lines.h"

#include <cctype>

namespace behaviour {
namespace {

/// A phone that cannot be made read-only does not start at all.
class FailedDenyWrite : public DriverTest {
  protected:
    FailedDenyWrite() {
        apply(policy);
        start();
    }
    /// Code 31, both lines, no notification, access list untouched.
    void expectFailure(const sim::DeviceDescription &device, NTSTATUS status, const std::string &hexStatus) {
        sim::DeviceNode &node = plug(device);
        EXPECT_EQ(node.problemCode(), 31U);
        EXPECT_EQ(node.problemStatus(), status);
        EXPECT_FALSE(node.everStarted());
        EXPECT_EQ(node.security(), device.security);
        EXPECT_EQ(addOf("phone").callbackStatus, status);
        EXPECT_EQ(addOf("phone").log,
                  lines::all(lines::created(ids), lines::searched({"\\Driver\\USBHUB3"}), lines::reload(policy),
                             lines::judged(policy, ids, u"8A2X0RDFR", false, true),
                             Lines{"INFO Check request ReadOnlyUnlisted, result = 1",
                                   "INFO Process rules, UsbMode::ReadOnly, mtp or ptp, name = \\Driver\\USBHUB3",
                                   "ERROR Failed to make mtp or ptp read only, status = 0x" + hexStatus},
                             lines::removedFromRegister(ids),
                             Lines{"ERROR Failed to process rules, status = 0x" + hexStatus}));
        machine().unplug(node);
    }
    const Policy policy = readOnly({u"*"});
    const std::vector<std::u16string> ids = idsOf(phone());
};

TEST_F(FailedDenyWrite, ADeviceWithoutSecurityHasNoListToPutItIn) {
    sim::DeviceDescription device = phone();
    device.security = "";
    sim::DeviceNode &node = plug(device);
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_FALSE(node.everStarted());
    const Lines &log = addOf("phone").log;
    ASSERT_GE(log.size(), 3U);
    EXPECT_THAT(log[log.size() - 3], testing::StartsWith("ERROR Failed to make mtp or ptp read only, status = 0xc0"));
    EXPECT_THAT(log.back(), testing::StartsWith("ERROR Failed to process rules, status = 0xc0"));
}

TEST_F(FailedDenyWrite, AnOwnerAloneIsNoListEither) {
    sim::DeviceDescription device = phone();
    device.security = "O:BAG:SY";
    sim::DeviceNode &node = plug(device);
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_FALSE(node.everStarted());
}

TEST_F(FailedDenyWrite, AListWithoutRoomForOneMoreEntry) {
    sim::DeviceDescription device = phone();
    device.security = "D:";
    for (int count = 0; count < 12; ++count) {
        device.security += "(A;;0x1;;;WD)"; // 8 + 12 * 20 = 248 of 256 bytes
    }
    expectFailure(device, STATUS_BUFFER_TOO_SMALL, "c0000023");
}

TEST_F(FailedDenyWrite, AListThatIsTooLargeItself) {
    sim::DeviceDescription device = phone();
    device.security = "D:";
    for (int count = 0; count < 13; ++count) {
        device.security += "(A;;0x1;;;WD)";
    }
    expectFailure(device, STATUS_BUFFER_TOO_SMALL, "c0000023");
}

TEST_F(FailedDenyWrite, EveryStepThatCanFail) {
    const struct {
        const char *routine;
        std::uint64_t nth;
        NTSTATUS status;
        const char *hexStatus;
    } steps[] = {
        {"ObOpenObjectByPointer", 1, STATUS_ACCESS_DENIED, "c0000022"},
        {"ZwQuerySecurityObject", 1, STATUS_ACCESS_DENIED, "c0000022"},
        {"ZwQuerySecurityObject", 2, STATUS_BUFFER_TOO_SMALL, "c0000023"},
        {"ZwSetSecurityObject", 1, STATUS_INVALID_SECURITY_DESCR, "c0000079"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(std::string(step.routine) + " " + std::to_string(step.nth));
        failInAdd(step.routine, step.nth, step.status);
        expectFailure(phone(), step.status, step.hexStatus);
    }
}

TEST_F(FailedDenyWrite, NoFallibleCallLeavesAJudgedPhoneWritable) {
    setParameter(u"LogLevel", 0);
    unload();
    start();
    unsigned failedAdds = 0;
    failEachCallOfAdd([&] {
        sim::DeviceNode &node = plug(phone());
        const Add &add = addOf("phone");
        const bool denied = node.security().find("(D;;0x2;;;WD)") != std::string::npos;
        failedAdds += node.problemCode() == 31 ? 1 : 0;
        if (node.started() && add.filter && add.filter->filterable != 0) {
            EXPECT_EQ(add.filter->mode, 3U);
            EXPECT_TRUE(denied);
        }
        EXPECT_EQ(add.returned, *add.callbackStatus);
        machine().unplug(node);
    });
    EXPECT_GE(failedAdds, 5U);
}

TEST_F(FailedDenyWrite, ThePhoneStartsWhenNothingFailsAnyMore) {
    failInAdd("ZwSetSecurityObject");
    sim::DeviceNode &node = plug(phone());
    EXPECT_EQ(node.problemCode(), 31U);
    EXPECT_TRUE(machine().replug(node).started());
}

} // namespace
} // namespace behaviour
