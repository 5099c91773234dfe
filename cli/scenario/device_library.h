#pragma once

#include "../../simulator/machine/device_description.h"
#include "yaml_node.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// Devices that scenarios share: every *.yaml of the nearest folder "devices" beside a scenario or above it, each a map
/// of names to devices.
class DeviceLibrary {
  public:
    /// The library for a scenario file; empty when no folder holds one. Throws UnusableFile when one of its files can't
    /// be used.
    static const DeviceLibrary &nearestTo(const std::string &scenarioFile);

    /// Null when there is no such device.
    const sim::DeviceDescription *find(const std::string &name) const;
    std::vector<std::string> names() const;

    /// Adds the devices of one file; problems go to the node's list.
    void add(const YamlNode &file);

  private:
    static DeviceLibrary load(const std::string &folder);
    std::map<std::string, sim::DeviceDescription> devices_;
};

} // namespace cli
