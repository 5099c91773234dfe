#include "living_machine.h"

#include "driver/usb_filter_device.h"
#include "lasting_driver.h"
#include "require.h"
#include "simulator/framework/framework.h"
#include "simulator/machine/usb_device.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace fuzz {

namespace {

/// A machine keeps what it knew of each device until its end.
constexpr std::size_t inputsPerMachine = 400;

std::vector<std::uint8_t> dword(std::uint32_t number) {
    return {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
            static_cast<std::uint8_t>(number >> 16), static_cast<std::uint8_t>(number >> 24)};
}

std::string joined(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += "\n  " + line;
    }
    return text;
}

std::optional<Outcome::Filter> filterOf(PDEVICE_OBJECT device) {
    const auto *context =
        static_cast<const UsbFilterDevice *>(sim::framework::contextOfDevice(device, "UsbFilterDevice"));
    if (context == nullptr) {
        return std::nullopt;
    }
    return Outcome::Filter{context->filterable, static_cast<ULONG>(context->mode),
                           static_cast<ULONG>(context->ruleType), context->message};
}

} // namespace

LivingMachine &LivingMachine::instance(const MachineSettings &settings) {
    static LivingMachine one(settings);
    return one;
}

LivingMachine::LivingMachine(MachineSettings settings) : settings_(std::move(settings)) {
    start();
}

LivingMachine::~LivingMachine() {
    stop();
}

void LivingMachine::start() {
    sim::MachineOptions options;
    options.openImage = openLastingDriver;
    options.hubDrivers = settings_.hubDrivers;
    machine_.emplace(std::move(options));
    machine_->presetClassFilters();
    machine_->setObserver(this);
    machine_->rootHub();
    logging_ = false;
    for (const auto &[name, number] : settings_.numbers) {
        setParameter(name, REG_DWORD, dword(number));
    }
    load();
    deleteParameters();
    plug(sim::usbVendorDevice("first", {1, 2})); // what is made once and stays
    unplugAll();
    before_ = usage();
}

void LivingMachine::stop() {
    unplugAll();
    unload();
    machine_->setObserver(nullptr);
    machine_.reset();
}

DriverContext &LivingMachine::driver() {
    return *static_cast<DriverContext *>(sim::framework::contextOfDriver(machine_->driverObject(), "DriverContext"));
}

void LivingMachine::setParameter(std::u16string_view name, std::uint32_t type, std::vector<std::uint8_t> data) {
    registry().setValue(sim::Machine::parametersKey(), name, type, std::move(data));
}

void LivingMachine::deleteParameters() {
    registry().deleteKey(sim::Machine::parametersKey());
    registry().makeKey(sim::Machine::parametersKey());
}

void LivingMachine::reloadLogLevel() {
    std::vector<std::uint8_t> none;
    control(IOCTL_RELOAD_LOG_SETTINGS, none);
}

void LivingMachine::setLogging(bool on) {
    setParameter(u"LogLevel", REG_DWORD, dword(on ? 4 : 0));
    if (logging_ != on) {
        reloadLogLevel();
        logging_ = on;
    }
}

void LivingMachine::unload() {
    machine_->unloadDriver();
    const std::vector<std::string> leaks = machine_->leaks();
    require(leaks.empty(), "the unloaded driver leaves nothing behind:" + joined(leaks));
}

void LivingMachine::load() {
    require(machine_->loadDriver() == STATUS_SUCCESS, "the driver loads");
    control_ = &machine_->plugControlNode();
    require(control_->started(), "the control node starts");
}

NTSTATUS LivingMachine::control(ULONG code, std::vector<std::uint8_t> &output) {
    PDEVICE_OBJECT top = IoGetAttachedDeviceReference(control_->physicalDevice());
    ULONG_PTR information = 0;
    const NTSTATUS status = FsRtlIssueDeviceIoControl(top, code, 0, nullptr, 0, output.data(),
                                                      static_cast<ULONG>(output.size()), &information);
    ObDereferenceObject(top);
    require(information <= output.size(), "a control code tells no more than its buffer holds");
    return status;
}

Outcome LivingMachine::plug(const sim::DeviceDescription &device, sim::DeviceNode *parent) {
    awaited_ = device.name;
    added_.reset();
    plugged_.push_back(device.name);
    return outcomeOf(machine_->plug(device, parent));
}

Outcome LivingMachine::outcomeOf(sim::DeviceNode &node) {
    Outcome outcome = added_.value_or(Outcome());
    outcome.started = node.started();
    outcome.problemCode = node.problemCode();
    outcome.hidden = node.hidden();
    outcome.deniesWriting = node.security().find("(D;;0x2;;;WD)") != std::string::npos;
    return outcome;
}

void LivingMachine::unplugAll() {
    for (; !plugged_.empty(); plugged_.pop_back()) {
        if (sim::DeviceNode *node = machine_->find(plugged_.back())) {
            machine_->unplug(*node);
        }
    }
}

void LivingMachine::endInput(std::size_t rules) {
    unplugAll();
    Usage now = usage();
    // A thread that completed a request for the driver may still be on its way out.
    for (int waited = 0; waited < 200 && now.objects != before_.objects; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        now = usage();
    }
    const std::size_t expected = before_.blocks + 2 * rules; // an entry and its text
    if (now.blocks != expected || now.handles != before_.handles || now.objects != before_.objects) {
        require(false, "an input leaves nothing behind; blocks " + std::to_string(now.blocks) + " instead of " +
                           std::to_string(expected) + ", handles " + std::to_string(now.handles) + " instead of " +
                           std::to_string(before_.handles) + ", framework objects " + std::to_string(now.objects) +
                           " instead of " + std::to_string(before_.objects) + joined(machine_->leaks()));
    }
    renewNowAndThen();
}

void LivingMachine::endInput() {
    unplugAll();
    renewNowAndThen();
}

void LivingMachine::renewNowAndThen() {
    if (++inputs_ % inputsPerMachine == 0) {
        stop();
        start();
    }
}

LivingMachine::Usage LivingMachine::usage() {
    sim::Kernel &kernel = machine_->kernel();
    machine_->settle();
    const std::size_t logFiles = driver().logger.file != nullptr ? 1 : 0;             // stays open
    const std::size_t text = driver().notUsbHubText.view().Buffer != nullptr ? 1 : 0; // stays, too
    return {kernel.pool.blocksInUse() - text, kernel.objects.handlesInUse() - logFiles,
            sim::framework::liveObjectCountWithoutSentRequests()};
}

void LivingMachine::addFinished(const sim::AddReport &report) {
    if (report.node->description().name != awaited_) {
        return;
    }
    Outcome outcome;
    outcome.asked = true;
    outcome.attached = report.attached != nullptr;
    if (outcome.attached) {
        outcome.filter = filterOf(report.attached);
    }
    added_ = outcome;
}

} // namespace fuzz
