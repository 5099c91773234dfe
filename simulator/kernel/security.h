#pragma once

#include <ntifs.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Security descriptors of device objects: a self-relative descriptor per object, or none (everyone may do anything).
/// Text form is SDDL with masks in hexadecimal, e.g. "D:P(D;;0x2;;;WD)(A;;0x1f01ff;;;SY)". Empty text = no descriptor.
std::vector<std::uint8_t> securityFromSddl(std::string_view sddl); ///< throws std::invalid_argument
std::string sddlOf(const std::vector<std::uint8_t> &selfRelative); ///< owner and group when present, then D: and ACEs

std::vector<std::uint8_t> deviceSecurity(PDEVICE_OBJECT device);
void setDeviceSecurity(PDEVICE_OBJECT device, std::vector<std::uint8_t> selfRelative);

/// Whether a user-mode open by an account with these SIDs (text, e.g. "S-1-1-0") gets every bit asked for; generic bits
/// are mapped as for files. MAXIMUM_ALLOWED is not supported and stops the run.
bool accessGranted(PDEVICE_OBJECT device, ACCESS_MASK wanted, const std::vector<std::string> &sids);

} // namespace sim
