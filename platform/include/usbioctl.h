// Control codes that USB hubs answer, and their buffers (learn.microsoft.com: "usbioctl.h header").
#pragma once

#include <usb.h>
#include <usbiodef.h>

#define IOCTL_USB_GET_NODE_INFORMATION USB_CTL(USB_GET_NODE_INFORMATION)
#define IOCTL_USB_GET_NODE_CONNECTION_INFORMATION USB_CTL(USB_GET_NODE_CONNECTION_INFORMATION)
#define IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION USB_CTL(USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION)
#define IOCTL_USB_HUB_CYCLE_PORT USB_CTL(USB_HUB_CYCLE_PORT)

typedef enum _USB_CONNECTION_STATUS {
    NoDeviceConnected,
    DeviceConnected,
    DeviceFailedEnumeration,
    DeviceGeneralFailure,
    DeviceCausedOvercurrent,
    DeviceNotEnoughPower,
    DeviceNotEnoughBandwidth,
    DeviceHubNestedTooDeeply,
    DeviceInLegacyHub,
    DeviceEnumerating,
    DeviceReset
} USB_CONNECTION_STATUS,
    *PUSB_CONNECTION_STATUS;

#pragma pack(push, 1)

typedef struct _USB_PIPE_INFO {
    USB_ENDPOINT_DESCRIPTOR EndpointDescriptor;
    ULONG ScheduleOffset;
} USB_PIPE_INFO, *PUSB_PIPE_INFO;

typedef struct _USB_NODE_CONNECTION_INFORMATION {
    ULONG ConnectionIndex;
    USB_DEVICE_DESCRIPTOR DeviceDescriptor;
    UCHAR CurrentConfigurationValue;
    BOOLEAN LowSpeed;
    BOOLEAN DeviceIsHub;
    USHORT DeviceAddress;
    ULONG NumberOfOpenPipes;
    USB_CONNECTION_STATUS ConnectionStatus;
    USB_PIPE_INFO PipeList[0];
} USB_NODE_CONNECTION_INFORMATION, *PUSB_NODE_CONNECTION_INFORMATION;

typedef struct _USB_DESCRIPTOR_REQUEST {
    ULONG ConnectionIndex;
    struct {
        UCHAR bmRequest;
        UCHAR bRequest;
        USHORT wValue;
        USHORT wIndex;
        USHORT wLength;
    } SetupPacket;
    UCHAR Data[0];
} USB_DESCRIPTOR_REQUEST, *PUSB_DESCRIPTOR_REQUEST;

typedef struct _USB_CYCLE_PORT_PARAMS {
    ULONG ConnectionIndex;
    ULONG StatusReturned;
} USB_CYCLE_PORT_PARAMS, *PUSB_CYCLE_PORT_PARAMS;

#pragma pack(pop)
