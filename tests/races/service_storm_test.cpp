// Everything at once: devices come and go, processes open, close, die, reply, list, read, rescan and reload, while the
// policy and the log level change.

#include "myrtelhaven_service.h"
#include "tests/behaviour/support/control_code.h"
#include "tests/behaviour/support/driver_state.h"
#include "tests/races/support/race_test.h"
#include "tests/races/support/service.h"
#include "tests/races/support/ticker.h"

#include <atomic>
#include <thread>

namespace races {
namespace {

constexpr unsigned pluggingThreads = 3;
constexpr unsigned policyThread = pluggingThreads; // the others are threads of service processes
constexpr unsigned roundsOfDevices = 8;            // at least; more as long as no service was asked or told in time
constexpr unsigned roundThatStays = 50'000;
constexpr unsigned turnsOfALife = 6;

enum class Role { asked, told };

class ServiceStorm : public RaceTest, public testing::WithParamInterface<Role> {
  protected:
    ServiceStorm() {
        options.hubDrivers = {u"USBHUB3", u"USBHUB"};
        driverMayForget = true; // a question may time out in the middle of a pass
        setParameter(u"CallbackMode", isAsked() ? 1 : 0);
        setParameter(u"CallbackTimeout", 5);
        setPolicy(modeBlocked);
    }
    static bool isAsked() { return GetParam() == Role::asked; }
    /// What becomes of every drive.
    void setPolicy(std::uint32_t mode) {
        apply(mode == modeAllowed    ? behaviour::allowing({u"VID_0781*"})
              : mode == modeReadOnly ? behaviour::readOnly({u"VID_0781*"})
                                     : behaviour::Policy{});
    }
    NTSTATUS rescan() { return behaviour::sendControlCode(control(), IOCTL_RESCAN_DEVICES).status; }

    void storm();
    void plugAndUnplug(unsigned thread);
    void changePolicyAndLevel(unsigned round);
    void live(unsigned thread, unsigned life);
    void use(Service &service, unsigned what);

    std::atomic<unsigned> pluggers = pluggingThreads;
    std::atomic<unsigned> shown = 0; ///< questions answered, decisions told
};

void ServiceStorm::plugAndUnplug(unsigned thread) {
    for (unsigned round = 0; round < roundsOfDevices || shown == 0; ++round) {
        sim::DeviceDescription device = numberedDrive(thread, round);
        device.usb->answersLater = round % 3 == 1;
        const bool isRemote = round % 3 == 2;
        if (isRemote) {
            device.busDriver = u"redirector";
        }
        machine().plug(device, isRemote ? &machine().rootNode() : nullptr);
        logNumbered(numberOf(thread, round));
        // A rescan may just be cycling it.
        if (sim::DeviceNode *node = machine().find(driveName(thread, round))) {
            machine().unplug(*node);
        }
    }
    machine().plug(numberedDrive(thread, roundThatStays));
    --pluggers;
}

void ServiceStorm::changePolicyAndLevel(unsigned round) {
    setPolicy(modeBlocked + round % 3);
    setParameter(u"LogLevel", round % 4 == 3 ? 1 : 4);
    std::this_thread::yield();
}

/// Two processes with two threads each, so that one of them is often kept out.
void ServiceStorm::live(unsigned thread, unsigned life) {
    Service service(100 + thread % 2, isAsked() ? 2 : 0,
                    [](const std::u16string &serial) { return serial.ends_with(u'0') ? modeAllowed : modeReadOnly; });
    if (!service.isOpen()) {
        EXPECT_EQ(service.openStatus(), STATUS_ACCESS_DENIED);
        std::this_thread::yield();
        return;
    }
    const auto park = [&] { return service.begin(IOCTL_WAIT_NOTIFICATION, sizeof(NotificationInfo)); };
    sim::UserProcess::Io parked = isAsked() ? nullptr : park();
    for (unsigned turn = 0; turn < turnsOfALife && pluggers != 0; ++turn) {
        shown += service.work();
        if (parked != nullptr && parked->isBack()) {
            EXPECT_EQ(parked->status(), STATUS_SUCCESS);
            EXPECT_EQ(parked->information(), sizeof(NotificationInfo));
            ++shown;
            parked = park();
        }
        use(service, turn + life);
    }
    if (life % 3 == 2) {
        service.die();
    }
}

void ServiceStorm::use(Service &service, unsigned what) {
    switch (what % 5) {
    case 0: {
        const auto listed = service.control(IOCTL_GET_PROCESSED_DEVICES, 64 * sizeof(ProcessedDeviceInfo));
        EXPECT_TRUE(listed->status() == STATUS_SUCCESS || listed->status() == STATUS_BUFFER_TOO_SMALL)
            << listed->status(); // the latter when a device comes while the hub driver's are counted
        EXPECT_EQ(listed->information() % sizeof(ProcessedDeviceInfo), 0U);
        break;
    }
    case 1: {
        const auto text = service.control(IOCTL_GET_NOT_USBHUB_DEVICES, MYRTELHAVEN_NOT_USBHUB_BYTES);
        EXPECT_EQ(text->status(), STATUS_SUCCESS);
        break;
    }
    case 2:
        EXPECT_EQ(service.control(IOCTL_RELOAD_LOG_SETTINGS)->status(), STATUS_SUCCESS);
        break;
    case 3:
        service.control(IOCTL_RESCAN_DEVICES); // may meet a device that has just gone
        break;
    default:
        EXPECT_EQ(service.control(IOCTL_PING)->status(), STATUS_SUCCESS);
        break;
    }
}

void ServiceStorm::storm() {
    together([this](unsigned thread) {
        if (thread < pluggingThreads) {
            plugAndUnplug(thread);
            return;
        }
        for (unsigned round = 0; pluggers != 0; ++round) {
            if (thread == policyThread) {
                changePolicyAndLevel(round);
            } else {
                live(thread, round);
            }
        }
    });
    awaitQuiet(); // rescans cycle ports, and who comes back asks again
    completeForgotten();
}

TEST_P(ServiceStorm, LeavesEveryDeviceUnderTheLastPolicyAndTheLogWhole) {
    start();
    const Ticker ticker(kernel().clock);
    storm();
    EXPECT_EQ(behaviour::driverState(machine()).controlDevice->m_openCount, 0U);
    EXPECT_EQ(behaviour::driverState(machine()).controlDevice->m_processId, 0U);
    for (const std::uint32_t policy : {modeBlocked, modeReadOnly, modeAllowed}) { // by the rules, without a service
        setPolicy(policy);
        EXPECT_EQ(rescan(), STATUS_SUCCESS);
        machine().settle();
        for (unsigned thread = 0; thread < pluggingThreads; ++thread) {
            const std::string name = driveName(thread, roundThatStays);
            sim::DeviceNode *node = machine().find(name);
            ASSERT_NE(node, nullptr);
            EXPECT_EQ(decisionOf(name).returned, STATUS_SUCCESS);
            EXPECT_EQ(decisionOf(name).mode, policy) << name;
            EXPECT_EQ(node->problemCode(), policy == modeBlocked ? problemDisabled : 0) << name;
        }
    }
    for (const auto &[line, count] : countLines("INFO onIoDeviceControl")) {
        if (line.find("code = 2147") != std::string::npos) { // the plugging threads' own
            EXPECT_EQ(count, 1U) << line;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Service, ServiceStorm, testing::Values(Role::asked, Role::told),
                         [](const auto &role) { return role.param == Role::asked ? "Asked" : "Told"; });

} // namespace
} // namespace races
