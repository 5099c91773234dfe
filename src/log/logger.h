#pragma once

#include <ntifs.h>

#include "log/log_level.h"

/// State of the log, a member of DriverContext. The writer's fields (file, written) are touched only under `lock`.
struct Logger {
    PVOID ioObject;    ///< what work items are allocated for: the driver object
    KEVENT lock;       ///< synchronization event, signalled when free: serialises writers and file switches
    HANDLE file;       ///< open log file, or null
    LONG64 written;    ///< bytes written to the file; negative: no file is open
    LONG level;        ///< a LogLevel; lines above this level are not built
    ULONG64 sizeLimit; ///< bytes that a file may reach
    ULONG64 fileLimit; ///< files kept in the directory
    UNICODE_STRING extension;
    UNICODE_STRING prefix; ///< begins every file name and selects what rotation may delete
    UNICODE_STRING directory;
    UNICODE_STRING name;
};

// A test reads how the image's code asks for the level.
static_assert(__builtin_offsetof(Logger, level) == 0x30);

/// 1 while lines may be built.
extern UCHAR isLogEnabled;

/// The one logger; null before openLogger and after closeLogger.
extern Logger *logger;

/// Whether a line of this level is to be built. Only while the driver runs: nothing of it does after closeLogger.
[[gnu::always_inline]] inline bool isLogged(LogLevel level) {
    return __atomic_load_n(&isLogEnabled, __ATOMIC_RELAXED) != 0 &&
           __atomic_load_n(&logger->level, __ATOMIC_RELAXED) >= static_cast<LONG>(level);
}

/// Fills in the logger and makes it the one that workers write to. Nothing is logged before enableLog.
/// PASSIVE_LEVEL, before any other thread runs.
void openLogger(Logger &instance, PDRIVER_OBJECT driver);

/// Lets lines through up to `level`.
void enableLog();
void setLogLevel(LONG level);

/// Stops logging: a record that is being written is finished, every other record still queued is dropped when its
/// worker comes. Closes the file. PASSIVE_LEVEL.
void closeLogger(Logger &instance);

/// Keeps the logger alive for a worker. False once it is closed or closing.
bool enterLogger();
void leaveLogger();
/// True from the moment at which closeLogger began.
bool isLoggerClosing();
