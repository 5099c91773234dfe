#pragma once

#include "../facts/fact.h"
#include "problem.h"
#include "value_parser.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// What is expected of one device after it was added, e.g. "decision: allowed". `key` is one of deviceKeys().
struct DeviceExpectation {
    std::string key;
    Expected expected;
    Location where;
};

/// What the registry must hold. Without a value name: whether the key exists. Without data: the value is absent.
struct RegistryExpectation {
    std::u16string key;
    std::optional<std::u16string> name;
    bool exists = true;
    ValueData value;
    Location where;
};

/// What a file in \SystemRoot\Temp must hold.
struct FileExpectation {
    std::string name;
    bool exists = true;
    std::optional<std::uint64_t> size;
    std::optional<std::string> bytes;
    TextConditions lines;
    Location where;
};

/// Expectations of one step. Device expectations carry the path of their device.
struct StepExpectations {
    std::vector<std::pair<std::string, DeviceExpectation>> devices;
    std::vector<std::pair<std::string, DeviceExpectation>> requests; ///< by the request's name; keys of requestKeys()
    std::vector<DeviceExpectation> general;                          ///< keys of stepKeys()
    std::vector<RegistryExpectation> registry;
    std::vector<FileExpectation> files;
};

} // namespace cli
