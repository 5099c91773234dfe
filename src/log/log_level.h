#pragma once

#include <ntifs.h>

/// How much is logged: a line is built when the configured level is at least the line's own.
enum class LogLevel : LONG { none = 0, fatal = 1, error = 2, warn = 3, info = 4, debug = 5, verbose = 6 };

/// The name that a log line carries; "UNKNOWN" for any other number.
const WCHAR *logLevelName(LogLevel level);
