#include "input.h"

#include <algorithm>

namespace fuzz {

std::uint8_t Input::byte() {
    return empty() ? 0 : *next_++;
}

std::uint16_t Input::word() {
    const unsigned low = byte();
    return static_cast<std::uint16_t>(low | byte() << 8);
}

std::uint32_t Input::number() {
    const std::uint32_t low = word();
    return low | static_cast<std::uint32_t>(word()) << 16;
}

std::vector<std::uint8_t> Input::bytes(std::size_t count) {
    const std::uint8_t *begin = next_;
    next_ += std::min(count, static_cast<std::size_t>(end_ - next_));
    return {begin, next_};
}

std::vector<std::uint8_t> Input::data() {
    const std::uint16_t length = word();
    if (length < 0x8000) {
        return bytes(length);
    }
    const std::size_t whole = number() & 0x1FFFF;
    std::vector<std::uint8_t> pattern = bytes(byte());
    if (pattern.empty()) {
        pattern.push_back(0);
    }
    std::vector<std::uint8_t> result(whole);
    for (std::size_t at = 0; at < whole; ++at) {
        result[at] = pattern[at % pattern.size()];
    }
    return result;
}

} // namespace fuzz
