#include "disk_parser.h"

#include "usb_parser.h"
#include "value_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace cli {
namespace {

constexpr std::uint64_t largestMedium = 64ULL << 20; // in memory, byte for byte

struct BusName {
    const char *name;
    std::uint32_t type; ///< STORAGE_BUS_TYPE
};

constexpr BusName busNames[] = {{"scsi", 1},  {"atapi", 2}, {"ata", 3},  {"usb", 7},   {"raid", 8}, {"sas", 10},
                                {"sata", 11}, {"sd", 12},   {"mmc", 13}, {"nvme", 17}, {"ufs", 19}};

std::optional<std::uint32_t> parseBus(const YamlNode &node) {
    if (node.plainNumber()) {
        const auto number = node.number("bus", 0xFFFFFFFF);
        return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
    }
    std::vector<std::string> names;
    for (const BusName &bus : busNames) {
        names.emplace_back(bus.name);
    }
    const auto word = node.word("bus", names);
    for (const BusName &bus : busNames) {
        if (word && *word == bus.name) {
            return bus.type;
        }
    }
    return std::nullopt;
}

/// Text as a device sends it: one byte per character.
void readDeviceText(MapReader &reader, std::string_view key, std::optional<std::string> &into) {
    const auto node = reader.take(key);
    if (!node) {
        return;
    }
    into.reset();
    if (node->isNull()) {
        return;
    }
    const std::u16string text = parseUtf16(*node, key).value_or(u"");
    into.emplace();
    for (const char16_t unit : text) {
        if (unit > 0xFF) {
            node->problem(fmt::format("{} is bytes, and has a character beyond U+00FF", key));
            return;
        }
        into->push_back(static_cast<char>(unit));
    }
}

template<typename Number>
void readCount(MapReader &reader, std::string_view key, Number &into, std::uint64_t highest) {
    if (const auto node = reader.take(key)) {
        if (const auto number = node->number(key, highest)) {
            into = static_cast<typename std::conditional_t<std::is_integral_v<Number>, std::type_identity<Number>,
                                                           std::type_identity<std::uint32_t>>::type>(*number);
        }
    }
}

void readSwitch(MapReader &reader, std::string_view key, bool &into) {
    if (const auto node = reader.take(key)) {
        into = node->flag(key).value_or(into);
    }
}

void readStorageAnswer(const YamlNode &node, sim::StorageAnswer &answer) {
    MapReader reader(node, "storage-query");
    if (const auto failure = reader.take("fail")) {
        answer.failure = parseStatusNode(*failure, "fail");
    }
    constexpr std::uint64_t any = 0xFFFFFFFF;
    readCount(reader, "size", answer.size, any);
    readCount(reader, "version", answer.version, any);
    readCount(reader, "vendor-offset", answer.vendorOffset, any);
    readCount(reader, "product-offset", answer.productOffset, any);
    readCount(reader, "revision-offset", answer.revisionOffset, any);
    readCount(reader, "serial-offset", answer.serialOffset, any);
    readCount(reader, "shorten-to", answer.shortenTo, any);
    readSwitch(reader, "terminated", answer.terminated);
    if (const auto bytes = reader.take("bytes")) {
        answer.replace = bytes->bytes("bytes");
    }
    if (const auto word = reader.take("short-buffer")) {
        const bool fails = word->word("short-buffer", {"truncated", "overflow"}) == "overflow";
        answer.shortBuffer = fails ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
    }
    reader.finish();
}

void readMedium(const YamlNode &node, sim::MediumDescription &medium) {
    MapReader reader(node, "medium");
    readCount(reader, "size", medium.bytes, largestMedium);
    readCount(reader, "sector", medium.sectorBytes, 0x10000);
    readSwitch(reader, "present", medium.present);
    readSwitch(reader, "write-protected", medium.writeProtected);
    reader.finish();
    if (medium.bytes == 0 || medium.sectorBytes == 0 || medium.bytes % medium.sectorBytes != 0) {
        node.problem("a medium has a 'size' of whole sectors, at least one");
    }
}

const std::map<std::string, std::uint32_t> &diskControlCodes() {
    static const std::map<std::string, std::uint32_t> codes{
        {"is-writable", 0x70024},     {"geometry", 0x70000},         {"length", 0x7405C},
        {"check-verify", 0x2D4800},   {"device-number", 0x2D1080},   {"trim", 0x2D9404},
        {"query-property", 0x2D1400}, {"scsi-pass-through", 0x4D004}};
    return codes;
}

/// A control code by its short name or its number.
std::optional<std::uint32_t> parseCode(const YamlNode &node) {
    if (node.plainNumber()) {
        const auto number = node.number("code", 0xFFFFFFFF);
        return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
    }
    std::vector<std::string> names;
    for (const auto &[name, code] : diskControlCodes()) {
        names.push_back(name);
    }
    const auto word = node.word("code", names);
    const auto known = word ? diskControlCodes().find(*word) : diskControlCodes().end();
    return known == diskControlCodes().end() ? std::nullopt : std::optional(known->second);
}

void readControlAnswers(const YamlNode &node, sim::DiskDescription &disk) {
    MapReader(node, "control-answers");
    for (const YamlEntry &entry : node.entries()) {
        const auto named = diskControlCodes().find(entry.name);
        const auto code =
            named != diskControlCodes().end() ? std::optional<std::uint64_t>(named->second) : parseNumber(entry.name);
        if (!code || *code > 0xFFFFFFFF) {
            entry.key.problem(fmt::format("'{}' is no control code", entry.name));
            continue;
        }
        sim::DiskControlAnswer &answer = disk.controlAnswers[static_cast<std::uint32_t>(*code)];
        MapReader reader(entry.value, "control answer");
        if (const auto status = reader.take("status")) {
            answer.status = parseStatusNode(*status, "status").value_or(STATUS_SUCCESS);
        }
        if (const auto bytes = reader.take("bytes")) {
            answer.output = bytes->bytes("bytes").value_or(std::vector<std::uint8_t>());
        }
        reader.finish();
    }
}

std::string takeDiskName(MapReader &reader) {
    const auto node = reader.take("disk");
    if (!node) {
        reader.node().problem("needs the 'disk' it is about");
        return {};
    }
    return node->text("disk").value_or(std::string());
}

std::uint64_t takeOffset(MapReader &reader) {
    const auto node = reader.take("at");
    return node ? node->number("at", ~std::uint64_t{0} >> 1).value_or(0) : 0;
}

std::size_t takeLength(MapReader &reader, std::size_t otherwise) {
    const auto node = reader.take("length");
    return node ? static_cast<std::size_t>(node->number("length", largestMedium).value_or(0)) : otherwise;
}

constexpr std::size_t usualLength = 512;

/// The bytes of a write: given one by one, or one byte again and again.
std::vector<std::uint8_t> takeData(MapReader &reader) {
    const auto bytes = reader.take("bytes");
    const auto fill = reader.take("fill");
    const bool hasLength = reader.has("length");
    const std::size_t length = takeLength(reader, usualLength);
    if (bytes.has_value() == fill.has_value() || (bytes && hasLength)) {
        reader.node().problem("needs 'bytes', or 'fill' and 'length'");
        return {};
    }
    if (bytes) {
        return bytes->bytes("bytes").value_or(std::vector<std::uint8_t>());
    }
    return std::vector<std::uint8_t>(length, static_cast<std::uint8_t>(fill->number("fill", 0xFF).value_or(0)));
}

bool takeWait(MapReader &reader) {
    bool waits = true;
    readSwitch(reader, "wait", waits);
    return waits;
}

std::string onlyName(const YamlNode &node) {
    return node.text("a disk").value_or(std::string());
}

RequestNumbers parseRequestNumbers(const YamlNode &node, std::string_view what) {
    RequestNumbers numbers;
    MapReader reader(node, std::string(what));
    const auto read = [&](std::string_view key, std::optional<std::uint64_t> &into) {
        if (const auto value = reader.take(key)) {
            into = value->number(key, 0xFFFFFFFF);
        }
    };
    read("reads", numbers.reads);
    read("writes", numbers.writes);
    read("controls", numbers.controls);
    reader.finish();
    return numbers;
}

DiskExpectation parseDiskExpectation(const YamlEntry &entry) {
    DiskExpectation expectation;
    expectation.disk = entry.name;
    expectation.where = entry.key.where();
    MapReader reader(entry.value, "expectations of disk '" + entry.name + "'");
    if (const auto node = reader.take("unchanged")) {
        expectation.unchanged = node->flag("unchanged");
    }
    if (const auto node = reader.take("bytes")) {
        MapReader(*node, "bytes");
        for (const YamlEntry &range : node->entries()) {
            const auto offset = parseNumber(range.name);
            if (!offset) {
                range.key.problem(
                    fmt::format("bytes stand at an offset, which must be a number, found '{}'", range.name));
                continue;
            }
            if (const auto bytes = range.value.bytes("bytes")) {
                expectation.bytes.emplace_back(*offset, *bytes);
            }
        }
    }
    if (const auto node = reader.take("volume")) {
        expectation.volume = node->word("volume", {"writable", "read-only", "none"});
    }
    if (const auto node = reader.take("lost-writes")) {
        expectation.lostWrites = node->number("lost-writes", 0xFFFFFFFF);
    }
    if (const auto node = reader.take("entered")) {
        expectation.entered = parseRequestNumbers(*node, "entered");
    }
    if (const auto node = reader.take("passed-down")) {
        expectation.passedDown = parseRequestNumbers(*node, "passed-down");
    }
    reader.finish();
    return expectation;
}

} // namespace

