// The list of imports that the driver image may have.
#pragma once

#include <filesystem>
#include <map>
#include <string>

/// "module routine", the module in lower case, with how well the export is known: measured, symbol or documented.
/// Throws std::runtime_error on a malformed line.
std::map<std::string, std::string> readKnownImports(const std::filesystem::path &path);

/// The same form for an import as an image or a definition file spells it.
std::string importKey(const std::string &module, const std::string &routine);
