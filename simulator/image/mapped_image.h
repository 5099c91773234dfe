#pragma once

#include "pe_file.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace sim::image {

/// Why an image can't be loaded, with the file's name.
class BadImage : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A driver image in memory, as the system's loader lays it out: sections with their protections at a random base, the
/// addresses in it corrected, imports bound. It is not run here, so that any processor can map it.
class MappedImage {
  public:
    /// The address of a routine or variable that the module exports, null when it has none of that name.
    using Resolve = std::function<void *(const std::string &module, const std::string &name)>;

    /// What the loader writes into the image beside addresses.
    struct Seeds {
        std::uint64_t cookie = 0;         ///< for stack cookies; 0 picks one at random
        const void *guardCheck = nullptr; ///< control flow guard's check of an indirect call; null leaves the image's
    };

    /// Throws BadImage.
    MappedImage(const std::filesystem::path &file, const Resolve &resolve, const Seeds &seeds);
    ~MappedImage();
    MappedImage(const MappedImage &) = delete;
    MappedImage &operator=(const MappedImage &) = delete;

    /// Takes the discardable sections away, as the system does after the entry point returned.
    void discard();

    const std::filesystem::path &path() const { return path_; }
    std::string name() const { return path_.filename().string(); }
    std::uint8_t *base() const { return base_; }
    std::uint32_t size() const { return size_; }
    void *entryPoint() const { return base_ + file_.entryPoint(); }
    const PeFile &file() const { return file_; }

    /// Relative to the base; nothing for an address outside.
    std::optional<std::uint32_t> relative(const void *address) const;
    const Section *sectionAt(const void *address) const;
    bool discarded(const Section &section) const { return discarded_ && section.has(Section::discardable); }
    /// Whether control flow guard lets code of the image call this address of the image.
    bool isCallTarget(std::uint32_t address) const;

  private:
    [[noreturn]] void refuse(const std::string &why) const;
    void check() const;
    void reserve();
    void copySections();
    void correctAddresses();
    void bindImports(const Resolve &resolve);
    void seed(const Seeds &seeds);
    void readCallTargets();
    void protect();
    std::uint64_t &number(std::uint32_t address, const char *what);

    std::filesystem::path path_;
    PeFile file_;
    std::uint8_t *base_ = nullptr;
    std::uint32_t size_ = 0;
    bool discarded_ = false;
    std::vector<std::uint32_t> callTargets_; ///< sorted
};

} // namespace sim::image
