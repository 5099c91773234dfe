// The version resource of an image, taken apart.
#pragma once

#include "pe_reader.h"

struct VersionInformation {
    std::array<int, 4> fileVersion{};
    std::array<int, 4> productVersion{};
    std::uint32_t fileType = 0;
    /// "FileVersion", "ProductName" … with their texts.
    std::map<std::string, std::string> strings;
};

/// Throws std::runtime_error when the resource is not well-formed.
VersionInformation parseVersionResource(Bytes resource);
