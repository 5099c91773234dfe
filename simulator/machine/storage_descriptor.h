#pragma once

#include "disk_port.h"

namespace sim::machine {

/// The whole storage descriptor of a disk, with its lies. learn.microsoft.com: STORAGE_DEVICE_DESCRIPTOR.
std::vector<std::uint8_t> storageDescriptor(const DiskDescription &disk);
/// Puts as much of it into a buffer of `room` bytes as fits.
DiskAnswer answerStorageQuery(const DiskDescription &disk, std::uint8_t *buffer, std::size_t room);

} // namespace sim::machine
