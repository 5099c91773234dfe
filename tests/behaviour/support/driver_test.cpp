#include "driver_test.h"

#include "driver/usb_filter_device.h"
#include "simulator/framework/framework.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace behaviour {

namespace {

/// "2024-03-07 9:05:01.042 INFO Driver start" without its two words of time.
std::string withoutTime(const std::string &line) {
    const std::size_t date = line.find(' ');
    const std::size_t time = date == std::string::npos ? date : line.find(' ', date + 1);
    return time == std::string::npos ? "(no time) " + line : line.substr(time + 1);
}

std::optional<FilterValues> filterValues(PDEVICE_OBJECT device) {
    if (device == nullptr) {
        return std::nullopt;
    }
    const auto *context =
        static_cast<const UsbFilterDevice *>(sim::framework::contextOfDevice(device, "UsbFilterDevice"));
    if (context == nullptr) {
        return std::nullopt;
    }
    FilterValues values;
    values.filterable = context->filterable;
    values.mode = static_cast<std::uint32_t>(context->mode);
    values.ruleType = static_cast<std::uint32_t>(context->ruleType);
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(&context->message);
    values.message.assign(bytes, bytes + sizeof(context->message));
    return values;
}

} // namespace

std::vector<std::uint8_t> bytesOf(std::u16string_view text) {
    std::vector<std::uint8_t> bytes(text.size() * sizeof(char16_t));
    if (!bytes.empty()) {
        std::memcpy(bytes.data(), text.data(), bytes.size());
    }
    return bytes;
}

DriverTest::DriverTest() = default;

sim::Machine &DriverTest::machine() {
    if (!machine_) {
        machine_.emplace(options);
        machine_->presetClassFilters();
        machine_->setObserver(this);
        machine_->kernel().registry.setDword(sim::Machine::parametersKey(), u"LogLevel", 4);
    }
    return *machine_;
}

void DriverTest::setParameter(std::u16string_view name, std::uint32_t number) {
    registry().setDword(sim::Machine::parametersKey(), name, number);
}

void DriverTest::setParameter(std::u16string_view name, std::uint32_t type, std::vector<std::uint8_t> data) {
    registry().setValue(sim::Machine::parametersKey(), name, type, std::move(data));
}

void DriverTest::apply(const Policy &policy) {
    for (const auto &[name, list] : policy.values()) {
        if (list->form == RuleList::Form::absent) {
            registry().deleteValue(sim::Machine::parametersKey(), name);
        } else {
            setParameter(name, list->registryType(), list->registryData());
        }
    }
}

void DriverTest::load() {
    ASSERT_EQ(machine().loadDriver(), STATUS_SUCCESS);
    takeLog();
}

sim::DeviceNode &DriverTest::start() {
    load();
    sim::DeviceNode &control = machine().plugControlNode();
    EXPECT_TRUE(control.started());
    if (!options.hubDrivers.empty()) {
        machine().rootHub();
    }
    takeLog();
    return control;
}

sim::DeviceNode &DriverTest::plug(sim::DeviceDescription device, sim::DeviceNode *parent) {
    return machine().plug(std::move(device), parent);
}

void DriverTest::unload() {
    machine().unloadDriver();
    logSoFar();
    kernel().clock.advance(10'000'000);
}

void DriverTest::unplug(std::string_view device) {
    if (sim::DeviceNode *node = machine().find(device)) {
        machine().unplug(*node);
    }
}

const Lines &DriverTest::logSoFar() {
    std::lock_guard lock(recording_);
    kernel().workers.settle();
    for (const std::string &name : kernel().files.tempFiles()) {
        const std::string text = kernel().files.tempFile(name).value_or("");
        std::size_t &read = logRead_[name];
        EXPECT_LE(read, text.size()) << "a log file was begun a second time";
        for (std::size_t end = text.find("\r\n", read); end != std::string::npos; end = text.find("\r\n", read)) {
            log_.push_back(withoutTime(text.substr(read, end - read)));
            read = end + 2;
        }
        const bool mayEndAnywhere = !kernel().faults.firstFailed().empty(); // a line without memory for its end
        EXPECT_TRUE(read == text.size() || mayEndAnywhere) << "the log ends in the middle of a line";
    }
    return log_;
}

