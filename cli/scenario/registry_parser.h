#pragma once

#include "scenario.h"
#include "yaml_node.h"

namespace cli {

/// Values of the service's Parameters key: NAME: VALUE, where null deletes the value.
RegistryChanges parsePolicy(const YamlNode &node);

/// Values of any key: KEY: {NAME: VALUE}, where a null key is deleted and a null value too.
RegistryChanges parseRegistryChanges(const YamlNode &node);

/// The content of Registry Editor exports; their paths are relative to the file that names them. What is wrong with
/// them is reported as a problem at their own lines.
RegistryChanges parseRegFiles(const YamlNode &node);

/// Files below \SystemRoot\Temp: NAME: TEXT, {text: …}, {bytes: …} or {size: N}; null removes a file.
std::vector<TempFile> parseTempFiles(const YamlNode &node);

} // namespace cli
