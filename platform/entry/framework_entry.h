// The image's entry point and its state.
#pragma once

#include <ntifs.h>

/// Called by the system when the image is loaded: binds to the framework, then calls the driver's own DriverEntry.
/// PASSIVE_LEVEL. Returns the status of binding or of DriverEntry; on failure nothing stays bound.
extern "C" __attribute__((visibility("default"))) NTSTATUS FxDriverEntry(PDRIVER_OBJECT driver,
                                                                         PUNICODE_STRING registryPath);
