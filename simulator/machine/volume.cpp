#include "volume.h"

#include "machine.h"

#include <ntdddisk.h>

#include <utility>

namespace sim {

namespace {
constexpr unsigned systemProcess = 4;
}

Volume::Volume(const DeviceNode &disk) : disk_(disk), system_(systemProcess), mountAnswer_(open(mounting_)) {}

void Volume::askWhetherWritable() {
    if (NT_SUCCESS(mountAnswer_)) {
        mountAnswer_ = system_.control(mounting_, {IOCTL_DISK_IS_WRITABLE, {}, 0})->status();
        system_.close(mounting_);
    }
}

NTSTATUS Volume::open(UserProcess::Handle &handle) {
    const PDEVICE_OBJECT device = disk_.physicalDevice();
    return device == nullptr ? STATUS_NO_SUCH_DEVICE : system_.open(device, handle);
}

NTSTATUS Volume::save(std::uint64_t offset, std::vector<std::uint8_t> data) {
    if (readOnly()) {
        return STATUS_MEDIA_WRITE_PROTECTED;
    }
    const std::lock_guard lock(mutex_);
    cache_[offset] = std::move(data);
    return STATUS_SUCCESS;
}

NTSTATUS Volume::load(std::uint64_t offset, std::size_t length, std::vector<std::uint8_t> &data) {
    {
        const std::lock_guard lock(mutex_);
        const auto found = cache_.find(offset);
        if (found != cache_.end() && found->second.size() == length) {
            data = found->second;
            return STATUS_SUCCESS;
        }
    }
    UserProcess::Handle handle = 0;
    NTSTATUS status = open(handle);
    if (NT_SUCCESS(status)) {
        const UserProcess::Io io = system_.read(handle, offset, length);
        status = io->status();
        data = io->received();
        system_.close(handle);
    }
    return status;
}

void Volume::writeBack() {
    std::map<std::uint64_t, std::vector<std::uint8_t>> cached;
    {
        const std::lock_guard lock(mutex_);
        cached = std::exchange(cache_, {});
    }
    for (auto &[offset, data] : cached) {
        const std::size_t length = data.size();
        UserProcess::Handle handle = 0;
        NTSTATUS status = open(handle);
        if (NT_SUCCESS(status)) {
            status = system_.write(handle, offset, std::move(data))->status();
            system_.close(handle);
        }
        if (!NT_SUCCESS(status)) {
            const std::lock_guard lock(mutex_);
            lost_.push_back({offset, length, status});
        }
    }
}

std::vector<LostWrite> Volume::lostWrites() const {
    const std::lock_guard lock(mutex_);
    return lost_;
}

std::size_t Volume::unwritten() const {
    const std::lock_guard lock(mutex_);
    return cache_.size();
}

} // namespace sim
