#pragma once

#include "device_description.h"

#include <string>
#include <string_view>

namespace sim {

/// What a disk says of itself, without the blanks that pad it on the wire.
struct DiskIdentity {
    std::string vendor; ///< up to 8 characters, further ones are not sent
    std::string product;
    std::string revision = "1.00";
    std::string serial; ///< empty: none
    bool removableMedia = false;
};

/// A disk as a port driver reports it: ids in the documented forms, a medium, the disk class driver. Its instance id is
/// "ENUMERATOR\DISK&VEN_…&PROD_…\INSTANCE"; the bus type is that of the port driver it is plugged below.
/// learn.microsoft.com: "Identifiers for USB storage devices", "Identifiers for SCSI devices".
DeviceDescription diskDevice(std::string name, std::u16string_view enumerator, const DiskIdentity &identity,
                             std::u16string_view instance);

} // namespace sim
