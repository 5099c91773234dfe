#include "race_test.h"

#include "control/control_device.h"
#include "driver/usb_filter_device.h"
#include "simulator/framework/framework.h"
#include "simulator/kernel/strings.h"
#include "tests/behaviour/support/control_code.h"
#include "tests/behaviour/support/driver_state.h"

#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

namespace races {

namespace {

constexpr std::uint32_t firstUnknownCode = 0x8000'0000; // device type 0x8000: none of the driver's codes

/// "2024-03-07 9:05:01.042 INFO Driver start" without its two words of time.
std::string withoutTime(const std::string &line) {
    const std::size_t date = line.find(' ');
    const std::size_t time = date == std::string::npos ? date : line.find(' ', date + 1);
    return time == std::string::npos ? "(no time) " + line : line.substr(time + 1);
}

} // namespace

sim::Machine &RaceTest::machine() {
    if (!machine_) {
        machine_.emplace(options);
        machine_->presetClassFilters();
        machine_->setObserver(this);
        machine_->kernel().workers.setMode(sim::WorkQueue::Mode::free);
        machine_->kernel().registry.setDword(sim::Machine::parametersKey(), u"LogLevel", 4);
    }
    return *machine_;
}

void RaceTest::setParameter(std::u16string_view name, std::uint32_t number) {
    kernel().registry.setDword(sim::Machine::parametersKey(), name, number);
}

void RaceTest::setList(std::u16string_view name, const behaviour::RuleList &list) {
    kernel().registry.setValue(sim::Machine::parametersKey(), name, list.registryType(), list.registryData());
}

void RaceTest::apply(const behaviour::Policy &policy) {
    for (const auto &[name, list] : policy.values()) {
        setList(name, *list);
    }
}

void RaceTest::start() {
    ASSERT_EQ(machine().loadDriver(), STATUS_SUCCESS);
    control_ = &machine().plugControlNode();
    machine().rootHub();
    ASSERT_TRUE(control_->started());
    machine().settle();
}

void RaceTest::unload() {
    control_ = nullptr;
    machine().unloadDriver();
}

Decision RaceTest::decisionOf(const std::string &device) {
    const std::lock_guard lock(decisionsMutex_);
    const auto found = decisions_.find(device);
    if (found == decisions_.end()) {
        throw std::runtime_error("the driver was not asked to add " + device);
    }
    return found->second;
}

void RaceTest::addFinished(const sim::AddReport &report) {
    Decision decision;
    decision.returned = report.returned;
    const auto *filter =
        report.attached == nullptr
            ? nullptr
            : static_cast<const UsbFilterDevice *>(sim::framework::contextOfDevice(report.attached, "UsbFilterDevice"));
    if (filter != nullptr) {
        decision.mode = static_cast<std::uint32_t>(filter->mode);
        decision.filterable = filter->filterable;
        decision.ruleType = static_cast<std::uint32_t>(filter->ruleType);
        for (const wchar_t unit : filter->message.serialNumber) {
            if (unit == 0) {
                break;
            }
            decision.serial += static_cast<char16_t>(unit);
        }
    }
    const std::lock_guard lock(decisionsMutex_);
    decisions_[report.node->description().name] = std::move(decision);
}

void RaceTest::logNumbered(std::uint32_t number) {
    const std::uint32_t code = firstUnknownCode + (number << 2);
    EXPECT_EQ(behaviour::sendControlCode(control(), code).status, STATUS_INVALID_DEVICE_REQUEST);
}

std::string RaceTest::numberedLine(std::uint32_t number) {
    return "INFO onIoDeviceControl, ioctl code = " + std::to_string(firstUnknownCode + (number << 2));
}

std::vector<std::string> RaceTest::lines() {
    if (machine_ && machine().driverLoaded()) {
        machine().settle();
    }
    std::vector<std::string> lines;
    for (const std::string &name : kernel().files.tempFiles()) {
        const std::string text = kernel().files.tempFile(name).value_or("");
        std::size_t at = 0;
        for (std::size_t end = text.find("\r\n"); end != std::string::npos; end = text.find("\r\n", at)) {
            lines.push_back(withoutTime(text.substr(at, end - at)));
            EXPECT_TRUE(text.starts_with("20") && text.compare(at, 2, "20") == 0) << text.substr(at, end - at);
            at = end + 2;
        }
        EXPECT_EQ(at, text.size()) << name << " ends in the middle of a line";
    }
    return lines;
}

std::map<std::string, unsigned> RaceTest::countLines(std::string_view beginning) {
    std::map<std::string, unsigned> counts;
    for (const std::string &line : lines()) {
        if (line.starts_with(beginning)) {
            ++counts[line];
        }
    }
    return counts;
}

void RaceTest::expectNumberedLines(unsigned threads, std::uint32_t count) {
    std::map<std::string, unsigned> expected;
    for (unsigned thread = 0; thread < threads; ++thread) {
        for (std::uint32_t nth = 0; nth < count; ++nth) {
            expected[numberedLine(numberOf(thread, nth))] = 1;
        }
    }
    const auto found = countLines("INFO onIoDeviceControl");
    EXPECT_EQ(found.size(), expected.size());
    EXPECT_TRUE(found == expected) << "a line is missing, not whole, or there more than once";
}

void RaceTest::awaitQuiet() {
    while (!machine().settle()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void RaceTest::completeForgotten() {
    for (const WDFREQUEST request :
         sim::framework::requestsWithDriver(behaviour::driverState(machine()).controlDevice->m_ioctlQueue)) {
        EXPECT_TRUE(driverMayForget) << "the driver has forgotten a request";
        sim::framework::completeForgotten(request, STATUS_CANCELLED);
    }
    machine().settle(); // its file
}

void RaceTest::TearDown() {
    if (!machine_) {
        return;
    }
    if (control_ != nullptr) {
        completeForgotten();
    }
    unload();
    machine_->setObserver(nullptr);
    EXPECT_THAT(machine_->leaks(), testing::IsEmpty());
}

sim::DeviceDescription drive(const std::string &name, const std::string &serial) {
    return sim::usbFlashDrive(name, {0x0781, 0x5581, 0x0100, u"Maker", u"Drive", sim::toUtf16(serial)});
}

std::string driveName(unsigned thread, unsigned round) {
    return "drive" + std::to_string(thread) + "-" + std::to_string(round);
}

std::string serialOf(unsigned thread, unsigned round) {
    return "S" + std::to_string(thread) + "X" + std::to_string(round);
}

sim::DeviceDescription numberedDrive(unsigned thread, unsigned round) {
    return drive(driveName(thread, round), serialOf(thread, round));
}

std::u16string ruleFor(const std::string &serial) {
    return u"VID_0781&PID_5581\\" + sim::toUtf16(serial);
}

} // namespace races
