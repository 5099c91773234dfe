// The version resource of an image, taken apart.
#pragma once

#include "../../simulator/image/pe_file.h"

using namespace sim::image;

struct VersionInformation {
    std::array<int, 4> fileVersion{};
    std::array<int, 4> productVersion{};
    std::uint32_t fileType = 0;
    /// "FileVersion", "ProductName" … with their texts.
    std::map<std::string, std::string> strings;
};

/// Throws std::runtime_error when the resource is not well-formed.
VersionInformation parseVersionResource(Bytes resource);
