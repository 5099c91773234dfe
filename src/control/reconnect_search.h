#pragma once

#include <ntifs.h>

#include "control/reconnect_list.h"
#include "control/visited_drivers.h"

/// Adds to `list` the physical devices of a driver whose decision would differ now, that are blocked by a compatible id
/// without having a filter, or that are composite parents or hubs of such devices. Enters the driver of each hub and
/// composite device once. Logs what fails and returns its status; the list then holds what was found before.
/// PASSIVE_LEVEL; asks the service as a device add does.
NTSTATUS getDevicesToReconnect(const UNICODE_STRING &driverName, VisitedDrivers &visited, ReconnectList &list);
