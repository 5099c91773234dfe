#pragma once

#include <ntifs.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace cli {

// What user-mode processes do. Process 0 stands for the only one that has a handle.

struct OpenControlDevice {
    unsigned process = 0;
    std::string handle; ///< a name for it; may be empty
    ACCESS_MASK access = GENERIC_READ | GENERIC_WRITE;
};
struct CloseControlDevice {
    unsigned process = 0;
    std::string handle; ///< empty: the newest
};
struct MakeRequest {
    unsigned process = 0;
    std::string handle; ///< empty: the newest
    unsigned thread = 1;
    std::uint32_t code = 0;
    std::vector<std::uint8_t> input;
    std::size_t outputBytes = 0;
    std::string name; ///< under which expectations speak of it; may be empty
};
struct ReplyToQuestion {
    MakeRequest request;  ///< but for its input
    std::string question; ///< the request that was shown it; empty: `id` is sent
    std::uint64_t id = 0;
    std::uint32_t answer = 0;
};
struct CancelRequest {
    std::string request;
};
struct EndThread {
    unsigned process = 0;
    unsigned thread = 1;
};
struct EndProcess {
    unsigned process = 0;
};

using ProcessAction = std::variant<OpenControlDevice, CloseControlDevice, MakeRequest, ReplyToQuestion, CancelRequest,
                                   EndThread, EndProcess>;

/// The control codes by the names that service authors know them by, and how many bytes of output each needs.
struct ControlCode {
    std::string name;
    std::uint32_t code;
    std::size_t outputBytes;
};
const std::vector<ControlCode> &controlCodes();

} // namespace cli
