// The kernel interfaces that every driver sees.
#pragma once

#define PLATFORM_KERNEL_TYPES

#include <nt/debug.h>
#include <nt/device.h>
#include <nt/fail.h>
#include <nt/files.h>
#include <nt/interlocked.h>
#include <nt/irp.h>
#include <nt/lists.h>
#include <nt/memory.h>
#include <nt/objects.h>
#include <nt/pnp.h>
#include <nt/power.h>
#include <nt/registry.h>
#include <nt/security.h>
#include <nt/strings.h>
#include <nt/synchronization.h>
#include <nt/time.h>
#include <nt/workitems.h>
