#include "unwritten_bytes.h"

namespace sim::process {

namespace {

constexpr std::size_t shortestRun = 8;

constexpr std::uint8_t patternAt(std::size_t place) {
    return static_cast<std::uint8_t>((place * 0x9D + 0x5B) ^ (place >> 8) * 0x35);
}

} // namespace

void markUnwritten(std::uint8_t *buffer, std::size_t begin, std::size_t end) {
    for (std::size_t place = begin; place < end; ++place) {
        buffer[place] = patternAt(place);
    }
}

std::optional<ByteRange> findUnwritten(const std::uint8_t *buffer, std::size_t begin, std::size_t end) {
    for (std::size_t place = begin; place < end; ++place) {
        ByteRange run{place, place};
        while (run.end < end && buffer[run.end] == patternAt(run.end)) {
            ++run.end;
        }
        if (run.end - run.begin >= shortestRun) {
            return run;
        }
        place = run.end;
    }
    return std::nullopt;
}

} // namespace sim::process
