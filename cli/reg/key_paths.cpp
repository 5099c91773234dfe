#include "key_paths.h"

#include "../../simulator/kernel/strings.h"
#include "../../simulator/machine/machine.h"
#include "../../simulator/machine/setup_classes.h"

namespace cli {
namespace {

struct Root {
    std::u16string_view name;
    std::u16string_view path;
};

constexpr Root roots[] = {
    {u"HKEY_LOCAL_MACHINE", u"\\Registry\\Machine"},
    {u"HKLM", u"\\Registry\\Machine"},
    {u"HKEY_USERS", u"\\Registry\\User"},
    {u"HKU", u"\\Registry\\User"},
    {u"HKEY_CLASSES_ROOT", u"\\Registry\\Machine\\Software\\Classes"},
    {u"HKCR", u"\\Registry\\Machine\\Software\\Classes"},
};

/// The rest of `path` (empty or from its backslash on) when it begins with `first` as whole components.
std::optional<std::u16string_view> restAfter(std::u16string_view path, std::u16string_view first) {
    if (path.size() < first.size() || !sim::equalNoCase(path.substr(0, first.size()), first)) {
        return std::nullopt;
    }
    const std::u16string_view rest = path.substr(first.size());
    if (!rest.empty() && rest.front() != u'\\') {
        return std::nullopt;
    }
    return rest;
}

std::u16string withCurrentControlSet(std::u16string path) {
    constexpr std::u16string_view numbered = u"\\Registry\\Machine\\System\\ControlSet001";
    if (const auto rest = restAfter(path, numbered)) {
        return u"\\Registry\\Machine\\System\\CurrentControlSet" + std::u16string(*rest);
    }
    return path;
}

bool isGuid(std::u16string_view text) {
    constexpr std::u16string_view form = u"{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    if (text.size() != form.size()) {
        return false;
    }
    for (std::size_t i = 0; i < form.size(); ++i) {
        const char16_t unit = text[i];
        const bool hexadecimal =
            (unit >= u'0' && unit <= u'9') || (unit >= u'a' && unit <= u'f') || (unit >= u'A' && unit <= u'F');
        if (form[i] == u'x' ? !hexadecimal : unit != form[i]) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<std::u16string> kernelKeyPath(std::string_view path) {
    const std::u16string wide = sim::toUtf16(path);
    if (restAfter(wide, u"\\Registry")) {
        return withCurrentControlSet(wide);
    }
    for (const Root &root : roots) {
        if (const auto rest = restAfter(wide, root.name)) {
            return withCurrentControlSet(std::u16string(root.path) + std::u16string(*rest));
        }
    }
    return std::nullopt;
}

std::optional<std::u16string> scenarioKeyPath(std::string_view path) {
    const std::u16string wide = sim::toUtf16(path);
    if (const auto rest = restAfter(wide, u"service")) {
        return sim::Machine::serviceKey() + std::u16string(*rest);
    }
    if (const auto rest = restAfter(wide, u"parameters")) {
        return sim::Machine::parametersKey() + std::u16string(*rest);
    }
    if (const auto rest = restAfter(wide, u"class"); rest && rest->size() > 1) {
        const auto guid = classGuidFor(sim::toUtf8(rest->substr(1)));
        return guid ? std::optional(sim::Machine::classKey(*guid)) : std::nullopt;
    }
    return kernelKeyPath(path);
}

std::optional<std::u16string> classGuidFor(std::string_view nameOrGuid) {
    const std::u16string wide = sim::toUtf16(nameOrGuid);
    for (const sim::machine::SetupClass &known : sim::machine::setupClasses()) {
        if (sim::equalNoCase(known.name, wide)) {
            return std::u16string(known.guid);
        }
    }
    return isGuid(wide) ? std::optional(wide) : std::nullopt;
}

std::string classDisplayName(const std::optional<std::u16string> &guid) {
    if (!guid) {
        return "-";
    }
    for (const sim::machine::SetupClass &known : sim::machine::setupClasses()) {
        if (sim::equalNoCase(known.guid, *guid)) {
            return sim::toUtf8(known.name);
        }
    }
    return sim::toUtf8(*guid);
}

} // namespace cli
