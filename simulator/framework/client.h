#pragma once

#include <wdf.h>

#include <memory>
#include <vector>

namespace sim::framework {

class Driver;

/// One driver bound to the library. Its globals are what the driver calls WdfDriverGlobals.
struct Client : std::enable_shared_from_this<Client> {
    WDF_DRIVER_GLOBALS globals{};
    PDRIVER_OBJECT driverObject = nullptr;
    Driver *driver = nullptr; ///< from WdfDriverCreate until its deletion
    bool bound = true;
};

/// The client whose globals these are; null when none is bound with them.
Client *clientFromGlobals(PWDF_DRIVER_GLOBALS globals);
Client *clientOfDriver(PDRIVER_OBJECT driverObject);

} // namespace sim::framework
