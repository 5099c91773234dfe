#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

/// Reads an input from its front; numbers are little-endian. Behind the end everything is zero, so that any bytes are
/// an input.
class Input {
  public:
    Input(const std::uint8_t *data, std::size_t size) : next_(data), end_(data + size) {}

    bool empty() const { return next_ == end_; }
    std::uint8_t byte();
    std::uint16_t word();
    std::uint32_t number();
    /// As many as there are, at most `count`.
    std::vector<std::uint8_t> bytes(std::size_t count);

    /// Data of any length up to 0x1FFFF bytes. A word below 0x8000 is the length of the bytes that follow. Any other is
    /// followed by a number, the length (its low 17 bits), and a byte, the length of the pattern behind it, which is
    /// repeated to that length.
    std::vector<std::uint8_t> data();

  private:
    const std::uint8_t *next_;
    const std::uint8_t *end_;
};

} // namespace fuzz
