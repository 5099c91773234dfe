#include "registry_listing.h"

#include "../../simulator/kernel/strings.h"
#include "../text/display.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {
namespace {

constexpr std::u16string_view machineKey = u"\\Registry\\Machine";

std::string inQuotes(std::u16string_view name) {
    std::string text;
    for (const char letter : sim::toUtf8(name)) {
        text += letter == '"' || letter == '\\' ? std::string("\\") + letter : std::string(1, letter);
    }
    return "\"" + text + "\"";
}

std::string valueLine(const sim::RegistryValue &value) {
    return fmt::format("{}=hex({:x}):{}\n", value.name.empty() ? "@" : inQuotes(value.name), value.type,
                       hexText(value.data, ","));
}

void list(const sim::Registry &registry, const std::u16string &path, std::string &text) {
    text += fmt::format("\n[HKEY_LOCAL_MACHINE{}]\n", sim::toUtf8(std::u16string_view(path).substr(machineKey.size())));
    std::vector<sim::RegistryValue> values = registry.values(path);
    std::sort(values.begin(), values.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
    for (const sim::RegistryValue &value : values) {
        text += valueLine(value);
    }
    std::vector<std::u16string> subkeys = registry.subkeys(path);
    std::sort(subkeys.begin(), subkeys.end());
    for (const std::u16string &subkey : subkeys) {
        list(registry, path + u"\\" + subkey, text);
    }
}

} // namespace

std::string registryListing(const sim::Registry &registry) {
    std::string text = "Windows Registry Editor Version 5.00\n";
    list(registry, std::u16string(machineKey), text);
    return text;
}

} // namespace cli
