#pragma once

#include "call.h"
#include "memory.h"
#include "request.h"
#include "target.h"

namespace sim::framework {

/// One buffer of a device control. `memory` is kept referenced while the request is formatted with it.
struct ControlBuffer {
    Memory *memory = nullptr;
    void *address = nullptr;
    std::size_t length = 0;
};

/// The part of a memory object that the offsets name. STATUS_INTEGER_OVERFLOW when it lies outside.
NTSTATUS partOfMemory(Memory *memory, const WDFMEMORY_OFFSET *offsets, ControlBuffer &buffer);
/// Fills the request's next stack location with a device control. `major` is one of the two device controls. Input of a
/// buffered code is copied now, not when the request is sent.
NTSTATUS formatControl(const Call &call, Request &request, const Target &target, UCHAR major, ULONG code,
                       const ControlBuffer &input, const ControlBuffer &output);

} // namespace sim::framework
