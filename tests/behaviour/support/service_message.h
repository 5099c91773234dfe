#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace behaviour {

/// A service message by the offsets of its layout.
class MessageBytes {
  public:
    explicit MessageBytes(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) { bytes_.resize(1474); }

    std::uint32_t number(std::size_t offset) const {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes_.data() + offset, sizeof(value));
        return value;
    }
    std::uint8_t byte(std::size_t offset) const { return bytes_[offset]; }
    /// The text of a field of that many bytes; "(not terminated)" when no NUL is in it.
    std::u16string text(std::size_t offset, std::size_t bytes) const {
        std::u16string field(bytes / 2, u'\0');
        std::memcpy(field.data(), bytes_.data() + offset, bytes);
        const std::size_t end = field.find(u'\0');
        return end == std::u16string::npos ? u"(not terminated)" : field.substr(0, end);
    }
    /// Whether [begin, end) is zero.
    bool isZero(std::size_t begin = 0, std::size_t end = 1474) const {
        for (std::size_t at = begin; at < end; ++at) {
            if (bytes_[at] != 0) {
                return false;
            }
        }
        return true;
    }

    std::uint32_t deviceType() const { return number(8); }
    std::uint32_t mode() const { return number(12); }
    std::uint32_t vendorId() const { return number(16); }
    std::uint32_t productId() const { return number(20); }
    std::u16string release() const { return text(24, 256); }
    std::u16string serialNumber() const { return text(280, 256); }
    std::uint32_t classCode() const { return number(536); }
    std::uint32_t subclassCode() const { return number(540); }
    std::uint32_t protocolCode() const { return number(544); }
    std::u16string deviceName() const { return text(548, 256); }
    std::u16string manufacturer() const { return text(804, 256); }
    std::uint32_t interfaceNumber() const { return number(1060); }
    std::uint32_t interfaceCount() const { return number(1064); }
    std::uint8_t filterable() const { return byte(1068); }
    std::uint32_t ruleType() const { return number(1069); }
    std::u16string description() const { return text(1074, 200); }
    std::u16string identity() const { return text(1274, 200); }

  private:
    std::vector<std::uint8_t> bytes_;
};

} // namespace behaviour
