#pragma once

#include "simulator/machine/usb_device.h"

/// Devices that many tests plug.
namespace behaviour {

/// A flash drive "stick" with its disk "stick disk".
sim::DeviceDescription flashDrive();
/// A second one of the same model, "other stick", with another serial number.
sim::DeviceDescription otherFlashDrive();
/// An MTP phone "phone" whose device object lets the system and administrators do everything and everyone read and
/// write.
sim::DeviceDescription phone();
/// A vendor-class device "board" without a serial number.
sim::DeviceDescription vendorBoard();
/// A composite keyboard "keyboard" with "keyboard keys" and "keyboard consumer".
sim::DeviceDescription keyboard();
/// A device of one PTP function without the Microsoft compatible id, "camera", of the portable device class.
sim::DeviceDescription camera();
/// A HID device of one interface, which no usual rule filters: "mouse".
sim::DeviceDescription mouse();

inline constexpr const char *usualSecurity = "D:P(A;;0x1f01ff;;;SY)(A;;0x1f01ff;;;BA)(A;;0x1201bf;;;WD)";

/// Hardware-id list of the device as Plug and Play gives it.
const std::vector<std::u16string> &idsOf(const sim::DeviceDescription &device);

} // namespace behaviour
