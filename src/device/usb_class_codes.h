#pragma once

#include <ntifs.h>

/// Class, subclass and protocol of a USB device or interface.
struct UsbClassCodes {
    ULONG classCode = 0;
    ULONG subclassCode = 0;
    ULONG protocolCode = 0;
};

/// The codes that the first compatible id of the form "USB\[Dev]Class_cc&SubClass_ss&Prot_pp" names; zeros when there
/// is none. PASSIVE_LEVEL.
UsbClassCodes usbClassCodes(const UNICODE_STRING &compatibleIds);
