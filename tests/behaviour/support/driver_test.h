#pragma once

#include "simulator/machine/machine.h"
#include "simulator/machine/usb_device.h"
#include "tests/behaviour/support/policy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace behaviour {

/// Lines of the driver's log without their time, e.g. "INFO Driver start". Lists keep their NULs.
using Lines = std::vector<std::string>;

/// Inner values of the driver's filter on a USB device at the end of its add.
struct FilterValues {
    std::uint32_t filterable = 0;
    std::uint32_t mode = 0;     ///< 0 unknown, 1 blocked, 2 allowed, 3 read-only
    std::uint32_t ruleType = 0; ///< 1 not filterable, 2 allowed, 3 blocked, 4 read-only, 5 read-only unlisted
    std::vector<std::uint8_t> message;
};

/// One call of the driver's AddDevice routine.
struct Add {
    std::string device;
    NTSTATUS returned = 0;                  ///< what Plug and Play got
    std::optional<NTSTATUS> callbackStatus; ///< what the driver's device-add routine returned to the framework
    bool attached = false;                  ///< a device object of the driver is in the stack afterwards
    std::optional<FilterValues> filter;     ///< of a USB filter
    Lines log;
};

/// A machine that loads the driver. The driver logs at INFO and is registered as class filter from the start, as an
/// earlier start of the control node leaves it. Whatever the driver leaves behind after its unload fails the test.
class DriverTest : public testing::Test, protected sim::MachineObserver {
  protected:
    DriverTest();

    /// Made at the first call, from `options` as they are then.
    sim::Machine &machine();
    sim::Kernel &kernel() { return machine().kernel(); }
    sim::Registry &registry() { return kernel().registry; }
    sim::MachineOptions options;

    void setParameter(std::u16string_view name, std::uint32_t number);
    void setParameter(std::u16string_view name, std::uint32_t type, std::vector<std::uint8_t> data);
    void apply(const Policy &policy);

    void load();              ///< and forgets the lines that this logs
    sim::DeviceNode &start(); ///< loads, plugs the control node, forgets the lines
    sim::DeviceNode &plug(sim::DeviceDescription device, sim::DeviceNode *parent = nullptr);
    void unload();                        ///< and lets a second pass, so that the next load has a log file of its own
    void unplug(std::string_view device); ///< if it is there

    /// Lines that were logged since the last call.
    Lines takeLog();
    /// The latest add of the device with that name; fails the test when there was none.
    const Add &addOf(std::string_view device);
    /// Inner values of the filter in that add. Throws when there is none.
    const FilterValues &filterOf(std::string_view device);
    /// The device that is plugged under that name. Throws when there is none.
    sim::DeviceNode &deviceNode(std::string_view device);
    bool wasAdded(std::string_view device) const;
    std::vector<Add> adds; ///< in order

    /// From the nth call of the routine in the next add on, or for that call alone, the routine fails. Counted from the
    /// beginning of the add.
    void failInAdd(std::string routine, std::uint64_t nth = 1, std::optional<NTSTATUS> status = {},
                   bool andAllAfter = false);
    /// Runs `attempt`, whose first add meets a failure, once for each fallible call of that add, and at last for none.
    void failEachCallOfAdd(const std::function<void()> &attempt);
    /// Fails the nth call of the routine from now on, whoever makes it.
    void failCall(std::string routine, std::uint64_t nth = 1, std::optional<NTSTATUS> status = {},
                  bool andAllAfter = false);
    void endFailures();
    /// Does something again and again, each call that can fail failing in turn, once alone and once with all after it.
    void failEachCall(const std::function<void()> &action);

    void TearDown() override;

    void addStarting(sim::DeviceNode &node) override;
    void addFinished(const sim::AddReport &report) override;

  private:
    const Lines &logSoFar();
    std::recursive_mutex recording_;             ///< devices may be plugged by several threads
    Lines log_;                                  ///< every line of every log file, in the order of writing
    std::map<std::string, std::size_t> logRead_; ///< bytes of each file that are in log_
    std::size_t linesTaken_ = 0;
    std::size_t linesBeforeAdd_ = 0;
    bool armedForAdd_ = false;
    std::uint64_t callsOfAdd_ = 0; ///< fallible ones, of the latest add that was armed
    std::optional<sim::Machine> machine_;
};

/// Bytes of UTF-16 text, without a terminator of its own.
std::vector<std::uint8_t> bytesOf(std::u16string_view text);

/// Where programs open the control device.
inline constexpr std::u16string_view linkName = u"\\DosDevices\\Tarvenholt Myrtelhaven";
inline constexpr std::u16string_view ourDriver = u"\\Driver\\TarvenholtMyrtelhavenDriver";

} // namespace behaviour
