#include "driver/driver_context.h"

#include "log/log.h"
#include "log/log_writer.h"
#include "policy/parameters.h"
#include "support/placement_new.h"

namespace {

constexpr LONG notUsbHubTextRoom = 10'240; // bytes

void readCallbackSettings(DriverContext &context) {
    context.callbackMode = 0;
    context.callbackTimeout = 30;
    context.callbackFallbackAction = 0;
    // What is missing or of another type keeps its default.
    (void)queryDwordValue(parametersKeyPath, L"CallbackMode", context.callbackMode);
    (void)queryDwordValue(parametersKeyPath, L"CallbackTimeout", context.callbackTimeout);
    (void)queryDwordValue(parametersKeyPath, L"CallbackFallbackAction", context.callbackFallbackAction);
}

void startLog(DriverContext &context, PDRIVER_OBJECT driver) {
    openLogger(context.logger, driver);
    (void)rotateLogFiles(context.logger);
    enableLog();
    ULONG level = 0;
    (void)queryDwordValue(parametersKeyPath, L"LogLevel", level);
    setLogLevel(static_cast<LONG>(level));
}

} // namespace

void buildDriverContext(DriverContext &context, PDRIVER_OBJECT driver) {
    context.controlDevice = nullptr;
    context.ruleStorage.initializeRules();
    context.ruleStorage.initializeLock();
    context.thunderboltRuleStorage.initializeLock();
    context.thunderboltRuleStorage.initializeRules();
    readCallbackSettings(context);
    context.blockedDevices.initialize();
    startLog(context, driver);
    ExInitializeFastMutex(&context.usbFilterMutex);
    InitializeListHead(&context.usbFilters);
    ExInitializeFastMutex(&context.notUsbHubMutex);
    new (InPlace{&context.notUsbHubText}) KString;
    // Without this room the text stays empty and later appends fail, which is logged then.
    (void)context.notUsbHubText.resize(notUsbHubTextRoom);
}

void destroyDriverContext(DriverContext &context) {
    context.notUsbHubText.release();
    closeLogger(context.logger);
    context.blockedDevices.destroy();
    context.thunderboltRuleStorage.clearRules();
    context.thunderboltRuleStorage.deleteLock();
    context.ruleStorage.deleteLock();
    context.ruleStorage.clearRules();
}
