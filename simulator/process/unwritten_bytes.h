#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace sim::process {

/// A system buffer's bytes that no input filled hold whatever was in the pool. Here they hold a pattern that depends on
/// the place, so that it shows when such bytes are handed to user mode.
void markUnwritten(std::uint8_t *buffer, std::size_t begin, std::size_t end);

struct ByteRange {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// The first run of at least eight bytes in [begin, end) that still hold the pattern. Fewer may be there by chance.
std::optional<ByteRange> findUnwritten(const std::uint8_t *buffer, std::size_t begin, std::size_t end);

} // namespace sim::process
