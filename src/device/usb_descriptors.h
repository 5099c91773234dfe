#pragma once

#include <ntifs.h>
#include <usbioctl.h>
#include <wdf.h>

#include "log/kstring.h"

/// Descriptors of the device on a hub's port, asked of the hub. All at PASSIVE_LEVEL.

/// The 18-byte device descriptor. Returns the status of the hub's answer; an empty port answers zeros with success.
NTSTATUS getUsbDeviceDescriptor(WDFIOTARGET hub, ULONG port, USB_DEVICE_DESCRIPTOR &descriptor);

/// The first 9 bytes of configuration descriptor 0.
NTSTATUS getUsbConfigurationDescriptor(WDFIOTARGET hub, ULONG port, USB_CONFIGURATION_DESCRIPTOR &descriptor);

/// Text of one string descriptor, up to its first NUL.
NTSTATUS queryUsbStringDescriptor(WDFIOTARGET hub, ULONG port, UCHAR index, USHORT languageId, KString &text);

/// The same in the device's first language, without trailing blanks. Empty for index 0 and whenever the hub or the
/// device does not answer.
void getUsbStringDescriptor(WDFIOTARGET hub, ULONG port, UCHAR index, KString &text);
