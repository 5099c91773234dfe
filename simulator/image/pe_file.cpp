#include "pe_file.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace sim::image {

namespace {

template<typename Number>
Number readNumber(Bytes bytes, std::size_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Number)) {
        throw std::out_of_range("the image ends at offset " + std::to_string(offset));
    }
    Number value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        value |= static_cast<Number>(static_cast<Number>(bytes[offset + i]) << (8 * i));
    }
    return value;
}

constexpr std::uint32_t ordinalBit = 0x80000000;

} // namespace

std::uint16_t read16(Bytes bytes, std::size_t offset) {
    return readNumber<std::uint16_t>(bytes, offset);
}

std::uint32_t read32(Bytes bytes, std::size_t offset) {
    return readNumber<std::uint32_t>(bytes, offset);
}

std::uint64_t read64(Bytes bytes, std::size_t offset) {
    return readNumber<std::uint64_t>(bytes, offset);
}

std::string readText(Bytes bytes, std::size_t offset) {
    std::string text;
    for (std::uint8_t byte; (byte = readNumber<std::uint8_t>(bytes, offset)) != 0; ++offset) {
        text += static_cast<char>(byte);
    }
    return text;
}

std::vector<std::uint8_t> readFile(const std::filesystem::path &path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

PeFile::PeFile(const std::filesystem::path &path) : file_(readFile(path)) {
    if (read16(file_, 0) != 0x5A4D) {
        throw std::runtime_error(path.string() + " has no MZ header");
    }
    header_ = read32(file_, 0x3C);
    if (read32(file_, header_) != 0x00004550) {
        throw std::runtime_error(path.string() + " has no PE header");
    }
    if (read16(file_, optional(0)) != 0x20B) {
        throw std::runtime_error(path.string() + " is not PE32+");
    }
    const std::size_t count = read16(file_, header_ + 6);
    const std::size_t table = optional(read16(file_, header_ + 20));
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t entry = table + i * 40;
        Section section;
        for (std::size_t j = 0; j < 8 && file_.at(entry + j) != 0; ++j) {
            section.name += static_cast<char>(file_.at(entry + j));
        }
        section.range = {read32(file_, entry + 12), read32(file_, entry + 8)};
        section.fileSize = read32(file_, entry + 16);
        section.fileOffset = read32(file_, entry + 20);
        section.characteristics = read32(file_, entry + 36);
        sections_.push_back(section);
    }
}

std::uint16_t PeFile::machine() const {
    return read16(file_, header_ + 4);
}

std::uint64_t PeFile::base() const {
    return read64(file_, optional(24));
}

std::uint32_t PeFile::entryPoint() const {
    return read32(file_, optional(16));
}

std::uint32_t PeFile::sizeInMemory() const {
    return read32(file_, optional(56));
}

std::pair<int, int> PeFile::operatingSystemVersion() const {
    return {read16(file_, optional(40)), read16(file_, optional(42))};
}

std::pair<int, int> PeFile::imageVersion() const {
    return {read16(file_, optional(44)), read16(file_, optional(46))};
}

std::pair<int, int> PeFile::subsystemVersion() const {
    return {read16(file_, optional(48)), read16(file_, optional(50))};
}

std::uint16_t PeFile::subsystem() const {
    return read16(file_, optional(68));
}

std::uint16_t PeFile::dllCharacteristics() const {
    return read16(file_, optional(70));
}

std::uint32_t PeFile::sectionAlignment() const {
    return read32(file_, optional(32));
}

std::uint32_t PeFile::storedChecksum() const {
    return read32(file_, optional(64));
}

std::uint32_t PeFile::computedChecksum() const {
    // 16-bit words with end-around carry, the field itself as zero, plus the length of the file.
    const std::size_t field = optional(64);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < file_.size(); i += 2) {
        if (i == field || i == field + 2) {
            continue;
        }
        const std::uint8_t high = i + 1 < file_.size() ? file_[i + 1] : 0;
        sum += static_cast<std::uint64_t>(file_[i]) | static_cast<std::uint64_t>(high) << 8;
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint32_t>(sum + file_.size());
}

const Section *PeFile::sectionNamed(const std::string &name) const {
    for (const Section &section : sections_) {
        if (section.name == name) {
            return &section;
        }
    }
    return nullptr;
}

const Section *PeFile::sectionAt(std::uint32_t address) const {
    for (const Section &section : sections_) {
        if (section.range.contains(address)) {
            return &section;
        }
    }
    return nullptr;
}

bool PeFile::isCode(std::uint32_t address) const {
    const Section *section = sectionAt(address);
    return section != nullptr && section->has(Section::execute) && address % 4 == 0;
}

Range PeFile::directory(Directory which) const {
    const std::size_t entry = optional(112 + 8 * static_cast<std::size_t>(which));
    return {read32(file_, entry), read32(file_, entry + 4)};
}

