#pragma once

#include "call.h"
#include "request.h"
#include "target.h"

namespace sim::framework {

struct SendOptions {
    bool synchronous = false;
    bool forget = false;
    LONGLONG timeout = 0; ///< 100 ns units, negative is relative; 0 waits for ever
};

/// STATUS_INVALID_PARAMETER for options that the framework refuses.
NTSTATUS readSendOptions(const Call &call, const WDF_REQUEST_SEND_OPTIONS *given, SendOptions &options);
/// Sends a formatted request. A failure means that it was not sent; the outcome of a sent one is in its IRP.
NTSTATUS submit(Request &request, Target &target, const SendOptions &options);

} // namespace sim::framework
