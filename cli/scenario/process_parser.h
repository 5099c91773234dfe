#pragma once

#include "process_actions.h"
#include "yaml_node.h"

namespace cli {

// Steps of user-mode processes. A single scalar is the process (or, for a request, its control code; for a
// cancellation, the request).
OpenControlDevice parseOpen(const YamlNode &node);
CloseControlDevice parseClose(const YamlNode &node);
MakeRequest parseRequest(const YamlNode &node);
ReplyToQuestion parseReply(const YamlNode &node);
CancelRequest parseCancel(const YamlNode &node);
EndThread parseEndThread(const YamlNode &node);
EndProcess parseEndProcess(const YamlNode &node);

} // namespace cli
