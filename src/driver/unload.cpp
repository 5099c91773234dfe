#include "driver/unload.h"

#include "driver/driver_context.h"
#include "install/registry_updater.h"

VOID onDriverUnload(WDFDRIVER) {
    removeClassFilters();
    (void)setDriverStartType(StartType::demand);
}

VOID onDriverCleanup(WDFOBJECT driver) {
    destroyDriverContext(*driverContextOf(driver));
}
