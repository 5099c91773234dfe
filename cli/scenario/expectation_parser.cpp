#include "expectation_parser.h"

#include "../../simulator/kernel/strings.h"
#include "../facts/device_facts.h"
#include "../facts/message_fields.h"
#include "../reg/key_paths.h"
#include "../text/display.h"
#include "disk_parser.h"
#include "suggestion.h"
#include "usb_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

namespace cli {
namespace {

Texts parseTexts(const YamlNode &node, std::string_view what) {
    Texts texts;
    for (const YamlNode &item : node.items()) {
        if (const auto text = parseUtf16(item, what)) {
            texts.push_back(visibleText(sim::toUtf8(*text)));
        }
    }
    return texts;
}

/// "none", a list or a single text are the whole of it; a map gives conditions.
TextConditions parseConditions(const YamlNode &node, std::string_view what) {
    TextConditions conditions;
    if (!node.isMap()) {
        const Texts texts = parseTexts(node, what);
        const bool none = node.isScalar() && texts == Texts{"none"};
        conditions.exactly = none ? Texts() : texts;
        return conditions;
    }
    MapReader reader(node, std::string(what));
    const auto read = [&](std::string_view key, Texts &into) {
        if (const auto value = reader.take(key)) {
            into = parseTexts(*value, key);
        }
    };
    read("contains", conditions.contains);
    read("excludes", conditions.excludes);
    read("mentions", conditions.mentions);
    read("omits", conditions.omits);
    reader.finish();
    if (conditions.empty()) {
        node.problem(fmt::format("{} needs one of contains, excludes, mentions and omits", what));
    }
    return conditions;
}

using FieldFacts = std::vector<std::pair<std::string, Fact>>;

FieldFacts parseFields(const YamlNode &node, std::string_view what, const std::vector<MessageField> &fields) {
    FieldFacts facts;
    MapReader reader(node, std::string(what));
    for (const MessageField &field : fields) {
        const auto value = reader.take(field.name);
        if (!value) {
            continue;
        }
        if (field.kind == MessageField::Kind::text) {
            if (const auto text = parseUtf16(*value, field.name)) {
                facts.emplace_back(field.name, visibleText(sim::toUtf8(*text)));
            }
        } else if (field.kind == MessageField::Kind::flag) {
            if (const auto flag = value->flag(field.name)) {
                facts.emplace_back(field.name, *flag);
            }
        } else if (const auto number = value->number(field.name, ~std::uint64_t{0})) {
            facts.emplace_back(field.name, *number);
        }
    }
    reader.finish();
    return facts;
}

/// All of a record in hexadecimal, or some of its fields.
Expected parseRecord(const YamlNode &node, std::string_view what, const std::vector<MessageField> &fields) {
    Expected expected;
    if (node.isNull()) {
        expected.equals = Absent();
    } else if (node.isMap()) {
        expected.fields = parseFields(node, what, fields);
    } else if (const auto bytes = node.bytes(what)) {
        expected.equals = hexText(*bytes);
    }
    return expected;
}

Expected parseListing(const YamlNode &node) {
    Expected expected;
    expected.records.emplace();
    if (node.isScalar() && node.text("devices") == "none") {
        return expected;
    }
    for (const YamlNode &item : node.items()) {
        expected.records->push_back(parseFields(item, "a listed device", listedDeviceFields()));
    }
    return expected;
}

/// Wraps what a reader of YamlNode found into a fact.
template<typename Value>
std::optional<Fact> asFact(const std::optional<Value> &value) {
    return value ? std::optional<Fact>(Fact(*value)) : std::nullopt;
}

Expected parseExpected(const YamlNode &node, const FactKey &key) {
    Expected expected;
    if (key.kind == FactKind::message) {
        return parseRecord(node, key.name, messageFields());
    }
    if (key.kind == FactKind::notification) {
        return parseRecord(node, key.name, notificationFields());
    }
    if (key.kind == FactKind::listing) {
        return parseListing(node);
    }
    if (key.kind == FactKind::lines || key.kind == FactKind::texts || (key.kind == FactKind::text && node.isMap())) {
        expected.conditions = parseConditions(node, key.name);
        return expected;
    }
    if (node.isNull()) {
        expected.equals = Absent();
        return expected;
    }
    switch (key.kind) {
    case FactKind::word:
        expected.equals = asFact(node.word(key.name, key.words));
        break;
    case FactKind::mode:
        expected.equals = asFact(parseModeNumber(node, key.name));
        break;
    case FactKind::status:
        if (const auto status = parseStatusNode(node, key.name)) {
            expected.equals = StatusFact{*status};
        }
        break;
    case FactKind::number:
        expected.equals = asFact(node.number(key.name, ~std::uint64_t{0}));
        break;
    case FactKind::flag:
        expected.equals = asFact(node.flag(key.name));
        break;
    case FactKind::bytes:
        if (const auto bytes = node.bytes(key.name)) {
            expected.equals = hexText(*bytes);
        }
        break;
    default:
        if (const auto text = parseUtf16(node, key.name)) {
            expected.equals = visibleText(sim::toUtf8(*text));
        }
    }
    return expected;
}

std::vector<DeviceExpectation> takeKeys(MapReader &reader, const std::vector<FactKey> &keys) {
    std::vector<DeviceExpectation> expectations;
    for (const FactKey &key : keys) {
        if (const auto node = reader.take(key.name)) {
            expectations.push_back({std::string(key.name), parseExpected(*node, key), node->where()});
        }
    }
    // In the order of the file, as failures are read.
    std::sort(expectations.begin(), expectations.end(), [](const DeviceExpectation &a, const DeviceExpectation &b) {
        return std::tie(a.where.line, a.key) < std::tie(b.where.line, b.key);
    });
    return expectations;
}

void parseRegistry(const YamlNode &node, std::vector<RegistryExpectation> &into) {
    MapReader(node, "registry");
    for (const YamlEntry &key : node.entries()) {
        const auto path = scenarioKeyPath(key.name);
        if (!path) {
            key.key.problem(fmt::format("registry key '{}' has an unknown root", key.name));
            continue;
        }
        if (key.value.isNull() || (key.value.isMap() && key.value.entries().empty())) {
            into.push_back({*path, std::nullopt, !key.value.isNull(), {}, key.key.where()});
            continue;
        }
        MapReader(key.value, "key '" + key.name + "'");
        for (const YamlEntry &value : key.value.entries()) {
            RegistryExpectation expectation{
                *path, sim::toUtf16(value.name), !value.value.isNull(), {}, value.key.where()};
            if (expectation.exists) {
                expectation.value = parseValue(value.value, "value '" + value.name + "'").value_or(ValueData());
            }
            into.push_back(std::move(expectation));
        }
    }
}

FileExpectation parseFile(const YamlEntry &entry) {
    FileExpectation expectation;
    expectation.name = entry.name;
    expectation.where = entry.key.where();
    expectation.exists = !entry.value.isNull();
    if (entry.value.isScalar()) {
        expectation.bytes = entry.value.text("file").value_or(std::string());
        return expectation;
    }
    if (!expectation.exists) {
        return expectation;
    }
    MapReader reader(entry.value, "file '" + entry.name + "'");
    if (const auto bytes = reader.take("bytes")) {
        if (const auto parsed = bytes->bytes("bytes")) {
            expectation.bytes = std::string(parsed->begin(), parsed->end());
        }
    }
    if (const auto text = reader.take("text")) {
        expectation.bytes = sim::toUtf8(parseUtf16(*text, "text").value_or(u""));
    }
    if (const auto size = reader.take("size")) {
        expectation.size = size->number("size", ~std::uint64_t{0});
    }
    if (const auto lines = reader.take("lines")) {
        expectation.lines = parseConditions(*lines, "lines");
    }
    reader.finish();
    return expectation;
}

} // namespace

std::optional<std::uint64_t> parseModeNumber(const YamlNode &node, std::string_view what) {
    if (const auto number = node.plainNumber()) {
        return number;
    }
    const std::vector<std::string> names{"unknown", "blocked", "allowed", "read-only"};
    const auto word = node.word(what, names);
    const auto found = word ? std::find(names.begin(), names.end(), *word) : names.end();
    return found == names.end() ? std::nullopt : std::optional(static_cast<std::uint64_t>(found - names.begin()));
}

std::vector<DeviceExpectation> parseDeviceExpectations(const YamlNode &node) {
    MapReader reader(node, "expectations of a device");
    auto expectations = takeKeys(reader, deviceKeys());
    reader.finish();
    return expectations;
}

StepExpectations parseStepExpectations(const YamlNode &node, const std::string &device) {
    StepExpectations expectations;
    MapReader reader(node, "expect");
    if (!device.empty()) {
        for (DeviceExpectation &expectation : takeKeys(reader, deviceKeys())) {
            expectations.devices.emplace_back(device, std::move(expectation));
        }
    }
    for (const FactKey &key : stepKeys()) {
        const bool ofDevice = std::any_of(deviceKeys().begin(), deviceKeys().end(),
                                          [&](const FactKey &known) { return known.name == key.name; });
        if (ofDevice && !device.empty()) {
            continue; // "log" and "status" of a step about one device are that device's
        }
        if (const auto value = reader.take(key.name)) {
            expectations.general.push_back({std::string(key.name), parseExpected(*value, key), value->where()});
        }
    }
    if (const auto devices = reader.take("devices")) {
        MapReader(*devices, "devices");
        for (const YamlEntry &entry : devices->entries()) {
            for (DeviceExpectation &expectation : parseDeviceExpectations(entry.value)) {
                expectations.devices.emplace_back(entry.name, std::move(expectation));
            }
        }
    }
    if (const auto requests = reader.take("requests")) {
        MapReader(*requests, "requests");
        for (const YamlEntry &entry : requests->entries()) {
            MapReader request(entry.value, "expectations of a request");
            for (DeviceExpectation &expectation : takeKeys(request, requestKeys())) {
                expectations.requests.emplace_back(entry.name, std::move(expectation));
            }
            request.finish();
        }
    }
    if (const auto registry = reader.take("registry")) {
        parseRegistry(*registry, expectations.registry);
    }
    if (const auto disks = reader.take("disks")) {
        expectations.disks = parseDiskExpectations(*disks);
    }
    if (const auto files = reader.take("files")) {
        MapReader(*files, "files");
        for (const YamlEntry &entry : files->entries()) {
            expectations.files.push_back(parseFile(entry));
        }
    }
    reader.finish();
    return expectations;
}

} // namespace cli
