#include "usb_parser.h"

#include "../../simulator/kernel/strings.h"
#include "../text/status_names.h"
#include "suggestion.h"
#include "value_parser.h"

#include <fmt/format.h>

namespace cli {
namespace {

template<typename Number>
void readNumber(MapReader &reader, std::string_view key, Number &into) {
    if (const auto node = reader.take(key)) {
        if (const auto number = node->number(key, static_cast<Number>(~Number{0}))) {
            into = static_cast<Number>(*number);
        }
    }
}

/// The lowest string index that nothing uses yet; 0 when all are taken.
std::uint8_t freeIndex(const sim::UsbDescriptors &usb) {
    for (unsigned index = 1; index <= 0xFF; ++index) {
        const auto candidate = static_cast<std::uint8_t>(index);
        if (!usb.strings.contains(candidate) && candidate != usb.manufacturerIndex && candidate != usb.productIndex &&
            candidate != usb.serialIndex) {
            return candidate;
        }
    }
    return 0;
}

void checkLength(const YamlNode &node, const std::u16string &text) {
    constexpr std::size_t longest = 126; // the length byte of the descriptor counts two bytes per unit and two more
    if (text.size() > longest) {
        node.problem("a USB string has at most 126 characters; 'answers' can give any bytes");
    }
}

/// A text that the device descriptor points to: null means that the device has none. Without an index given in the file
/// the text keeps the one that it had, or gets a free one.
void readNamedString(MapReader &reader, std::string_view key, std::uint8_t &index, sim::UsbDescriptors &usb) {
    const auto node = reader.take(key);
    const std::string indexKey = std::string(key) + "-index";
    readNumber(reader, indexKey, index);
    if (!node) {
        return;
    }
    if (node->isNull()) {
        usb.strings.erase(index);
        index = 0;
        return;
    }
    if (const auto text = parseUtf16(*node, key)) {
        if (index == 0) {
            index = freeIndex(usb);
        }
        if (index == 0) {
            node->problem(fmt::format("there is no string index left for {}", key));
            return;
        }
        checkLength(*node, *text);
        usb.strings[index] = *text;
    }
}

std::optional<std::uint8_t> parseIndex(const YamlEntry &entry) {
    const auto number = parseNumber(entry.name);
    if (number && *number <= 255) {
        return static_cast<std::uint8_t>(*number);
    }
    entry.key.problem(fmt::format("a string index must be a number from 0 to 255, found '{}'", entry.name));
    return std::nullopt;
}

void readAnswers(const YamlNode &node, sim::UsbDescriptors &usb) {
    MapReader reader(node, "answers");
    const auto read = [&](std::string_view key, sim::HubAnswer &answer) {
        if (const auto value = reader.take(key)) {
            answer = parseHubAnswer(*value).value_or(answer);
        }
    };
    read("connection-information", usb.connectionInformation);
    read("configuration-descriptor", usb.configurationDescriptor);
    read("languages", usb.languageList);
    if (const auto strings = reader.take("strings")) {
        MapReader(*strings, "strings");
        for (const YamlEntry &entry : strings->entries()) {
            if (const auto index = parseIndex(entry)) {
                usb.stringAnswers[*index] = parseHubAnswer(entry.value).value_or(sim::HubAnswer());
            }
        }
    }
    reader.finish();
}

} // namespace

std::optional<NTSTATUS> parseStatusNode(const YamlNode &node, std::string_view what) {
    const auto text = node.text(what);
    if (!text) {
        return std::nullopt;
    }
    const auto status = parseStatus(*text);
    if (!status) {
        node.problem(fmt::format("{} must be a status such as STATUS_SUCCESS or 0xC0000001, found '{}'{}", what, *text,
                                 didYouMean(*text, statusNames())));
    }
    return status;
}

std::optional<sim::HubAnswer> parseHubAnswer(const YamlNode &node) {
    sim::HubAnswer answer;
    MapReader reader(node, "hub answer");
    if (const auto failure = reader.take("fail")) {
        answer.failure = parseStatusNode(*failure, "fail");
    }
    if (const auto length = reader.take("shorten-to")) {
        if (const auto number = length->number("shorten-to", 0xFFFF)) {
            answer.shortenTo = static_cast<std::uint32_t>(*number);
        }
    }
    if (const auto bytes = reader.take("bytes")) {
        answer.replace = bytes->bytes("bytes");
    }
    reader.finish();
    return answer;
}

void readUsb(const YamlNode &node, sim::UsbDescriptors &usb) {
    MapReader reader(node, "usb");
    readNumber(reader, "vendor-id", usb.vendorId);
    readNumber(reader, "product-id", usb.productId);
    readNumber(reader, "release", usb.release);
    readNumber(reader, "device-class", usb.deviceClass);
    readNumber(reader, "device-subclass", usb.deviceSubClass);
    readNumber(reader, "device-protocol", usb.deviceProtocol);
    readNumber(reader, "configurations", usb.configurationCount);
    readNumber(reader, "interfaces", usb.interfaceCount);
    if (const auto languages = reader.take("languages")) {
        usb.languages.clear();
        for (const YamlNode &language : languages->items()) {
            if (const auto number = language.number("a language", 0xFFFF)) {
                usb.languages.push_back(static_cast<std::uint16_t>(*number));
            }
        }
    }
    if (const auto strings = reader.take("strings")) {
        MapReader(*strings, "strings");
        for (const YamlEntry &entry : strings->entries()) {
            if (const auto index = parseIndex(entry)) {
                usb.strings[*index] = parseUtf16(entry.value, "a string").value_or(u"");
                checkLength(entry.value, usb.strings[*index]);
            }
        }
    }
    readNamedString(reader, "manufacturer", usb.manufacturerIndex, usb);
    readNamedString(reader, "product", usb.productIndex, usb);
    readNamedString(reader, "serial", usb.serialIndex, usb);
    if (const auto later = reader.take("answers-later")) {
        usb.answersLater = later->flag("answers-later").value_or(false);
    }
    if (const auto answers = reader.take("answers")) {
        readAnswers(*answers, usb);
    }
    reader.finish();
}

} // namespace cli
