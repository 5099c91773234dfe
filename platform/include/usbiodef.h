// Control-code numbers and device interfaces of the USB drivers.
#pragma once

#include <nt/after_kernel.h>

#include <wdm.h>

#define USB_GET_NODE_INFORMATION 258
#define USB_GET_NODE_CONNECTION_INFORMATION 259
#define USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION 260
#define USB_HUB_CYCLE_PORT 273

#define USB_CTL(function) CTL_CODE(FILE_DEVICE_USB, (function), METHOD_BUFFERED, FILE_ANY_ACCESS)

// clang-format off
DEFINE_GUID(GUID_DEVINTERFACE_USB_HUB,
            0xf18a0e88, 0xc30c, 0x11d0, 0x88, 0x15, 0x00, 0xa0, 0xc9, 0x06, 0xbe, 0xd8);
DEFINE_GUID(GUID_DEVINTERFACE_USB_DEVICE,
            0xa5dcbf10, 0x6530, 0x11d2, 0x90, 0x1f, 0x00, 0xc0, 0x4f, 0xb9, 0x51, 0xed);
DEFINE_GUID(GUID_DEVINTERFACE_USB_HOST_CONTROLLER,
            0x3abf6f2d, 0x71c4, 0x462a, 0x8a, 0x92, 0x1e, 0x68, 0x61, 0xe6, 0xaf, 0x27);
// clang-format on
