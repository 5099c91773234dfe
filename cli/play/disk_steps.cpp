#include "disk_steps.h"

#include "../../simulator/framework/framework.h"
#include "../text/display.h"

#include <fmt/format.h>

#include <stdexcept>

namespace cli {
namespace {

void notMet(const DiskExpectation &expectation, const std::string &what, std::string expected, std::string found,
            StepResult &step) {
    step.failures.push_back({expectation.where, expectation.disk + ": " + what, std::move(expected), std::move(found)});
}

/// Requests of all framework devices of a stack, by one of their counters.
sim::framework::RequestCounts sumOf(PDEVICE_OBJECT physicalDevice,
                                    sim::framework::RequestCounts (*counter)(PDEVICE_OBJECT)) {
    sim::framework::RequestCounts sum;
    for (PDEVICE_OBJECT device = physicalDevice->AttachedDevice; device != nullptr; device = device->AttachedDevice) {
        const sim::framework::RequestCounts one = counter(device);
        sum.reads += one.reads;
        sum.writes += one.writes;
        sum.deviceControls += one.deviceControls;
    }
    return sum;
}

void compareNumbers(const DiskExpectation &expectation, const std::string &what, const RequestNumbers &expected,
                    const sim::framework::RequestCounts &found, StepResult &step) {
    const auto compareOne = [&](const char *name, const std::optional<std::uint64_t> &number, unsigned seen) {
        if (number && *number != seen) {
            notMet(expectation, what + " " + name, fmt::format("{}", *number), fmt::format("{}", seen), step);
        }
    };
    compareOne("reads", expected.reads, found.reads);
    compareOne("writes", expected.writes, found.writes);
    compareOne("controls", expected.controls, found.deviceControls);
}

} // namespace

void DiskSteps::use(const UseDisk &action, sim::DeviceNode &disk, StepResult &step) {
    Waiting one{};
    // A program knows a disk by the name that its class driver gives it, if it runs.
    const NTSTATUS opened =
        disk.started() ? program_.open(disk.physicalDevice(), one.handle) : STATUS_OBJECT_NAME_NOT_FOUND;
    if (!NT_SUCCESS(opened)) {
        step.status = opened;
        return;
    }
    one.io = begin(action, one.handle);
    if (action.waits) {
        finish(one, step);
    } else {
        waiting_[action.disk].push_back(one);
    }
}

sim::UserProcess::Io DiskSteps::begin(const UseDisk &action, sim::UserProcess::Handle handle) {
    switch (action.kind) {
    case UseDisk::Kind::read:
        return program_.begin(handle, sim::process::TransferRequest{false, action.offset, {}, action.length});
    case UseDisk::Kind::write:
        return program_.begin(handle, sim::process::TransferRequest{true, action.offset, action.data});
    default:
        return program_.begin(handle, sim::process::ControlRequest{action.code, action.data, action.length});
    }
}

void DiskSteps::finish(const Waiting &one, StepResult &step) {
    one.io->await();
    step.status = one.io->status();
    step.received = one.io->received();
    program_.close(one.handle);
}

bool DiskSteps::await(const std::string &disk, StepResult &step) {
    std::deque<Waiting> &requests = waiting_[disk];
    if (requests.empty()) {
        return false;
    }
    const Waiting oldest = requests.front();
    requests.pop_front();
    finish(oldest, step);
    return true;
}

void DiskSteps::end() {
    for (auto &[disk, requests] : waiting_) {
        machine_.medium(disk).resume();
        for (const Waiting &one : requests) {
            one.io->await();
            program_.close(one.handle);
        }
        requests.clear();
    }
}

void DiskSteps::check(const DiskExpectation &expectation, StepResult &step) const {
    try {
        checkMedium(expectation, step);
    } catch (const std::invalid_argument &unknown) {
        notMet(expectation, "medium", "a disk that was plugged in", unknown.what(), step);
        return;
    }
    checkVolume(expectation, step);
    checkRequests(expectation, step);
}

void DiskSteps::checkMedium(const DiskExpectation &expectation, StepResult &step) const {
    const sim::Medium &medium = machine_.medium(expectation.disk);
    if (expectation.unchanged && *expectation.unchanged != medium.unchanged()) {
        notMet(expectation, "medium", *expectation.unchanged ? "unchanged" : "changed",
               medium.unchanged() ? "unchanged" : "changed", step);
    }
    for (const auto &[offset, bytes] : expectation.bytes) {
        const std::vector<std::uint8_t> found = medium.contents(offset, bytes.size());
        if (found != bytes) {
            notMet(expectation, fmt::format("bytes at {}", offset), hexText(bytes), hexText(found), step);
        }
    }
}

void DiskSteps::checkVolume(const DiskExpectation &expectation, StepResult &step) const {
    const auto volume = machine_.volume(expectation.disk);
    if (expectation.volume) {
        const std::string found = volume == nullptr ? "none" : volume->readOnly() ? "read-only" : "writable";
        if (found != *expectation.volume) {
            notMet(expectation, "volume", *expectation.volume, found, step);
        }
    }
    if (expectation.lostWrites) {
        const std::size_t found = volume == nullptr ? 0 : volume->lostWrites().size();
        if (found != *expectation.lostWrites) {
            notMet(expectation, "lost-writes", fmt::format("{}", *expectation.lostWrites), fmt::format("{}", found),
                   step);
        }
    }
}

void DiskSteps::checkRequests(const DiskExpectation &expectation, StepResult &step) const {
    if (!expectation.entered && !expectation.passedDown) {
        return;
    }
    const sim::DeviceNode *node = machine_.find(expectation.disk);
    const PDEVICE_OBJECT device = node == nullptr ? nullptr : node->physicalDevice();
    if (device == nullptr) {
        notMet(expectation, "requests", "a disk that is plugged in", "it is not there", step);
        return;
    }
    if (expectation.entered) {
        compareNumbers(expectation, "entered", *expectation.entered, sumOf(device, sim::framework::handlerCalls), step);
    }
    if (expectation.passedDown) {
        compareNumbers(expectation, "passed-down", *expectation.passedDown, sumOf(device, sim::framework::passedDown),
                       step);
    }
}

} // namespace cli
