#pragma once

#include <ntifs.h>

namespace sim {

/// The last step of a completion, when the IRP has passed every stack location: answers the thread that built it, or
/// leaves it to its creator.
void finishIrp(PIRP irp);

} // namespace sim
