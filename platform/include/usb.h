// USB types for drivers.
#pragma once

#include <usbspec.h>

typedef LONG USBD_STATUS;
#define USBD_STATUS_SUCCESS ((USBD_STATUS)0x00000000L)
