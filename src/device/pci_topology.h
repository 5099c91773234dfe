#pragma once

#include <ntifs.h>

/// Whether a disk hangs off an external PCIe tunnel: its parent is an NVMe controller, that one's parent a downstream
/// switch port, and that one's an upstream switch port. A property or an ancestor that is missing means no.
/// PASSIVE_LEVEL.
bool isConnectedToPciePorts(PDEVICE_OBJECT physicalDevice);
