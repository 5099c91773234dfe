// The interfaces of file-system class drivers; the widest of the kernel headers.
#pragma once

#include <ntddk.h>
