// The kernel-mode driver framework, version 1.15.
#pragma once

#include <nt/after_kernel.h>

#include <wdf/collection.h>
#include <wdf/device.h>
#include <wdf/driver.h>
#include <wdf/functions.h>
#include <wdf/memory.h>
#include <wdf/object.h>
#include <wdf/power.h>
#include <wdf/queue.h>
#include <wdf/registry.h>
#include <wdf/request.h>
#include <wdf/sync.h>
#include <wdf/target.h>
#include <wdf/types.h>
