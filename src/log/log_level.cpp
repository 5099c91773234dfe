#include "log/log_level.h"

const WCHAR *logLevelName(LogLevel level) {
    switch (level) {
    case LogLevel::none:
        return L"NONE";
    case LogLevel::fatal:
        return L"FATAL";
    case LogLevel::error:
        return L"ERROR";
    case LogLevel::warn:
        return L"WARN";
    case LogLevel::info:
        return L"INFO";
    case LogLevel::debug:
        return L"DEBUG";
    case LogLevel::verbose:
        return L"VERB";
    }
    return L"UNKNOWN";
}