Lines DriverTest::takeLog() {
    std::lock_guard lock(recording_);
    const Lines &lines = logSoFar();
    const std::size_t begin = std::exchange(linesTaken_, lines.size());
    return {lines.begin() + static_cast<std::ptrdiff_t>(begin), lines.end()};
}

const Add &DriverTest::addOf(std::string_view device) {
    const auto found = std::find_if(adds.rbegin(), adds.rend(), [&](const Add &add) { return add.device == device; });
    if (found == adds.rend()) {
        static const Add none{};
        ADD_FAILURE() << "the driver was not asked to add " << device;
        return none;
    }
    return *found;
}

const FilterValues &DriverTest::filterOf(std::string_view device) {
    const Add &add = addOf(device);
    if (!add.filter) {
        throw std::runtime_error(std::string(device) + " has no USB filter");
    }
    return *add.filter;
}

sim::DeviceNode &DriverTest::deviceNode(std::string_view device) {
    sim::DeviceNode *found = machine().find(device);
    if (found == nullptr) {
        throw std::runtime_error("there is no device " + std::string(device));
    }
    return *found;
}

bool DriverTest::wasAdded(std::string_view device) const {
    return std::any_of(adds.begin(), adds.end(), [&](const Add &add) { return add.device == device; });
}

void DriverTest::failInAdd(std::string routine, std::uint64_t nth, std::optional<NTSTATUS> status, bool andAllAfter) {
    kernel().faults.arm(false);
    kernel().faults.clear();
    kernel().faults.failNamed(std::move(routine), nth, status, andAllAfter);
    armedForAdd_ = true;
}

void DriverTest::failEachCallOfAdd(const std::function<void()> &attempt) {
    constexpr std::uint64_t most = 2'000;
    for (std::uint64_t nth = 1; nth <= most; ++nth) {
        SCOPED_TRACE("failing call " + std::to_string(nth));
        kernel().faults.clear();
        kernel().faults.failNth(nth, false);
        armedForAdd_ = true;
        attempt();
        if (callsOfAdd_ < nth) {
            EXPECT_GT(nth, 20U) << "an add makes more calls that can fail";
            return;
        }
    }
    FAIL() << "never ran out of calls to fail";
}

void DriverTest::failCall(std::string routine, std::uint64_t nth, std::optional<NTSTATUS> status, bool andAllAfter) {
    kernel().faults.clear();
    kernel().faults.failNamed(std::move(routine), nth, status, andAllAfter);
    kernel().faults.arm(true);
}

void DriverTest::failEachCall(const std::function<void()> &action) {
    kernel().faults.clear();
    kernel().faults.arm(true);
    action();
    const std::uint64_t calls = kernel().faults.callsSeen();
    endFailures();
    ASSERT_GT(calls, 20U);
    for (const bool andAllAfter : {false, true}) {
        for (std::uint64_t nth = 1; nth <= calls; ++nth) {
            SCOPED_TRACE(std::to_string(nth) + (andAllAfter ? " and all after" : ""));
            kernel().faults.clear();
            kernel().faults.failNth(nth, andAllAfter);
            kernel().faults.arm(true);
            action();
            endFailures();
        }
    }
}

void DriverTest::endFailures() {
    armedForAdd_ = false;
    kernel().faults.arm(false);
    kernel().faults.clear();
}

void DriverTest::TearDown() {
    if (!machine_) {
        return;
    }
    endFailures();
    machine_->unloadDriver();
    machine_->setObserver(nullptr);
    EXPECT_THAT(machine_->leaks(), testing::IsEmpty());
}

void DriverTest::addStarting(sim::DeviceNode &) {
    std::lock_guard lock(recording_);
    linesBeforeAdd_ = logSoFar().size();
    if (armedForAdd_) {
        kernel().faults.arm(true);
    }
}

void DriverTest::addFinished(const sim::AddReport &report) {
    std::lock_guard lock(recording_);
    if (armedForAdd_) {
        callsOfAdd_ = kernel().faults.callsSeen();
        endFailures();
    }
    Add add;
    add.device = report.node->description().name;
    add.returned = report.returned;
    add.callbackStatus = report.callbackStatus;
    add.attached = report.attached != nullptr;
    add.filter = filterValues(report.attached);
    const Lines &lines = logSoFar();
    add.log.assign(lines.begin() + static_cast<std::ptrdiff_t>(linesBeforeAdd_), lines.end());
    adds.push_back(std::move(add));
}

} // namespace behaviour
