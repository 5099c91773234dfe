// The interfaces of drivers bound to one version of the system: adds generic tables.
#pragma once

#include <nt/tables.h>
#include <wdm.h>
