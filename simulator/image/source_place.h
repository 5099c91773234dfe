#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace sim::image {

/// Where in the sources an instruction of an image comes from. Empty texts: not known.
struct SourcePlace {
    std::string function; ///< the innermost one, also when it was inlined
    std::string file;     ///< relative to the sources
    unsigned line = 0;
};

/// Looks `address` (relative to the image's base) up in the PDB beside the image, with LLVM's symbolizer. Slow; asked
/// for messages only.
SourcePlace placeInSource(const std::filesystem::path &image, std::uint32_t address);

} // namespace sim::image
