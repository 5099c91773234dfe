#pragma once

#include "log/log_stream.h"
#include "log/logger.h"

/// Queues a submitted record to a system worker thread, which owns it from then on. Frees it when no work item can be
/// had. IRQL <= DISPATCH_LEVEL.
void queueLogRecord(LogStream *record);

/// Deletes the oldest files (smallest names) that begin with the log prefix until no more than the file limit remain.
/// Files of other components with the same prefix count and go too, on purpose. PASSIVE_LEVEL; called before logging
/// starts or under the logger's lock. Returns what stopped it; a listing that fails deletes nothing.
NTSTATUS rotateLogFiles(const Logger &log);
