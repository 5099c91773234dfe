#pragma once

#include <cstdint>
#include <string_view>

namespace sim::machine {

/// Stands in for the hash of the place where the device is plugged: the same name gives the same digits.
inline std::uint32_t placeHash(std::string_view name) {
    std::uint32_t hash = 2166136261U;
    for (const char letter : name) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
    }
    return hash;
}

} // namespace sim::machine
