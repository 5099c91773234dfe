#pragma once

#include "expectation.h"
#include "yaml_node.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Expectations of one device: a map of keys of deviceKeys().
std::vector<DeviceExpectation> parseDeviceExpectations(const YamlNode &node);

/// A mode by its name or number.
std::optional<std::uint64_t> parseModeNumber(const YamlNode &node, std::string_view what);

/// Everything under a step's "expect". When the step is about one device, `device` is its path and keys of devices may
/// stand directly below "expect"; otherwise they stand below "devices: {NAME: …}".
StepExpectations parseStepExpectations(const YamlNode &node, const std::string &device);

} // namespace cli
