#pragma once

#include "driver/driver_context.h"
#include "myrtelhaven_service.h"
#include "simulator/machine/machine.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {

/// What came of a device.
struct Outcome {
    bool asked = false;    ///< the driver's AddDevice was called
    bool attached = false; ///< and put a device object into the stack
    bool started = false;
    ULONG problemCode = 0;
    bool hidden = false;
    bool deniesWriting = false; ///< everyone is denied writing by the first entry of the access list
    /// Of the driver's USB filter at the end of the add.
    struct Filter {
        ULONG filterable = 0;
        ULONG mode = 0;
        ULONG ruleType = 0;
        ServiceMessage message{};
    };
    std::optional<Filter> filter;
};

/// What a living machine is made with.
struct MachineSettings {
    std::vector<std::u16string> hubDrivers{u"USBHUB3"};
    std::map<std::u16string, std::uint32_t> numbers{}; ///< under Parameters when the driver loads
};

/// A machine with the driver loaded, its control node started and a root hub, which lives for many inputs. After each
/// of them it must be as before.
class LivingMachine : sim::MachineObserver {
  public:
    /// Made with the first call, which may say how. One in a process.
    static LivingMachine &instance(const MachineSettings &settings = {});
    ~LivingMachine() override;

    sim::Machine &machine() { return *machine_; }
    sim::Registry &registry() { return machine_->kernel().registry; }
    DriverContext &driver();
    sim::DeviceNode &controlNode() { return *control_; }

    void setParameter(std::u16string_view name, std::uint32_t type, std::vector<std::uint8_t> data);
    void deleteParameters(); ///< every value; the key stays
    /// Has the driver read LogLevel again.
    void reloadLogLevel();
    void setLogging(bool on);
    /// Unloads the driver, after which nothing may be left of it.
    void unload();
    void load();
    /// Sends a control code to the control device; `output` is its buffer and its room.
    NTSTATUS control(ULONG code, std::vector<std::uint8_t> &output);

    Outcome plug(const sim::DeviceDescription &device, sim::DeviceNode *parent = nullptr);
    /// What stands now of a device that was plugged.
    Outcome outcomeOf(sim::DeviceNode &node);
    /// Every device that was plugged in this input and is still there.
    void unplugAll();
    /// Ends an input: devices go, and no pool, handle or framework object may be left beyond `rules` rules of the
    /// driver's. Now and then everything starts anew.
    void endInput(std::size_t rules);
    /// The same without the counts, for what may end with another number of blocks for good reasons.
    void endInput();

  private:
    explicit LivingMachine(MachineSettings settings);
    void start();
    void stop();
    void renewNowAndThen();

    struct Usage {
        std::size_t blocks = 0;
        std::size_t handles = 0;
        std::size_t objects = 0; ///< without the requests of exchanges, which stay until the driver goes
    };
    Usage usage();
    void addFinished(const sim::AddReport &report) override;

    const MachineSettings settings_;
    std::optional<sim::Machine> machine_;
    sim::DeviceNode *control_ = nullptr;
    std::vector<std::string> plugged_; ///< names
    std::optional<Outcome> added_;     ///< of the latest device that was plugged
    std::string awaited_;
    Usage before_; ///< without a rule
    std::size_t inputs_ = 0;
    bool logging_ = false;
};

} // namespace fuzz
