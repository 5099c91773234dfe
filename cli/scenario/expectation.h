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

/// How many requests of each kind; those left out are not looked at.
struct RequestNumbers {
    std::optional<std::uint64_t> reads;
    std::optional<std::uint64_t> writes;
    std::optional<std::uint64_t> controls;
};

/// What is expected of a disk's medium, of the volume on it, and of the ways of the requests to it.
struct DiskExpectation {
    std::string disk;
    std::optional<bool> unchanged;                                          ///< the medium, since it was new
    std::vector<std::pair<std::uint64_t, std::vector<std::uint8_t>>> bytes; ///< by offset
    std::optional<std::string> volume;                                      ///< "writable", "read-only", "none"
    std::optional<std::uint64_t> lostWrites;
    std::optional<RequestNumbers> entered;    ///< handlers of framework drivers in the disk's stack that were called
    std::optional<RequestNumbers> passedDown; ///< requests that went on without
    Location where;
};

/// Expectations of one step. Device expectations carry the path of their device.
struct StepExpectations {
    std::vector<std::pair<std::string, DeviceExpectation>> devices;
    std::vector<std::pair<std::string, DeviceExpectation>> requests; ///< by the request's name; keys of requestKeys()
    std::vector<DeviceExpectation> general;                          ///< keys of stepKeys()
    std::vector<RegistryExpectation> registry;
    std::vector<FileExpectation> files;
    std::vector<DiskExpectation> disks;
};

} // namespace cli