Bytes PeFile::from(std::uint32_t address) const {
    const Section *section = sectionAt(address);
    if (section == nullptr) {
        throw std::out_of_range("no section holds address " + std::to_string(address));
    }
    const std::uint32_t offset = address - section->range.address;
    if (offset >= section->fileSize) {
        throw std::out_of_range("address " + std::to_string(address) + " has no bytes in the file");
    }
    return Bytes(file_).subspan(section->fileOffset + offset, section->fileSize - offset);
}

std::uint32_t PeFile::pointerAt(std::uint32_t address) const {
    return static_cast<std::uint32_t>(read64(from(address), 0) - base());
}

std::vector<Import> PeFile::imports() const {
    std::vector<Import> found;
    const Range table = directory(Directory::imports);
    for (std::uint32_t entry = table.address; table.size != 0 && read32(from(entry), 12) != 0; entry += 20) {
        const std::string module = readText(from(read32(from(entry), 12)), 0);
        std::uint32_t slot = read32(from(entry), 16);
        for (std::uint32_t name = read32(from(entry), 0); read64(from(name), 0) != 0; name += 8, slot += 8) {
            const std::uint64_t hint = read64(from(name), 0);
            const bool byOrdinal = (hint >> 32 & ordinalBit) != 0;
            found.push_back(
                {module,
                 byOrdinal ? "#" + std::to_string(hint & 0xFFFF) : readText(from(static_cast<std::uint32_t>(hint)), 2),
                 slot});
        }
    }
    return found;
}

std::vector<std::pair<std::uint32_t, int>> PeFile::relocations() const {
    std::vector<std::pair<std::uint32_t, int>> found;
    const Range table = directory(Directory::relocations);
    for (std::uint32_t offset = 0; offset < table.size;) {
        const Bytes block = from(table.address + offset);
        const std::uint32_t page = read32(block, 0);
        const std::uint32_t size = read32(block, 4);
        for (std::uint32_t i = 8; i < size; i += 2) {
            const std::uint16_t entry = read16(block, i);
            const int kind = entry >> 12;
            if (kind != 0) { // 0 pads the block
                found.emplace_back(page + (entry & 0xFFF), kind);
            }
        }
        if (size < 8 || size % 4 != 0) {
            throw std::out_of_range("a block of corrections has " + std::to_string(size) + " bytes");
        }
        offset += size;
    }
    return found;
}

std::vector<Range> PeFile::functions() const {
    std::vector<Range> found;
    const Range table = directory(Directory::exceptions);
    for (std::uint32_t offset = 0; offset < table.size; offset += 8) {
        const std::uint32_t begin = read32(from(table.address + offset), 0);
        const std::uint32_t data = read32(from(table.address + offset), 4);
        // Two low bits 0: the address of a full record, whose low 18 bits are the length. Otherwise the data is packed.
        const std::uint32_t words = (data & 3) == 0 ? read32(from(data), 0) & 0x3FFFF : data >> 2 & 0x7FF;
        found.push_back({begin, words * 4});
    }
    return found;
}

std::optional<CodeView> PeFile::codeView() const {
    const Range table = directory(Directory::debug);
    for (std::uint32_t offset = 0; offset < table.size; offset += 28) {
        const Bytes entry = from(table.address + offset);
        if (read32(entry, 12) != 2) {
            continue;
        }
        const Bytes record = from(read32(entry, 20));
        if (read32(record, 0) != 0x53445352) { // "RSDS"
            continue;
        }
        CodeView result;
        for (std::size_t i = 0; i < result.guid.size(); ++i) {
            result.guid[i] = record[4 + i];
        }
        result.pdb = readText(record, 24);
        return result;
    }
    return std::nullopt;
}

Bytes PeFile::versionResource() const {
    const Range table = directory(Directory::resources);
    if (table.size == 0) {
        return {};
    }
    // Three levels: type, name, language. Named entries come first; an entry's top bit marks a further level.
    const Bytes resources = from(table.address);
    constexpr std::uint32_t versionType = 16;
    std::uint32_t node = 0;
    for (int level = 0; level < 3; ++level) {
        const std::uint32_t named = read16(resources, node + 12);
        const std::uint32_t numbered = read16(resources, node + 14);
        std::uint32_t next = 0;
        for (std::uint32_t i = named; i < named + numbered && next == 0; ++i) {
            if (level > 0 || read32(resources, node + 16 + 8 * i) == versionType) {
                next = read32(resources, node + 16 + 8 * i + 4);
            }
        }
        if (next == 0) {
            return {};
        }
        node = next & 0x7FFFFFFF;
    }
    return from(read32(resources, node)).first(read32(resources, node + 4));
}

} // namespace sim::image
