#pragma once

#include <ntifs.h>
#include <wdf.h>

#include "myrtelhaven_service.h"

/// Fills the record, which is zero, with what Plug and Play and the hub tell about a device. Logs what can't be had; a
/// device whose instance id is not understood leaves the record zero. PASSIVE_LEVEL.
void fillProcessedDevice(WDFDEVICE controlDevice, PDEVICE_OBJECT device, ProcessedDeviceInfo &record);
