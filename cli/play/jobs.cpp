#include "jobs.h"

#include "../../simulator/framework/framework.h"
#include "../../simulator/kernel/kernel.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace cli {

Jobs::~Jobs() {
    for (Job &job : jobs_) {
        job.thread.join();
    }
}

void Jobs::run(std::string title, std::function<void()> action) {
    Job &job = jobs_.emplace_back();
    job.title = std::move(title);
    job.thread = std::thread([&job, action = std::move(action)] {
        try {
            action();
        } catch (...) {
            job.thrown = std::current_exception();
        }
        job.over = true;
    });
    settle();
}

bool Jobs::standStill() const {
    const auto running = std::count_if(jobs_.begin(), jobs_.end(), [](const Job &job) { return !job.over; });
    // What waits for a device waits, in the end, for the process that the device's add waits for.
    const std::size_t waiting = sim::framework::parkedSends() + machine_.waitingForDevices();
    if (waiting < static_cast<std::size_t>(running)) {
        return false;
    }
    const auto due = machine_.kernel().clock.firstTimeOut();
    return !due || *due > machine_.kernel().clock.now(); // otherwise somebody is about to give up
}

void Jobs::settle() {
    while (!standStill()) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    std::exception_ptr thrown;
    for (auto job = jobs_.begin(); job != jobs_.end();) {
        if (!job->over) {
            ++job;
            continue;
        }
        job->thread.join();
        thrown = thrown ? thrown : job->thrown;
        job = jobs_.erase(job);
    }
    if (thrown) {
        std::rethrow_exception(thrown);
    }
}

std::vector<std::string> Jobs::waiting() const {
    std::vector<std::string> titles;
    for (const Job &job : jobs_) {
        titles.push_back(job.title);
    }
    return titles;
}

} // namespace cli
