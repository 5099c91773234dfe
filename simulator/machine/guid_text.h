#pragma once

#include <ntifs.h>

#include <optional>
#include <string>
#include <string_view>

namespace sim::machine {

/// Registry form in lower case, "{4d36e967-e325-11ce-bfc1-08002be10318}".
std::u16string textOfGuid(const GUID &guid);
/// Nothing when the text is not of that form; any letter case.
std::optional<GUID> guidFromText(std::u16string_view text);

} // namespace sim::machine
