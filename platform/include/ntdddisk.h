// Control codes that disk drivers answer (learn.microsoft.com: "ntdddisk.h header").
#pragma once

#include <ntddstor.h>

#define IOCTL_DISK_BASE FILE_DEVICE_DISK
#define IOCTL_DISK_IS_WRITABLE CTL_CODE(IOCTL_DISK_BASE, 0x0009, METHOD_BUFFERED, FILE_ANY_ACCESS)
