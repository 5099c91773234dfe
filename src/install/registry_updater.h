#pragma once

#include <ntifs.h>

/// Keeps the driver installed as a class filter. Everything here logs what fails and goes on. PASSIVE_LEVEL.

/// When the system starts the driver: values of the service's "Start".
enum class StartType : ULONG { boot = 0, demand = 3 };

/// Adds the driver's name to the end of the nine class filter lists where it is missing (in any letter case). The order
/// of other filters is kept; missing keys and values are created. A list that fails does not stop the others.
void addClassFilters();

/// Takes the first entry of the driver's name out of each of the nine lists.
void removeClassFilters();

/// Adds the driver's name to one list, or takes it out of it. Returns the last step's status.
NTSTATUS addRegistryMultiString(const UNICODE_STRING &keyPath, const UNICODE_STRING &valueName);
NTSTATUS removeRegistryMultiString(const UNICODE_STRING &keyPath, const UNICODE_STRING &valueName);

NTSTATUS setDriverStartType(StartType type);
