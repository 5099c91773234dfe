#pragma once

#include <cstddef>
#include <optional>

namespace sim::framework {

/// How many routines the library's function table holds.
std::size_t functionTableEntries();
/// The number of the entry that an address behind the end of the table would be; nothing for any other address. Memory
/// behind the table can't be touched.
std::optional<std::size_t> entryBehindFunctionTable(const void *address);

} // namespace sim::framework
