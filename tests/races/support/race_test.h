#pragma once

#include "simulator/kernel/interleaving.h"
#include "simulator/machine/machine.h"
#include "simulator/machine/usb_device.h"
#include "tests/behaviour/support/policy.h"
#include "tests/races/support/threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace races {

/// What became of the latest add of a device.
struct Decision {
    NTSTATUS returned = STATUS_SUCCESS; ///< what Plug and Play got
    std::uint32_t mode = 0;             ///< of the driver's filter: 0 unknown, 1 blocked, 2 allowed, 3 read-only
    std::uint32_t filterable = 0;
    std::uint32_t ruleType = 0;
    std::u16string serial; ///< as the service is told
};

/// A machine with the driver and its control device, whose work items run freely in four threads. May be used from
/// several threads at once, but for start and unload. Whatever the driver leaves behind after its unload fails the
/// test.
class RaceTest : public testing::Test, protected sim::MachineObserver {
  protected:
    RaceTest() { sim::setInterleaving(true); }
    ~RaceTest() override { sim::setInterleaving(false); }

    /// Made at the first call, from `options` as they are then.
    sim::Machine &machine();
    sim::Kernel &kernel() { return machine().kernel(); }
    sim::MachineOptions options;

    void setParameter(std::u16string_view name, std::uint32_t number);
    void setList(std::u16string_view name, const behaviour::RuleList &list);
    void apply(const behaviour::Policy &policy);

    /// Loads the driver and plugs the control node and the root hub.
    void start();
    sim::DeviceNode &control() { return *control_; }
    void unload();
    Decision decisionOf(const std::string &device);

    /// Sends a control code that the driver does not know. It logs one line, with the number of the code in it.
    void logNumbered(std::uint32_t number);
    static std::string numberedLine(std::uint32_t number);
    /// Every line of every log file without its time. A line that is not whole fails the test.
    std::vector<std::string> lines();
    /// How often each line that begins so is in the log.
    std::map<std::string, unsigned> countLines(std::string_view beginning);
    /// Fails the test unless lines(first … first + count - 1) of every thread are in the log once each.
    void expectNumberedLines(unsigned threads, std::uint32_t count);
    /// The number of a thread's nth line.
    static std::uint32_t numberOf(unsigned thread, std::uint32_t nth) { return thread * 100'000 + nth; }

    /// Waits until nothing goes on in the machine. Questions end by their time-out, so the clock must go on.
    void awaitQuiet();
    /// A request of a service that a pass holds when the question for it is gone may be forgotten by the driver, which
    /// keeps its process and the device. Once all is quiet this gives it back; fails the test unless `driverMayForget`.
    void completeForgotten();
    bool driverMayForget = false;

    void TearDown() override;
    void addFinished(const sim::AddReport &report) override;

  private:
    std::optional<sim::Machine> machine_;
    sim::DeviceNode *control_ = nullptr;
    std::mutex decisionsMutex_;
    std::map<std::string, Decision> decisions_;
};

/// A flash drive with that serial number; "NAME disk" is its disk.
sim::DeviceDescription drive(const std::string &name, const std::string &serial);
/// The same with names made of the two numbers: "drive3-14", serial number "S3X14".
sim::DeviceDescription numberedDrive(unsigned thread, unsigned round);
std::string driveName(unsigned thread, unsigned round);
/// What a rule for that one drive says.
std::u16string ruleFor(const std::string &serial);
std::string serialOf(unsigned thread, unsigned round);

inline constexpr std::uint32_t modeUnknown = 0;
inline constexpr std::uint32_t modeBlocked = 1;
inline constexpr std::uint32_t modeAllowed = 2;
inline constexpr std::uint32_t modeReadOnly = 3;
inline constexpr std::uint32_t ruleTypeReadOnlyUnlisted = 5;
inline constexpr std::uint32_t problemDisabled = 29;

} // namespace races
