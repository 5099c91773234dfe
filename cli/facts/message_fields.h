#pragma once

#include "fact.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// Size of the record that the driver fills for the service.
inline constexpr std::size_t serviceMessageSize = 1474;

/// Names and kinds of the fields, in the order of their offsets.
struct MessageField {
    enum class Kind { number, flag, text };
    std::string name;
    std::size_t offset;
    std::size_t size;
    Kind kind;
};
const std::vector<MessageField> &messageFields();
/// Those of the records that a process receives: a notification, and a device of the listing.
const std::vector<MessageField> &notificationFields();
const std::vector<MessageField> &listedDeviceFields();
inline constexpr std::size_t listedDeviceSize = 788;

/// One field's content; Absent when the record is too short to hold it.
Fact messageFact(const std::vector<std::uint8_t> &message, const MessageField &field);

} // namespace cli
