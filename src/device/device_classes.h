#pragma once

#include <ntifs.h>

/// Whether a physical device object is the parent of a composite USB device: a compatible id "…\COMPOSITE" or one of
/// the services that split a device into functions. Errors count as no. PASSIVE_LEVEL.
bool isCompositeDevice(PDEVICE_OBJECT device);

/// Whether a physical device object is a USB hub: one that offers the hubs' device interface. Errors count as no.
/// PASSIVE_LEVEL.
bool isUsbHub(PDEVICE_OBJECT device);

/// Whether a compatible id is exactly "Class_08" behind the bus name. Errors count as no. PASSIVE_LEVEL.
bool isMassStorageDevice(PDEVICE_OBJECT device);
