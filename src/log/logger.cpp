#include "log/logger.h"

#include "support/text.h"

UCHAR isLogEnabled;
Logger *logger;

namespace {

constexpr LONG closedBit = 0x40000000;

// Workers may run after DriverContext is gone (a queued work item keeps only the image mapped), so what tells them to
// stay away lives beside the context: the closed bit, and the number of workers between enterLogger and leaveLogger.
LONG workersInside = closedBit;
KEVENT lastWorkerLeft;

} // namespace

void openLogger(Logger &instance, PDRIVER_OBJECT driver) {
    instance.ioObject = driver;
    KeInitializeEvent(&instance.lock, SynchronizationEvent, TRUE);
    instance.file = nullptr;
    instance.written = -1;
    instance.level = static_cast<LONG>(LogLevel::none);
    instance.sizeLimit = 0xA00000;
    instance.fileLimit = 3;
    instance.extension = literal(L"log");
    instance.prefix = literal(L"com.tarvenholt.myrtelhaven-");
    instance.directory = literal(L"\\SystemRoot\\Temp");
    instance.name = literal(L"driver");

    KeInitializeEvent(&lastWorkerLeft, NotificationEvent, FALSE);
    logger = &instance;
    __atomic_store_n(&workersInside, 0, __ATOMIC_RELEASE);
}

void enableLog() {
    __atomic_store_n(&isLogEnabled, UCHAR{1}, __ATOMIC_RELEASE);
}

void setLogLevel(LONG level) {
    __atomic_store_n(&logger->level, level, __ATOMIC_RELAXED);
}

bool enterLogger() {
    LONG inside = __atomic_load_n(&workersInside, __ATOMIC_ACQUIRE);
    while ((inside & closedBit) == 0) {
        if (__atomic_compare_exchange_n(&workersInside, &inside, inside + 1, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE)) {
            return true;
        }
    }
    return false;
}

void leaveLogger() {
    if (__atomic_sub_fetch(&workersInside, 1, __ATOMIC_ACQ_REL) == closedBit) {
        KeSetEvent(&lastWorkerLeft, IO_NO_INCREMENT, FALSE);
    }
}

bool isLoggerClosing() {
    return (__atomic_load_n(&workersInside, __ATOMIC_ACQUIRE) & closedBit) != 0;
}

void closeLogger(Logger &instance) {
    __atomic_store_n(&isLogEnabled, UCHAR{0}, __ATOMIC_RELEASE);
    // The one record being written is finished; workers that wait for the lock behind it find the log closing and drop
    // theirs at once.
    if (__atomic_fetch_or(&workersInside, closedBit, __ATOMIC_ACQ_REL) != 0) {
        KeWaitForSingleObject(&lastWorkerLeft, Executive, KernelMode, FALSE, nullptr);
    }
    if (instance.file != nullptr) {
        ZwClose(instance.file);
    }
    logger = nullptr;
    instance.file = nullptr;
}
