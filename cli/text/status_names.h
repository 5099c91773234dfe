#pragma once

#include <ntifs.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// "STATUS_SUCCESS" and the like; empty for a status without a name here.
std::string_view statusName(NTSTATUS status);

/// "STATUS_UNSUCCESSFUL (0xC0000001)", or "0xC0001234" for one without a name.
std::string describeStatus(NTSTATUS status);

/// "0xC0000001"
std::string statusCode(NTSTATUS status);

/// A name or a number ("0xC0000001"); nothing when it is neither.
std::optional<NTSTATUS> parseStatus(std::string_view text);

const std::vector<std::string> &statusNames();

} // namespace cli
