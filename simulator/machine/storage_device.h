#pragma once

#include "usb_device.h"

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// What a disk says of itself, without the blanks that pad it on the wire.
struct DiskIdentity {
    std::string vendor; ///< up to 8 characters, further ones are not sent
    std::string product;
    std::string revision = "1.00";
    std::string serial{}; ///< empty: none
    bool removableMedia = false;
};

/// A disk as a port driver reports it: ids in the documented forms, a medium, the disk class driver. Its instance id is
/// "ENUMERATOR\DISK&VEN_…&PROD_…\INSTANCE"; the bus type is that of the port driver it is plugged below.
/// learn.microsoft.com: "Identifiers for USB storage devices", "Identifiers for SCSI devices".
DeviceDescription diskDevice(std::string name, std::u16string_view enumerator, const DiskIdentity &identity,
                             std::u16string_view instance);

/// A USB device with several disks, one per logical unit: a card reader, or a drive with more than one partition of its
/// own. The disks are "NAME disk 0", "NAME disk 1" …
DeviceDescription usbMultiDisk(std::string name, const UsbIdentity &identity, const std::vector<DiskIdentity> &units);

/// An NVMe controller with its disk "NAME disk", to be plugged below a PCI Express port or the PCI root.
DeviceDescription nvmeDisk(std::string name, const DiskIdentity &identity);
/// A SATA controller with its disk "NAME disk", below the PCI root.
DeviceDescription sataDisk(std::string name, const DiskIdentity &identity);

/// What a memory card is.
enum class CardKind { sd, mmc };
/// A built-in reader on the PCI bus with a card in it: host controller "NAME", card "NAME card", disk "NAME disk". The
/// medium can be taken out. That the disk's enumerator is SD is recalled.
DeviceDescription memoryCardReader(std::string name, CardKind kind, const DiskIdentity &card);

/// A PCI Express port; its type is in its ids ("…&DT_6") as in the name that Windows gives it.
enum class PciePort { root, upstream, downstream };
DeviceDescription pciePort(std::string name, PciePort type, std::vector<DeviceDescription> children = {});
/// An NVMe disk behind a PCI Express switch, as an enclosure at a Thunderbolt port has it: ports "NAME upstream" and
/// "NAME downstream", controller "NAME", disk "NAME disk". Whether the bus calls the controller and the ports removable
/// depends on what it takes the slot for; a desktop board's own switch looks the same but for that.
DeviceDescription nvmeBehindSwitch(std::string name, const DiskIdentity &identity, bool removable);

} // namespace sim
