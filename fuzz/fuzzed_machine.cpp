#include "fuzzed_machine.h"

#include "driver/usb_filter_device.h"
#include "myrtelhaven_service.h"
#include "simulator/framework/framework.h"
#include "simulator/kernel/kernel.h"
#include "simulator/machine/usb_device.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {
namespace {

/// Looks at the filter while its device add is being reported: a device that is blocked loses it at once.
class Watcher : public sim::MachineObserver {
  public:
    Outcome outcome;

    void addFinished(const sim::AddReport &report) override {
        if (report.node->description().name != "fuzzed") {
            return;
        }
        outcome.added = true;
        outcome.returned = report.returned;
        const auto *filter = report.attached == nullptr
                                 ? nullptr
                                 : static_cast<const UsbFilterDevice *>(
                                       sim::framework::contextOfDevice(report.attached, "UsbFilterDevice"));
        if (filter != nullptr) {
            outcome.hasFilter = true;
            outcome.filterable = filter->filterable;
            outcome.mode = static_cast<std::uint32_t>(filter->mode);
        }
    }
} watcher;

sim::DeviceNode *controlNode = nullptr;

std::unique_ptr<sim::Machine> makeMachine() {
    auto made = std::make_unique<sim::Machine>();
    made->presetClassFilters();
    made->setObserver(&watcher);
    require(made->loadDriver() == STATUS_SUCCESS, "the driver loads");
    controlNode = &made->plugControlNode();
    made->rootHub();
    return made;
}

} // namespace

sim::Machine &machine() {
    // Never ended: see the header.
    static sim::Machine *const instance = makeMachine().release();
    return *instance;
}

void setParameter(const std::u16string &name, std::optional<std::uint32_t> type, std::vector<std::uint8_t> data) {
    sim::Registry &registry = machine().kernel().registry;
    if (type) {
        registry.setValue(sim::Machine::parametersKey(), name, *type, std::move(data));
    } else {
        registry.deleteValue(sim::Machine::parametersKey(), name);
    }
}

void setLogging(bool on) {
    static bool isOn = false; // the value is absent at first
    if (on == isOn) {
        return;
    }
    isOn = on;
    machine().kernel().registry.setDword(sim::Machine::parametersKey(), u"LogLevel", on ? 4 : 0);
    PDEVICE_OBJECT top = IoGetAttachedDeviceReference(controlNode->physicalDevice());
    ULONG_PTR information = 0;
    require(
        NT_SUCCESS(FsRtlIssueDeviceIoControl(top, IOCTL_RELOAD_LOG_SETTINGS, 0, nullptr, 0, nullptr, 0, &information)),
        "the log level is read again");
    ObDereferenceObject(top);
}

void setUsualPolicy() {
    sim::Registry &registry = machine().kernel().registry;
    registry.setString(sim::Machine::parametersKey(), u"BlockedCompatibleIds",
                       u"Class_e0 Class_ff Class_0b Class_06 Class_08 MS_COMP_MTP MS_COMP_PTP");
    registry.setMultiString(sim::Machine::parametersKey(), u"AllowedHardwareIds", {});
    registry.setMultiString(sim::Machine::parametersKey(), u"ReadOnlyHardwareIds", {});
}

namespace {

/// Blocks that the driver holds with nothing plugged in and the usual rules read.
std::size_t blocksAtRest() {
    sim::Machine &host = machine();
    setUsualPolicy();
    sim::DeviceNode &probe = host.plug(sim::usbVendorDevice("probe", {0x1234, 0x5678}));
    host.settle();
    host.unplug(probe);
    host.settle();
    return host.kernel().pool.blocksInUse();
}

/// Rules stay in memory until the next decision, so that the question costs a device of its own: it is asked after the
/// first input, which is the one that is tried again, and after every sixteenth.
void requireNothingLeft() {
    static const std::size_t atRest = blocksAtRest();
    static unsigned inputs = 0;
    if (inputs++ % 16 == 0) {
        require(blocksAtRest() == atRest, "a device that is gone leaves no memory behind");
    }
}

} // namespace

Outcome plugAndUnplug(const sim::DeviceDescription &device) {
    sim::Machine &host = machine();
    watcher.outcome = {};
    sim::DeviceNode *node = nullptr;
    try {
        node = &host.plug(device);
    } catch (const std::invalid_argument &) {
        return {}; // no bus could report such a device
    }
    host.settle();
    Outcome outcome = watcher.outcome;
    outcome.started = node->started();
    outcome.problem = node->problemCode();
    if (sim::DeviceNode *present = host.find("fuzzed")) {
        host.unplug(*present);
    }
    host.settle();
    requireNothingLeft();
    return outcome;
}

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

std::vector<std::uint8_t> bytes(FuzzedDataProvider &data, std::size_t most) {
    return data.ConsumeBytes<std::uint8_t>(data.ConsumeIntegralInRange<std::size_t>(0, most));
}

} // namespace fuzz
