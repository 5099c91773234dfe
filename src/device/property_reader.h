#pragma once

#include <ntifs.h>

#include "log/kstring.h"

/// Reads a property in two steps through `query(size, buffer, &needed)`: the size, then the text, whose trailing NULs
/// are cut. Any answer to the first question but STATUS_BUFFER_TOO_SMALL is returned, success included, and leaves
/// `out` untouched. PASSIVE_LEVEL.
template<typename Query>
NTSTATUS readProperty(KString &out, Query query) {
    ULONG size = 0;
    NTSTATUS status = query(ULONG{0}, PVOID{nullptr}, &size);
    if (status != STATUS_BUFFER_TOO_SMALL) {
        return status;
    }
    status = out.resize(static_cast<LONG>(size));
    if (!NT_SUCCESS(status)) {
        return status;
    }
    ULONG returned = 0;
    status = query(ULONG{out.maximumLength()}, PVOID{out.buffer()}, &returned);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const ULONG held = returned < out.maximumLength() ? returned : out.maximumLength();
    out.setLength(static_cast<USHORT>(held));
    out.dropTrailingNuls();
    return STATUS_SUCCESS;
}
