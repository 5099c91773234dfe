#pragma once

#include <ntifs.h>

/// Looks for a USB hub driver among a device and its ancestors. A device that has none is added to the text of such
/// devices: a line with its driver's name and each ancestor's, each followed by "->". PASSIVE_LEVEL.
void recordUnlessBelowHub(PDEVICE_OBJECT physicalDevice);
