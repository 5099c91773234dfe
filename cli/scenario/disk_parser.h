#pragma once

#include "../../simulator/machine/disk_description.h"
#include "scenario.h"
#include "yaml_node.h"

namespace cli {

/// What a scenario says of a disk: the keys below `disk` of a device, added to what is known of it already.
void readDisk(const YamlNode &node, sim::DiskDescription &disk);

// Steps of a person or a program at a disk.
Action parseRead(const YamlNode &node);
Action parseWrite(const YamlNode &node);
Action parseDiskControl(const YamlNode &node);
Action parseAwait(const YamlNode &node);
Action parseSave(const YamlNode &node);
Action parseWriteBack(const YamlNode &node);
Action parseMedium(const YamlNode &node);
Action parseMount(const YamlNode &node);

/// `disks: {NAME: {…}}` below `expect`.
std::vector<DiskExpectation> parseDiskExpectations(const YamlNode &node);

} // namespace cli
