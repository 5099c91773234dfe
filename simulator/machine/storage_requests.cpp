#include "storage_requests.h"

#include "../kernel/violation.h"

namespace sim::machine {

void refuseToGuessStorageRequest(ULONG controlCode) {
    constexpr ULONG volumeDevice = 0x56;
    const ULONG type = DEVICE_TYPE_FROM_CTL_CODE(controlCode);
    if (type == FILE_DEVICE_MASS_STORAGE || type == FILE_DEVICE_DISK || type == FILE_DEVICE_CONTROLLER ||
        type == volumeDevice) {
        notSimulated("IRP_MJ_DEVICE_CONTROL", "storage control code " + hex(controlCode), nullptr);
    }
}

} // namespace sim::machine
