#include "control/log_settings.h"

#include "driver/driver_context.h"
#include "log/log.h"
#include "policy/parameters.h"

NTSTATUS reloadLogSettings() {
    ULONG level = 0;
    const NTSTATUS status = queryDwordValue(parametersKeyPath, L"LogLevel", level);
    setLogLevel(static_cast<LONG>(level));
    const Logger &settings = getDriverContext().logger;
    LOG_INFO(L"Read log settings from registry, status = 0x", hex(status), L", logLevel = ",
             logLevelName(static_cast<LogLevel>(level)), L", logMaxFileSize = 0x", hexNumber(settings.sizeLimit),
             L", logMaxFilesNumber = 0x", hexNumber(settings.fileLimit), L", logFileExtension = ", settings.extension,
             L", logFilePrefix = ", settings.prefix, L", logDir = ", settings.directory, L", logFileName = ",
             settings.name);
    return status;
}
