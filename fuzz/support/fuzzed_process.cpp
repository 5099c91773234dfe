#include "fuzzed_process.h"

#include "require.h"

#include <algorithm>

namespace fuzz {

namespace {

constexpr std::u16string_view controlDeviceName = u"\\\\.\\Tarvenholt Myrtelhaven";
constexpr FuzzedProcess::Handle noHandle = 2;

} // namespace

FuzzedProcess::Handle FuzzedProcess::handle(unsigned nth) const {
    if (access_.empty()) {
        return noHandle;
    }
    return std::next(access_.begin(), static_cast<std::ptrdiff_t>(nth % access_.size()))->first;
}

std::uint32_t FuzzedProcess::open(ACCESS_MASK access) {
    Handle handle = 0;
    const NTSTATUS status = process_.open(controlDeviceName, handle, access);
    if (NT_SUCCESS(status)) {
        access_[handle] = access;
    }
    return static_cast<std::uint32_t>(status);
}

template<typename Predicate>
void FuzzedProcess::noteCancelled(Predicate predicate) {
    const std::lock_guard lock(mutex_);
    for (Made &made : made_) {
        made.sent.cancelled |= !made.io->isBack() && predicate(made);
    }
}

std::function<void()> FuzzedProcess::close(Handle handle) {
    noteCancelled([handle](const Made &made) { return made.handle == handle; });
    const bool isOpen = access_.erase(handle) != 0;
    return [this, handle, isOpen] {
        const bool closed = process_.close(handle);
        require(closed == isOpen || dying_, "an open handle can be closed once");
    };
}

void FuzzedProcess::cancel(Handle handle) {
    noteCancelled([handle](const Made &made) { return made.handle == handle; });
    process_.cancelAll(handle);
}

void FuzzedProcess::cancelOne(std::size_t nth) {
    sim::UserProcess::Io chosen;
    {
        const std::lock_guard lock(mutex_);
        if (made_.empty()) {
            return;
        }
        Made &made = made_[nth % made_.size()];
        made.sent.cancelled |= !made.io->isBack();
        chosen = made.io;
    }
    chosen->cancel();
}

void FuzzedProcess::endThread(unsigned thread) {
    noteCancelled([thread](const Made &made) { return made.thread == thread; });
    process_.endThread(thread);
}

std::function<void()> FuzzedProcess::die() {
    noteCancelled([](const Made &) { return true; });
    access_.clear();
    dying_ = true;
    return [this] { process_.die(); };
}

Made FuzzedProcess::prepare(Handle handle, const sim::process::ControlRequest &request) const {
    Made made;
    made.sent.code = request.code;
    made.sent.inputBytes = request.input.size();
    made.sent.outputBytes = request.outputBytes;
    made.handle = handle;
    made.thread = request.thread;
    if (const auto open = access_.find(handle); open != access_.end()) {
        made.sent.handleOpen = true;
        made.sent.canRead = (open->second & GENERIC_READ) != 0;
        made.sent.canWrite = (open->second & GENERIC_WRITE) != 0;
    }
    return made;
}

void FuzzedProcess::make(Made made, sim::process::ControlRequest request) {
    made.io = process_.begin(made.handle, std::move(request));
    const std::lock_guard lock(mutex_);
    made_.push_back(std::move(made));
}

std::vector<Made> FuzzedProcess::takeAnswered() {
    const std::lock_guard lock(mutex_);
    std::vector<Made> taken;
    std::vector<Made> kept;
    for (Made &made : made_) {
        (made.io->isBack() ? taken : kept).push_back(std::move(made));
    }
    made_ = std::move(kept);
    return taken;
}

bool FuzzedProcess::cancelledOnesAreBack() {
    const std::lock_guard lock(mutex_);
    return std::none_of(made_.begin(), made_.end(),
                        [](const Made &made) { return made.sent.cancelled && !made.io->isBack(); });
}

bool FuzzedProcess::everythingIsBack() {
    const std::lock_guard lock(mutex_);
    return std::all_of(made_.begin(), made_.end(), [](const Made &made) { return made.io->isBack(); });
}

void FuzzedProcess::noteForgotten() {
    const std::lock_guard lock(mutex_);
    for (Made &made : made_) {
        made.forgotten |= made.io->isBack();
    }
}

} // namespace fuzz
