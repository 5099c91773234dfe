#include "version_resource.h"

#include <stdexcept>

namespace {

// A block: length, value length, type (1 text), key, value, children; everything aligned to four bytes.
struct Block {
    std::string key;
    Bytes value;
    std::vector<Block> children;
};

std::size_t aligned(std::size_t offset) {
    return (offset + 3) / 4 * 4;
}

// Keys and texts of the resource are plain ASCII in UTF-16.
std::string narrowText(Bytes bytes, std::size_t offset, std::size_t &end) {
    std::string text;
    for (; offset + 1 < bytes.size(); offset += 2) {
        const std::uint16_t unit = read16(bytes, offset);
        if (unit == 0) {
            end = offset + 2;
            return text;
        }
        text += static_cast<char>(unit);
    }
    end = bytes.size();
    return text;
}

Block parseBlock(Bytes bytes) {
    Block block;
    const std::uint16_t length = read16(bytes, 0);
    const std::uint16_t valueLength = read16(bytes, 2);
    const bool isText = read16(bytes, 4) == 1;
    if (length < 6 || length > bytes.size()) {
        throw std::runtime_error("a version block has a wrong length");
    }
    bytes = bytes.first(length);
    std::size_t end = 0;
    block.key = narrowText(bytes, 6, end);
    const std::size_t valueBytes = isText ? std::size_t{valueLength} * 2 : valueLength;
    std::size_t offset = aligned(end);
    if (valueBytes != 0) {
        block.value = bytes.subspan(offset, valueBytes);
        offset = aligned(offset + valueBytes);
    }
    while (offset + 6 <= bytes.size()) {
        const Bytes rest = bytes.subspan(offset);
        block.children.push_back(parseBlock(rest));
        offset += aligned(read16(rest, 0));
    }
    return block;
}

std::array<int, 4> versionAt(Bytes fixed, std::size_t offset) {
    const std::uint32_t high = read32(fixed, offset);
    const std::uint32_t low = read32(fixed, offset + 4);
    return {static_cast<int>(high >> 16), static_cast<int>(high & 0xFFFF), static_cast<int>(low >> 16),
            static_cast<int>(low & 0xFFFF)};
}

} // namespace

VersionInformation parseVersionResource(Bytes resource) {
    const Block root = parseBlock(resource);
    if (root.key != "VS_VERSION_INFO" || read32(root.value, 0) != 0xFEEF04BD) {
        throw std::runtime_error("the resource is no version information");
    }
    VersionInformation information;
    information.fileVersion = versionAt(root.value, 8);
    information.productVersion = versionAt(root.value, 16);
    information.fileType = read32(root.value, 36);
    for (const Block &part : root.children) {
        if (part.key != "StringFileInfo") {
            continue;
        }
        for (const Block &language : part.children) {
            for (const Block &entry : language.children) {
                std::size_t end = 0;
                information.strings[entry.key] = narrowText(entry.value, 0, end);
            }
        }
    }
    return information;
}
