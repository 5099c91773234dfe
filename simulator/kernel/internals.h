#pragma once

#include "kernel.h"

#include "device_table.h"
#include "irp_table.h"
#include "lock_order.h"
#include "open_files.h"
#include "resource_table.h"
#include "work_item_table.h"

namespace sim {

/// What the routine families keep for themselves, one set per kernel.
struct Internals {
    ResourceTable resources;
    WorkItemTable workItems;
    DeviceTable devices;
    IrpTable irps;
    OpenFileTable files;
    LockOrder lockOrder;
};

/// The running kernel's table of live IRPs.
inline IrpTable &irpTable() {
    return kernel().internals->irps;
}

} // namespace sim
