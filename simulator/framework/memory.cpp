#include "memory.h"

#include "driver.h"
#include "table.h"

#include <cstdlib>
#include <cstring>

namespace sim::framework {

namespace {

/// New memory holds anything but what a driver may hope for.
constexpr int garbage = 0xA5;

} // namespace

Memory::Memory(Client &client, std::size_t size, const void *callSite)
    : Object(client, objectType, callSite), buffer_(std::malloc(size)), size_(size), owned_(true) {
    std::memset(buffer_, garbage, size);
}

Memory::Memory(Client &client, void *lent, std::size_t size, const void *callSite)
    : Object(client, objectType, callSite), buffer_(lent), size_(size), owned_(false) {}

Memory::~Memory() {
    if (owned_) {
        std::free(buffer_);
    }
}

NTSTATUS createFilledMemory(const Call &call, Client &client, const std::vector<std::uint8_t> &bytes,
                            POOL_TYPE poolType, const WDF_OBJECT_ATTRIBUTES *attributes, WDFMEMORY *handle) {
    if (poolType == PagedPool) {
        call.irqlAtMost(APC_LEVEL);
    }
    auto *memory = new Memory(client, bytes.size(), call.site);
    std::memcpy(memory->buffer(), bytes.data(), bytes.size());
    return call.publish(*memory, attributes, call.parent(attributes, call.driver(client)), handle);
}

namespace {

// learn.microsoft.com: WdfMemoryCreate
NTSTATUS memoryCreate(PWDF_DRIVER_GLOBALS globals, PWDF_OBJECT_ATTRIBUTES attributes, POOL_TYPE poolType, ULONG,
                      size_t bufferSize, WDFMEMORY *handle, PVOID *buffer) {
    const Call call{"WdfMemoryCreate", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.irqlAtMost(poolType == PagedPool ? APC_LEVEL : DISPATCH_LEVEL);
    call.pointer(handle, "Memory");
    *handle = nullptr;
    if (buffer) {
        *buffer = nullptr;
    }
    NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (bufferSize == 0) {
        return STATUS_INVALID_PARAMETER;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *memory = new Memory(client, bufferSize, call.site);
    status = call.publish(*memory, attributes, call.parent(attributes, call.driver(client)), handle);
    if (NT_SUCCESS(status) && buffer) {
        *buffer = memory->buffer();
    }
    return status;
}

// learn.microsoft.com: WdfMemoryCreatePreallocated
NTSTATUS memoryCreatePreallocated(PWDF_DRIVER_GLOBALS globals, PWDF_OBJECT_ATTRIBUTES attributes, PVOID buffer,
                                  size_t bufferSize, WDFMEMORY *handle) {
    const Call call{"WdfMemoryCreatePreallocated", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    call.pointer(buffer, "Buffer");
    call.pointer(handle, "Memory");
    *handle = nullptr;
    if (bufferSize == 0) {
        return STATUS_INVALID_PARAMETER;
    }
    const NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    auto *memory = new Memory(client, buffer, bufferSize, call.site);
    return call.publish(*memory, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfMemoryGetBuffer
PVOID memoryGetBuffer(PWDF_DRIVER_GLOBALS globals, WDFMEMORY handle, size_t *bufferSize) {
    const Call call{"WdfMemoryGetBuffer", SIM_CALL_SITE};
    call.client(globals);
    call.irqlAtMost(DISPATCH_LEVEL);
    Memory &memory = call.object<Memory>(handle);
    if (bufferSize) {
        *bufferSize = memory.size();
    }
    return memory.buffer();
}

} // namespace

void installMemoryRoutines(FunctionTable &table) {
    table.set(WdfMemoryCreateTableIndex, PFN_WDFMEMORYCREATE(memoryCreate));
    table.set(WdfMemoryCreatePreallocatedTableIndex, PFN_WDFMEMORYCREATEPREALLOCATED(memoryCreatePreallocated));
    table.set(WdfMemoryGetBufferTableIndex, PFN_WDFMEMORYGETBUFFER(memoryGetBuffer));
}

} // namespace sim::framework
