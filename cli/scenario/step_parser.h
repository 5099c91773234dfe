#pragma once

#include "scenario.h"
#include "yaml_node.h"

#include <vector>

namespace cli {

/// The list under "steps": each a word ("load") or a map of one action with "expect" and "fail".
std::vector<Step> parseSteps(const YamlNode &node);

} // namespace cli
