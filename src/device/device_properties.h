#pragma once

#include <ntifs.h>

#include "log/kstring.h"

/// Reads a property of a physical device object that Plug and Play knows (IoGetDeviceProperty). Trailing NULs are cut;
/// a multi-string keeps its inner ones. An empty property is success with `out` untouched: treat an empty string as
/// absent. Returns the kernel's status unchanged, or STATUS_INSUFFICIENT_RESOURCES. PASSIVE_LEVEL.
NTSTATUS getDeviceProperty(PDEVICE_OBJECT device, DEVICE_REGISTRY_PROPERTY property, KString &out);

/// The same for a property key (IoGetDevicePropertyData, neutral locale).
NTSTATUS getDevicePropertyData(PDEVICE_OBJECT device, const DEVPROPKEY &key, KString &out);
