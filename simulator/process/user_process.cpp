#include "user_process.h"

#include "../kernel/thread.h"

#include <algorithm>

namespace sim {

using process::ControlRequest;
using process::DeviceFile;
using process::PendingIo;
using process::TransferRequest;

UserProcess::UserProcess(unsigned id) : id_(id) {}

UserProcess::~UserProcess() {
    die();
}

PETHREAD UserProcess::threadRecord(unsigned thread) {
    const std::lock_guard lock(mutex_);
    PETHREAD &record = threads_[thread];
    if (record == nullptr) {
        KernelThread &made = newThread();
        made.processId = id_;
        record = reinterpret_cast<PETHREAD>(&made);
    }
    return record;
}

NTSTATUS UserProcess::open(std::u16string_view name, Handle &handle, ACCESS_MASK access) {
    const NamedObject object = process::objectToOpen(name);
    const auto device = static_cast<PDEVICE_OBJECT>(object.ofType(ObjectType::device));
    return device == nullptr ? STATUS_OBJECT_NAME_NOT_FOUND : open(device, handle, access);
}

NTSTATUS UserProcess::open(PDEVICE_OBJECT device, Handle &handle, ACCESS_MASK access) {
    const auto file = std::make_shared<DeviceFile>(device, access, id_, threadRecord(1));
    const NTSTATUS status = file->open();
    if (NT_SUCCESS(status)) {
        const std::lock_guard lock(mutex_);
        handle = nextHandle_;
        nextHandle_ += 4;
        files_.emplace(handle, file);
    }
    return status;
}

bool UserProcess::close(Handle handle) {
    std::shared_ptr<DeviceFile> file;
    {
        const std::lock_guard lock(mutex_);
        const auto found = files_.find(handle);
        if (found == files_.end()) {
            return false;
        }
        file = std::move(found->second);
        files_.erase(found);
    }
    file->closeHandle();
    return true;
}

std::vector<UserProcess::Handle> UserProcess::handles() const {
    const std::lock_guard lock(mutex_);
    std::vector<Handle> open;
    for (const auto &[handle, file] : files_) {
        open.push_back(handle);
    }
    return open;
}

template<typename Request>
UserProcess::Io UserProcess::make(Handle handle, Request request) {
    const PETHREAD thread = threadRecord(request.thread);
    std::shared_ptr<DeviceFile> file;
    {
        const std::lock_guard lock(mutex_);
        const auto found = files_.find(handle);
        file = found == files_.end() ? nullptr : found->second;
    }
    const Io io = PendingIo::send(std::move(file), std::move(request), thread, bell_);
    const std::lock_guard lock(mutex_);
    if (requests_.size() >= lookAgainAt_) {
        std::erase_if(requests_, [](const Io &made) { return made->isBack(); });
        lookAgainAt_ = 2 * requests_.size() + 1;
    }
    if (!io->isBack()) {
        requests_.push_back(io);
    }
    return io;
}

UserProcess::Io UserProcess::begin(Handle handle, ControlRequest request) {
    return make(handle, std::move(request));
}

UserProcess::Io UserProcess::begin(Handle handle, TransferRequest request) {
    return make(handle, std::move(request));
}

UserProcess::Io UserProcess::read(Handle handle, std::uint64_t offset, std::size_t length) {
    const Io io = begin(handle, TransferRequest{false, offset, {}, length});
    io->await();
    return io;
}

UserProcess::Io UserProcess::write(Handle handle, std::uint64_t offset, std::vector<std::uint8_t> data) {
    const Io io = begin(handle, TransferRequest{true, offset, std::move(data)});
    io->await();
    return io;
}

UserProcess::Io UserProcess::control(Handle handle, ControlRequest request) {
    const Io io = begin(handle, std::move(request));
    io->await();
    return io;
}

std::size_t UserProcess::pending() const {
    const std::lock_guard lock(mutex_);
    const auto waits = [](const Io &io) { return !io->isBack(); };
    return static_cast<std::size_t>(std::count_if(requests_.begin(), requests_.end(), waits));
}

template<typename Predicate>
void UserProcess::cancelWhere(Predicate predicate) {
    std::vector<Io> chosen;
    {
        const std::lock_guard lock(mutex_);
        std::copy_if(requests_.begin(), requests_.end(), std::back_inserter(chosen),
                     [&](const Io &io) { return predicate(*io); });
    }
    for (const Io &io : chosen) {
        io->cancel();
    }
}

void UserProcess::cancelAll(Handle handle) {
    const DeviceFile *file = nullptr;
    {
        const std::lock_guard lock(mutex_);
        const auto found = files_.find(handle);
        file = found == files_.end() ? nullptr : found->second.get();
    }
    cancelWhere([file](const PendingIo &io) { return io.file() == file; });
}

void UserProcess::endThread(unsigned thread) {
    cancelWhere([thread](const PendingIo &io) { return io.thread() == thread; });
}

void UserProcess::die() {
    cancelWhere([](const PendingIo &) { return true; });
    for (const Handle handle : handles()) {
        close(handle);
    }
    const std::lock_guard lock(mutex_);
    requests_.clear();
}

} // namespace sim