void readDisk(const YamlNode &node, sim::DiskDescription &disk) {
    MapReader reader(node, "disk");
    if (const auto bus = reader.take("bus")) {
        disk.busType = parseBus(*bus);
    }
    readSwitch(reader, "removable-media", disk.removableMedia);
    readDeviceText(reader, "vendor", disk.vendor);
    readDeviceText(reader, "product", disk.product);
    readDeviceText(reader, "revision", disk.revision);
    readDeviceText(reader, "serial", disk.serial);
    if (const auto query = reader.take("storage-query")) {
        readStorageAnswer(*query, disk.storageAnswer);
    }
    if (const auto medium = reader.take("medium")) {
        readMedium(*medium, disk.medium);
    }
    if (const auto answers = reader.take("control-answers")) {
        readControlAnswers(*answers, disk);
    }
    readSwitch(reader, "answers-later", disk.answersLater);
    readSwitch(reader, "mounts", disk.mounts);
    reader.finish();
}

Action parseRead(const YamlNode &node) {
    MapReader reader(node, "read");
    UseDisk use;
    use.disk = takeDiskName(reader);
    use.offset = takeOffset(reader);
    use.length = takeLength(reader, usualLength);
    use.waits = takeWait(reader);
    reader.finish();
    return use;
}

Action parseWrite(const YamlNode &node) {
    MapReader reader(node, "write");
    UseDisk use;
    use.kind = UseDisk::Kind::write;
    use.disk = takeDiskName(reader);
    use.offset = takeOffset(reader);
    use.data = takeData(reader);
    use.waits = takeWait(reader);
    reader.finish();
    return use;
}

