#pragma once

#include <wdf.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim::framework {

/// The context of type `typeName` (as declared with the context-type macros) of the framework device behind a device
/// object that the given driver created; null when there is none. For tests and reports only.
void *contextOfDevice(PDEVICE_OBJECT device, std::string_view typeName);

/// The context of type `typeName` of the framework driver object of a loaded driver; null when there is none.
void *contextOfDriver(PDRIVER_OBJECT driver, std::string_view typeName);

/// What EvtDriverDeviceAdd returned in the most recent AddDevice call made in this thread (the framework may hide it
/// from Plug and Play); nothing when the callback did not run.
std::optional<NTSTATUS> lastDeviceAddCallbackStatus();
void clearLastDeviceAddCallbackStatus();

/// Framework objects that are still alive, one line each (type, parent, call site of the creation).
std::vector<std::string> leaks();
std::size_t liveObjectCount();
/// Those without the requests that drivers made to send, and what hangs on them.
std::size_t liveObjectCountWithoutSentRequests();

/// Where a symbolic link of a device leads, e.g. "\DosDevices\NAME" (or "\??\NAME") to "\Device\00000042"; nothing when
/// there is no such link. Names are found without regard to case.
std::optional<std::u16string> symbolicLinkTarget(std::u16string_view name);

/// How many requests wait in a queue, and how many of it the driver has.
struct QueueCounts {
    ULONG queued = 0;
    ULONG withDriver = 0;
};
QueueCounts queueCounts(WDFQUEUE queue);

/// How the requests that came to a framework device went on, by their kind.
struct RequestCounts {
    unsigned reads = 0;
    unsigned writes = 0;
    unsigned deviceControls = 0;
    unsigned internalDeviceControls = 0;
};
/// Calls of a queue's handlers since the device was created; zeros for what is no framework device.
RequestCounts handlerCalls(PDEVICE_OBJECT device);
/// Requests that a filter's framework passed down because no handler wants them; the driver was not entered.
RequestCounts passedDown(PDEVICE_OBJECT device);

/// Whether a default queue of the framework device takes writes away from the drivers below; false for what is no
/// framework device.
bool takesWrites(PDEVICE_OBJECT device);

/// Threads that wait in a synchronous send to a device of the bound driver itself, for an answer that may have to come
/// from user mode.
std::size_t parkedSends();
/// The requests of a queue that the driver has, in the order in which it got them.
std::vector<WDFREQUEST> requestsWithDriver(WDFQUEUE queue);
/// Completes a request of a queue in the place of a driver that has forgotten it, so that its sender gets it back after
/// all. The driver must not touch it any more.
void completeForgotten(WDFREQUEST request, NTSTATUS status);

/// The library's own part of driver unload bookkeeping: true while a client is bound.
bool anyClientBound();

} // namespace sim::framework
