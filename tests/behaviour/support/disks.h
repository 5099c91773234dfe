#pragma once

#include "tests/behaviour/support/driver_test.h"

/// Disks and what they hang off. They are plugged below the root of the device tree.
namespace behaviour {

/// A built-in reader "reader" with a card slot "slot" and the SD card "card" in it.
sim::DeviceDescription sdCard();
/// An NVMe controller "controller" with the disk "boot disk".
sim::DeviceDescription internalNvme();
/// An AHCI controller "sata" with the disk "sata disk".
sim::DeviceDescription internalSata();
/// A Thunderbolt enclosure: "upstream port", "downstream port", "enclosure" (a removable NVMe controller) and its disk
/// "enclosure disk".
sim::DeviceDescription enclosure();
/// The first hardware id of "enclosure disk" behind the bus name.
inline constexpr std::u16string_view enclosureDiskId = u"DiskNVMe____SSD_980_PRO_____3B2Q";

/// The device of that name in a description, at any depth. Throws when there is none.
sim::DeviceDescription &part(sim::DeviceDescription &whole, std::string_view name);
/// The hardware ids of that device.
std::vector<std::u16string> idsWithin(sim::DeviceDescription whole, std::string_view name);

/// The begin of the add of a disk.
Lines diskAsked(const std::vector<std::u16string> &hardwareIds, unsigned busType, bool removable);

} // namespace behaviour
