#include "device/storage_descriptor.h"

namespace {

constexpr ULONG usualBytes = 2088;
/// No descriptor comes near it, and a device that claims more gets no more pool for it.
constexpr ULONG mostBytes = 0x10000;
constexpr ULONG fixedBytes = sizeof(STORAGE_DEVICE_DESCRIPTOR);

/// Sends the query to exactly `device`. `returned` is how many bytes the answer has.
NTSTATUS askForDescriptor(PDEVICE_OBJECT device, PVOID buffer, ULONG bytes, ULONG &returned) {
    STORAGE_PROPERTY_QUERY query{};
    query.PropertyId = StorageDeviceProperty;
    query.QueryType = PropertyStandardQuery;
    KEVENT done;
    KeInitializeEvent(&done, NotificationEvent, FALSE);
    IO_STATUS_BLOCK ioStatus{};
    PIRP irp = IoBuildDeviceIoControlRequest(IOCTL_STORAGE_QUERY_PROPERTY, device, &query, sizeof(query), buffer, bytes,
                                             FALSE, &done, &ioStatus);
    if (irp == nullptr) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    // An error at once is told by the returned status alone: neither the event nor the status block is touched.
    NTSTATUS status = IofCallDriver(device, irp);
    if (status == STATUS_PENDING) {
        (void)KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, nullptr);
        status = ioStatus.Status;
    }
    returned = ioStatus.Information < bytes ? static_cast<ULONG>(ioStatus.Information) : bytes;
    return status;
}

} // namespace

NTSTATUS StorageDescriptor::query(PDEVICE_OBJECT device, ULONG bytes) {
    memory_ = PoolMemory();
    held_ = 0;
    memory_ = PoolMemory(POOL_FLAG_NON_PAGED, bytes); // zeroed
    return memory_ ? askForDescriptor(device, memory_.get(), bytes, held_) : STATUS_INSUFFICIENT_RESOURCES;
}

ULONG StorageDescriptor::statedBytes() const {
    const ULONG stated = header().Size < mostBytes ? header().Size : mostBytes;
    return stated < fixedBytes ? fixedBytes : stated;
}

NTSTATUS StorageDescriptor::read(PDEVICE_OBJECT device) {
    const NTSTATUS status = query(device, usualBytes);
    if (status == STATUS_BUFFER_OVERFLOW) {
        return query(device, statedBytes());
    }
    // Most stacks don't report a short buffer: they answer with success and what fits of the descriptor, and only its
    // size tells that there is more. When the second answer can't be had, or has less, the first one stands.
    if (NT_SUCCESS(status) && header().Size > held_) {
        StorageDescriptor whole;
        if (NT_SUCCESS(whole.query(device, statedBytes())) && whole.held_ > held_) {
            memory_ = static_cast<PoolMemory &&>(whole.memory_);
            held_ = whole.held_;
        }
    }
    return status;
}

ANSI_STRING StorageDescriptor::text(ULONG offset) const {
    constexpr ULONG mostCharacters = 0xFFFF / sizeof(WCHAR) - 1; // with the NUL that a conversion adds
    if (offset == 0 || offset >= held_) {
        return {};
    }
    char *start = memory_.as<char>() + offset;
    const ULONG available = held_ - offset < mostCharacters ? held_ - offset : mostCharacters;
    USHORT length = 0;
    while (length < available && start[length] != '\0') {
        ++length;
    }
    return ANSI_STRING{length, length, start};
}
