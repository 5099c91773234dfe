#pragma once

#include <optional>
#include <string>

namespace sim::image {

class MappedImage;

/// The images in memory, for those who have only an address. Thread-safe; an image is taken out before it goes.
void addLoadedImage(const MappedImage &image);
void removeLoadedImage(const MappedImage &image);
/// The image that holds the address; null when none does.
const MappedImage *loadedImageAt(const void *address);

/// "image!function (src/policy/rule_loader.cpp:42)" for the call that returns to `address`; nothing when the
/// address is not in a loaded image. The place is the PDB's beside the image; without it, or without llvm-symbolizer,
/// only the offset is told.
std::optional<std::string> describeReturnAddress(const void *address);

} // namespace sim::image
