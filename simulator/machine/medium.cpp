#include "medium.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim {

Medium::Medium(const MediumDescription &description)
    : size_(description.bytes), sectorBytes_(description.sectorBytes), bytes_(description.bytes),
      writeProtected_(description.writeProtected), present_(description.present) {
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        bytes_[i] = firstByte(i);
    }
}

std::uint8_t Medium::firstByte(std::size_t offset) const {
    return static_cast<std::uint8_t>(offset * 7 + offset / sectorBytes_ * 31 + 1);
}

bool Medium::unchanged() const {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (bytes_[i] != firstByte(i)) {
            return false;
        }
    }
    return true;
}

std::vector<std::uint8_t> Medium::contents() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
}

std::vector<std::uint8_t> Medium::contents(std::uint64_t offset, std::size_t length) const {
    if (offset > size_ || length > size_ - offset) {
        throw std::invalid_argument("the medium ends before byte " + std::to_string(offset + length));
    }
    const std::lock_guard lock(mutex_);
    const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
    return {first, first + static_cast<std::ptrdiff_t>(length)};
}

void Medium::put(std::uint64_t offset, const std::vector<std::uint8_t> &bytes) {
    if (offset > size_ || bytes.size() > size_ - offset) {
        throw std::invalid_argument("the medium ends before byte " + std::to_string(offset + bytes.size()));
    }
    const std::lock_guard lock(mutex_);
    std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
}

bool Medium::writeProtected() const {
    const std::lock_guard lock(mutex_);
    return writeProtected_;
}

void Medium::setWriteProtected(bool on) {
    const std::lock_guard lock(mutex_);
    writeProtected_ = on;
}

bool Medium::present() const {
    const std::lock_guard lock(mutex_);
    return present_;
}

void Medium::setPresent(bool there) {
    const std::lock_guard lock(mutex_);
    present_ = there;
}

std::uint64_t Medium::reads() const {
    const std::lock_guard lock(mutex_);
    return reads_;
}

std::uint64_t Medium::writes() const {
    const std::lock_guard lock(mutex_);
    return writes_;
}

void Medium::read(std::uint64_t offset, std::uint8_t *into, std::size_t length) {
    const std::lock_guard lock(mutex_);
    ++reads_;
    std::memcpy(into, bytes_.data() + offset, length);
}

void Medium::write(std::uint64_t offset, const std::uint8_t *from, std::size_t length) {
    const std::lock_guard lock(mutex_);
    ++writes_;
    std::memcpy(bytes_.data() + offset, from, length);
}

void Medium::trim(std::uint64_t offset, std::uint64_t length) {
    const std::lock_guard lock(mutex_);
    ++writes_;
    std::memset(bytes_.data() + offset, 0, length);
}

void Medium::stall() {
    const std::lock_guard lock(mutex_);
    stalled_ = true;
}

void Medium::resume() {
    std::vector<Waiting> ready;
    {
        const std::lock_guard lock(mutex_);
        stalled_ = false;
        ready = std::exchange(waiting_, {});
    }
    for (const Waiting &one : ready) {
        one.work();
    }
}

std::size_t Medium::stalledTransfers() const {
    const std::lock_guard lock(mutex_);
    return waiting_.size();
}

void Medium::serve(const void *owner, const std::function<bool()> &gone, std::function<void()> work) {
    {
        const std::lock_guard lock(mutex_);
        if (stalled_ && !gone()) {
            waiting_.push_back({owner, std::move(work)});
            return;
        }
    }
    work();
}

void Medium::abandon(const void *owner) {
    std::vector<Waiting> mine;
    {
        const std::lock_guard lock(mutex_);
        const auto isMine = [owner](const Waiting &one) { return one.owner == owner; };
        std::copy_if(waiting_.begin(), waiting_.end(), std::back_inserter(mine), isMine);
        std::erase_if(waiting_, isMine);
    }
    for (const Waiting &one : mine) {
        one.work();
    }
}

} // namespace sim
