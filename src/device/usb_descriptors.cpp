#include "device/usb_descriptors.h"

#include "support/pool_memory.h"

namespace {

/// Room for one descriptor of `DataBytes` behind the header of a descriptor request.
template<size_t DataBytes>
struct DescriptorRequest {
    USB_DESCRIPTOR_REQUEST header;
    UCHAR data[DataBytes];
};

constexpr USHORT stringDataBytes = 257; // length byte, type byte, up to 127 characters, one byte to spare
static_assert(sizeof(USB_DESCRIPTOR_REQUEST) == 12);
static_assert(sizeof(DescriptorRequest<stringDataBytes>) == 269);
static_assert(sizeof(DescriptorRequest<sizeof(USB_CONFIGURATION_DESCRIPTOR)>) == 21);

/// Sends the same buffer as input and output, as the hub requests expect it.
NTSTATUS askHub(WDFIOTARGET hub, ULONG controlCode, void *buffer, ULONG bytes) {
    WDF_MEMORY_DESCRIPTOR memory;
    WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&memory, buffer, bytes);
    return WdfIoTargetSendIoctlSynchronously(hub, nullptr, controlCode, &memory, &memory, nullptr, nullptr);
}

template<size_t DataBytes>
NTSTATUS askForDescriptor(WDFIOTARGET hub, ULONG port, UCHAR type, UCHAR index, USHORT languageId,
                          DescriptorRequest<DataBytes> &request) {
    request.header.ConnectionIndex = port;
    request.header.SetupPacket.wValue = static_cast<USHORT>((type << 8) | index);
    request.header.SetupPacket.wIndex = languageId;
    request.header.SetupPacket.wLength = DataBytes;
    return askHub(hub, IOCTL_USB_GET_DESCRIPTOR_FROM_NODE_CONNECTION, &request, sizeof(request));
}

void cutTrailingBlanks(KString &text) {
    const USHORT untrimmed = text.length();
    USHORT count = characterCount(text);
    while (count > 0 && text.buffer()[count - 1] == L' ') {
        --count;
    }
    if (count == 0) {
        text.release();
        return;
    }
    text.setLength(static_cast<USHORT>(count * sizeof(WCHAR)));
    text.setMaximumLength(untrimmed);
}

} // namespace

NTSTATUS getUsbDeviceDescriptor(WDFIOTARGET hub, ULONG port, USB_DEVICE_DESCRIPTOR &descriptor) {
    USB_NODE_CONNECTION_INFORMATION connection{};
    connection.ConnectionIndex = port;
    const NTSTATUS status = askHub(hub, IOCTL_USB_GET_NODE_CONNECTION_INFORMATION, &connection, sizeof(connection));
    if (NT_SUCCESS(status)) {
        descriptor = connection.DeviceDescriptor;
    }
    return status;
}

NTSTATUS getUsbConfigurationDescriptor(WDFIOTARGET hub, ULONG port, USB_CONFIGURATION_DESCRIPTOR &descriptor) {
    using Request = DescriptorRequest<sizeof(USB_CONFIGURATION_DESCRIPTOR)>;
    PoolMemory memory(POOL_FLAG_NON_PAGED, sizeof(Request));
    if (!memory) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    auto &request = *memory.as<Request>();
    const NTSTATUS status = askForDescriptor(hub, port, USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0, request);
    if (NT_SUCCESS(status)) {
        RtlCopyMemory(&descriptor, request.data, sizeof(descriptor));
    }
    return status;
}

NTSTATUS queryUsbStringDescriptor(WDFIOTARGET hub, ULONG port, UCHAR index, USHORT languageId, KString &text) {
    using Request = DescriptorRequest<stringDataBytes>;
    PoolMemory memory(POOL_FLAG_NON_PAGED, sizeof(Request)); // zeroed, which ends the text
    if (!memory) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    auto &request = *memory.as<Request>();
    const NTSTATUS status = askForDescriptor(hub, port, USB_STRING_DESCRIPTOR_TYPE, index, languageId, request);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    constexpr size_t headerBytes = 2;
    constexpr size_t mostCharacters = (stringDataBytes - headerBytes) / sizeof(WCHAR);
    WCHAR characters[mostCharacters];
    RtlCopyMemory(characters, request.data + headerBytes, sizeof(characters));
    return text.copyFrom(fieldText(characters, mostCharacters));
}

void getUsbStringDescriptor(WDFIOTARGET hub, ULONG port, UCHAR index, KString &text) {
    text.release();
    if (index == 0) {
        return;
    }
    KString languages;
    if (!NT_SUCCESS(queryUsbStringDescriptor(hub, port, 0, 0, languages)) || languages.empty()) {
        return;
    }
    if (!NT_SUCCESS(queryUsbStringDescriptor(hub, port, index, languages.buffer()[0], text))) {
        text.release();
        return;
    }
    cutTrailingBlanks(text);
}
