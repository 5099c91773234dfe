#pragma once

#include <wdf.h>

namespace sim::framework {

/// What WdfRequestGetParameters tells about a stack location.
void fillParameters(const IO_STACK_LOCATION &location, WDF_REQUEST_PARAMETERS &parameters);

} // namespace sim::framework
