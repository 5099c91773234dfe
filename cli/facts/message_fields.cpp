#include "message_fields.h"

#include "../../simulator/kernel/strings.h"
#include "../text/display.h"

namespace cli {

const std::vector<MessageField> &messageFields() {
    using enum MessageField::Kind;
    static const std::vector<MessageField> fields{
        {"request-id", 0, 8, number},    {"device-type", 8, 4, number},
        {"mode", 12, 4, number},         {"vendor-id", 16, 4, number},
        {"product-id", 20, 4, number},   {"release", 24, 256, text},
        {"serial", 280, 256, text},      {"class", 536, 4, number},
        {"subclass", 540, 4, number},    {"protocol", 544, 4, number},
        {"device-name", 548, 256, text}, {"manufacturer", 804, 256, text},
        {"interface", 1060, 4, number},  {"interface-count", 1064, 4, number},
        {"filterable", 1068, 1, flag},   {"rule-type", 1069, 4, number},
        {"text-a", 1074, 200, text},     {"text-b", 1274, 200, text},
    };
    return fields;
}

const std::vector<MessageField> &notificationFields() {
    using enum MessageField::Kind;
    static const std::vector<MessageField> fields{
        {"mode", 0, 4, number}, {"text-a", 4, 200, text}, {"text-b", 204, 200, text}};
    return fields;
}

const std::vector<MessageField> &listedDeviceFields() {
    using enum MessageField::Kind;
    static const std::vector<MessageField> fields{
        {"valid", 0, 4, number},         {"mode", 4, 4, number},           {"vendor-id", 8, 4, number},
        {"product-id", 12, 4, number},   {"rule-type", 16, 4, number},     {"serial", 20, 256, text},
        {"device-name", 276, 256, text}, {"manufacturer", 532, 256, text},
    };
    return fields;
}

Fact messageFact(const std::vector<std::uint8_t> &message, const MessageField &field) {
    if (message.size() < field.offset + field.size) {
        return Absent();
    }
    const std::uint8_t *bytes = message.data() + field.offset;
    if (field.kind == MessageField::Kind::text) {
        std::u16string text;
        for (std::size_t i = 0; i + 1 < field.size; i += 2) {
            const auto unit = static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
            if (unit == 0) {
                break;
            }
            text += unit;
        }
        return visibleText(sim::toUtf8(text));
    }
    std::uint64_t number = 0;
    for (std::size_t i = field.size; i > 0; --i) {
        number = number << 8 | bytes[i - 1];
    }
    if (field.kind == MessageField::Kind::flag) {
        return number != 0;
    }
    return number;
}

} // namespace cli
