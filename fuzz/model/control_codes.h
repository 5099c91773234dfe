#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace fuzz {

/// One of the control codes that a service may send, told a second time.
struct ControlCode {
    std::uint32_t code = 0;
    const char *name = nullptr;
    std::size_t leastInput = 0;
    std::size_t leastOutput = 0;
    bool parked = false; ///< comes back when there is something to tell
};

inline constexpr std::size_t controlCodeCount = 8;
extern const std::array<ControlCode, controlCodeCount> controlCodes;
/// Null for a code that the driver does not know.
const ControlCode *knownCode(std::uint32_t code);

/// Statuses by their numbers.
inline constexpr std::uint32_t success = 0;
inline constexpr std::uint32_t noMoreEntries = 0x8000001A;
inline constexpr std::uint32_t invalidHandle = 0xC0000008;
inline constexpr std::uint32_t invalidDeviceRequest = 0xC0000010;
inline constexpr std::uint32_t accessDenied = 0xC0000022;
inline constexpr std::uint32_t bufferTooSmall = 0xC0000023;
inline constexpr std::uint32_t deviceBusy = 0x80000011;
inline constexpr std::uint32_t cancelled = 0xC0000120;

/// A request that a process made, as far as its answer depends on it.
struct SentCode {
    std::uint32_t code = 0;
    std::size_t inputBytes = 0;
    std::size_t outputBytes = 0;
    bool handleOpen = false;
    bool canRead = false; ///< what the handle was opened for
    bool canWrite = false;
    bool powerOff = false;  ///< of the control device, when it was made
    bool cancelled = false; ///< it was parked when somebody took it back
};

struct AnsweredCode {
    std::uint32_t status = 0;
    std::size_t information = 0;
};

/// What is wrong with an answer; nothing when the rules allow it.
std::optional<std::string> faultOf(const SentCode &sent, const AnsweredCode &answer);

} // namespace fuzz
