#pragma once

#include <ntifs.h>

/// The framework reports success to Plug and Play when the add of a filter fails: the device would then work without
/// the filter. Where a device must not start like that, its failure is noted here, and a routine in front of the
/// framework's AddDevice returns it after all, so that Plug and Play gives the device problem code 31.

/// Puts that routine in front of the one that WdfDriverCreate installed. PASSIVE_LEVEL, once, before any device add.
void hookAddDevice(PDRIVER_OBJECT driverObject);

/// Notes that the add of this device, which is running in this thread, must fail. PASSIVE_LEVEL.
void noteFailedAdd(PDEVICE_OBJECT physicalDevice, NTSTATUS status);