Action parseDiskControl(const YamlNode &node) {
    MapReader reader(node, "disk-control");
    UseDisk use;
    use.kind = UseDisk::Kind::control;
    use.disk = takeDiskName(reader);
    if (const auto code = reader.take("code")) {
        use.code = parseCode(*code).value_or(0);
    } else {
        node.problem("needs the control 'code'");
    }
    if (const auto input = reader.take("input")) {
        use.data = input->bytes("input").value_or(std::vector<std::uint8_t>());
    }
    if (const auto output = reader.take("output")) {
        use.length = static_cast<std::size_t>(output->number("output", largestMedium).value_or(0));
    }
    use.waits = takeWait(reader);
    reader.finish();
    return use;
}

Action parseAwait(const YamlNode &node) {
    return AwaitDisk{onlyName(node)};
}

Action parseSave(const YamlNode &node) {
    MapReader reader(node, "save");
    SaveToVolume save;
    save.disk = takeDiskName(reader);
    save.offset = takeOffset(reader);
    save.data = takeData(reader);
    reader.finish();
    return save;
}

Action parseWriteBack(const YamlNode &node) {
    return WriteBack{onlyName(node)};
}

Action parseMount(const YamlNode &node) {
    return MountMedium{onlyName(node)};
}

Action parseMedium(const YamlNode &node) {
    MapReader reader(node, "medium");
    ChangeMedium change;
    change.disk = takeDiskName(reader);
    const auto read = [&](std::string_view key, std::optional<bool> &into) {
        if (const auto value = reader.take(key)) {
            into = value->flag(key);
        }
    };
    read("present", change.present);
    read("write-protected", change.writeProtected);
    read("stalled", change.stalled);
    reader.finish();
    return change;
}

std::vector<DiskExpectation> parseDiskExpectations(const YamlNode &node) {
    std::vector<DiskExpectation> expectations;
    MapReader(node, "disks");
    for (const YamlEntry &entry : node.entries()) {
        expectations.push_back(parseDiskExpectation(entry));
    }
    return expectations;
}

} // namespace cli
