// A reader of 64-bit Windows images: bounds-checked and without the system's headers.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace sim::image {

using Bytes = std::span<const std::uint8_t>;

/// Little-endian numbers and text; reading past the end throws std::out_of_range.
std::uint16_t read16(Bytes bytes, std::size_t offset);
std::uint32_t read32(Bytes bytes, std::size_t offset);
std::uint64_t read64(Bytes bytes, std::size_t offset);
std::string readText(Bytes bytes, std::size_t offset);

std::vector<std::uint8_t> readFile(const std::filesystem::path &path);

enum class Directory {
    exports,
    imports,
    resources,
    exceptions,
    certificates,
    relocations,
    debug,
    tls = 9,
    loadConfig = 10,
    boundImports = 11,
    delayImports = 13
};

struct Range {
    std::uint32_t address = 0;
    std::uint32_t size = 0;

    bool contains(std::uint32_t other) const { return other >= address && other - address < size; }
};

struct Section {
    std::string name;
    Range range;
    std::uint32_t fileOffset = 0;
    std::uint32_t fileSize = 0;
    std::uint32_t characteristics = 0;

    static constexpr std::uint32_t discardable = 0x02000000;
    static constexpr std::uint32_t execute = 0x20000000;
    static constexpr std::uint32_t read = 0x40000000;
    static constexpr std::uint32_t write = 0x80000000;

    bool has(std::uint32_t flag) const { return (characteristics & flag) != 0; }
};

struct Import {
    std::string module;
    std::string routine;
    std::uint32_t slot = 0; ///< where the loader puts its address
};

struct CodeView {
    std::array<std::uint8_t, 16> guid;
    std::string pdb;
};

/// One image, read whole. Addresses are relative to the image's base unless a name says "absolute".
class PeFile {
  public:
    /// Throws std::runtime_error or std::out_of_range when the file is no 64-bit image.
    explicit PeFile(const std::filesystem::path &path);

    std::size_t size() const { return file_.size(); }
    Bytes file() const { return file_; }

    std::uint16_t machine() const;
    std::uint64_t base() const;
    std::uint32_t entryPoint() const;
    std::uint32_t sizeInMemory() const;
    std::pair<int, int> operatingSystemVersion() const;
    std::pair<int, int> imageVersion() const;
    std::pair<int, int> subsystemVersion() const;
    std::uint16_t subsystem() const;
    std::uint16_t dllCharacteristics() const;
    std::uint32_t sectionAlignment() const;
    std::uint32_t storedChecksum() const;
    std::uint32_t computedChecksum() const;

    const std::vector<Section> &sections() const { return sections_; }
    const Section *sectionNamed(const std::string &name) const;
    const Section *sectionAt(std::uint32_t address) const;
    bool isCode(std::uint32_t address) const;

    Range directory(Directory which) const;
    /// Initialised bytes from `address` to the end of its section.
    Bytes from(std::uint32_t address) const;
    /// The address that the 8 bytes at `address` hold as an absolute one.
    std::uint32_t pointerAt(std::uint32_t address) const;

    std::vector<Import> imports() const;
    /// Places that the loader corrects when the image moves, with the kind of correction.
    std::vector<std::pair<std::uint32_t, int>> relocations() const;
    /// Functions that have unwind data.
    std::vector<Range> functions() const;
    std::optional<CodeView> codeView() const;
    /// The raw version resource; empty when there is none.
    Bytes versionResource() const;

  private:
    std::size_t optional(std::size_t offset) const { return header_ + 24 + offset; }

    std::vector<std::uint8_t> file_;
    std::size_t header_ = 0;
    std::vector<Section> sections_;
};

} // namespace sim::image
