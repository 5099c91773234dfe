#include "storage_descriptor.h"

#include <ntddstor.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace sim::machine {

namespace {

/// The fields in front of the bus-specific bytes.
constexpr std::size_t fixedPart = offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties);
/// Version and Size, the least that a stack gives.
constexpr std::size_t descriptorHeader = 8;

ULONG appendText(std::vector<std::uint8_t> &bytes, const std::optional<std::string> &text) {
    if (!text) {
        return 0;
    }
    const auto offset = static_cast<ULONG>(bytes.size());
    bytes.insert(bytes.end(), text->begin(), text->end());
    bytes.push_back(0);
    return offset;
}

} // namespace

std::vector<std::uint8_t> storageDescriptor(const DiskDescription &disk) {
    const StorageAnswer &answer = disk.storageAnswer;
    if (answer.replace) {
        return *answer.replace;
    }
    std::vector<std::uint8_t> bytes(sizeof(STORAGE_DEVICE_DESCRIPTOR));
    STORAGE_DEVICE_DESCRIPTOR descriptor{};
    descriptor.Version = answer.version.value_or(sizeof(STORAGE_DEVICE_DESCRIPTOR));
    descriptor.RemovableMedia = disk.removableMedia;
    descriptor.BusType = static_cast<STORAGE_BUS_TYPE>(disk.busType.value_or(BusTypeUnknown));
    const ULONG vendor = appendText(bytes, disk.vendor);
    const ULONG product = appendText(bytes, disk.product);
    const ULONG revision = appendText(bytes, disk.revision);
    const ULONG serial = appendText(bytes, disk.serial);
    if (!answer.terminated && bytes.size() > sizeof(descriptor)) {
        bytes.pop_back();
    }
    descriptor.VendorIdOffset = answer.vendorOffset.value_or(vendor);
    descriptor.ProductIdOffset = answer.productOffset.value_or(product);
    descriptor.ProductRevisionOffset = answer.revisionOffset.value_or(revision);
    descriptor.SerialNumberOffset = answer.serialOffset.value_or(serial);
    descriptor.Size = answer.size.value_or(static_cast<ULONG>(bytes.size()));
    std::memcpy(bytes.data(), &descriptor, fixedPart);
    return bytes;
}

DiskAnswer answerStorageQuery(const DiskDescription &disk, std::uint8_t *buffer, std::size_t room) {
    std::vector<std::uint8_t> bytes = storageDescriptor(disk);
    const bool tooSmall = room < bytes.size();
    if (tooSmall && room < descriptorHeader) {
        return {STATUS_BUFFER_TOO_SMALL};
    }
    if (disk.storageAnswer.shortenTo) {
        bytes.resize(std::min<std::size_t>(bytes.size(), *disk.storageAnswer.shortenTo));
    }
    bytes.resize(std::min(bytes.size(), room));
    std::copy(bytes.begin(), bytes.end(), buffer);
    return {tooSmall ? disk.storageAnswer.shortBuffer : STATUS_SUCCESS, bytes.size()};
}

} // namespace sim::machine
