#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace sim::image {

/// Where in the sources an instruction of an image comes from.
struct SourcePlace {
    std::string function;
    std::string file; ///< relative to the sources; empty: not known
    unsigned line = 0;
};

/// Looks `address` (relative to the image's base) up in the PDB beside the image, with LLVM's symbolizer: the innermost
/// function first, then those that it was inlined into. Empty when nothing is known. Slow; asked for messages only.
std::vector<SourcePlace> placesInSource(const std::filesystem::path &image, std::uint32_t address);

} // namespace sim::image
