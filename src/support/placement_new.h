#pragma once

#include <ntifs.h>

/// Constructs an object in memory that already exists. The tag keeps the operator apart from the standard library's.
struct InPlace {
    void *memory;
};

inline void *operator new(size_t, InPlace place) noexcept {
    return place.memory;
}

inline void operator delete(void *, InPlace) noexcept {}
