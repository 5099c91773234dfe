// Table-driven registry queries.

#include "kernel.h"
#include "strings.h"
#include "thread.h"
#include "violation.h"

#include <cstring>
#include <memory>

using namespace sim;

namespace {

/// One query of a table: what every step needs to know.
struct Query {
    const char *routine;
    const void *callSite;
    std::u16string key;
    PVOID context;
};

std::u16string_view terminated(PCWSTR text) {
    return text == nullptr ? std::u16string_view{} : std::u16string_view(reinterpret_cast<const char16_t *>(text));
}

/// Full path of the key that RelativeTo and Path name.
std::u16string keyPath(ULONG relativeTo, std::u16string_view path, const char *routine, const void *callSite) {
    constexpr std::u16string_view control = u"\\Registry\\Machine\\System\\CurrentControlSet\\Control";
    constexpr std::u16string_view services = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services";
    constexpr std::u16string_view windows = u"\\Registry\\Machine\\Software\\Microsoft\\Windows NT\\CurrentVersion";
    constexpr std::u16string_view deviceMap = u"\\Registry\\Machine\\Hardware\\DeviceMap";
    std::u16string full;
    switch (relativeTo & ~RTL_REGISTRY_OPTIONAL) {
    case RTL_REGISTRY_ABSOLUTE:
        return std::u16string(path);
    case RTL_REGISTRY_SERVICES:
        full = services;
        break;
    case RTL_REGISTRY_CONTROL:
        full = control;
        break;
    case RTL_REGISTRY_WINDOWS_NT:
        full = windows;
        break;
    case RTL_REGISTRY_DEVICEMAP:
        full = deviceMap;
        break;
    default:
        notSimulated(routine, "RelativeTo " + hex(relativeTo), callSite);
    }
    return path.empty() ? full : full + u"\\" + std::u16string(path);
}

bool isText(ULONG type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

/// Length in bytes of default text, terminators included.
std::size_t defaultTextBytes(ULONG type, const void *data) {
    const auto *text = static_cast<const char16_t *>(data);
    std::size_t units = 0;
    if (type == REG_MULTI_SZ) {
        while (text[units] != 0) {
            units += std::u16string_view(text + units).size() + 1;
        }
    } else {
        units = std::u16string_view(text).size();
    }
    return (units + 1) * sizeof(WCHAR);
}

/// Calls a query routine with copies of name and data of exactly their size, as aligned as pool is.
NTSTATUS callRoutine(const Query &query, const RTL_QUERY_REGISTRY_TABLE &entry, const std::u16string &name, ULONG type,
                     const std::uint8_t *data, std::size_t bytes) {
    std::u16string nameCopy(name);
    const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[bytes]);
    if (bytes != 0) {
        std::memcpy(copy.get(), data, bytes);
    }
    const CallbackContract contract("registry query routine");
    const NTSTATUS status = entry.QueryRoutine(reinterpret_cast<PWSTR>(nameCopy.data()), type, copy.get(),
                                               static_cast<ULONG>(bytes), query.context, entry.EntryContext);
    return status == STATUS_BUFFER_TOO_SMALL ? STATUS_SUCCESS : status;
}

/// One call per string of a list. A last NUL that is missing does not matter.
NTSTATUS callPerString(const Query &query, const RTL_QUERY_REGISTRY_TABLE &entry, const std::u16string &name,
                       const std::vector<std::uint8_t> &data, bool isDefault) {
    std::u16string units(data.size() / sizeof(char16_t), u'\0');
    if (!units.empty()) {
        std::memcpy(units.data(), data.data(), units.size() * sizeof(char16_t));
    }
    // The terminator of the list itself: one NUL behind the strings' own. A default value may consist of nothing else.
    if (isDefault && units.find_first_not_of(u'\0') == std::u16string::npos) {
        return STATUS_SUCCESS;
    }
    if (units.size() <= 1 && (units.empty() || units[0] == 0)) {
        return STATUS_SUCCESS;
    }
    if (units.back() == 0) {
        units.pop_back();
    }
    if (units.empty() || units.back() != 0) {
        units.push_back(u'\0');
    }
    NTSTATUS status = STATUS_SUCCESS;
    for (std::size_t at = 0; at < units.size() && NT_SUCCESS(status);) {
        const std::size_t length = units.find(u'\0', at) - at + 1;
        status = callRoutine(query, entry, name, REG_SZ, reinterpret_cast<const std::uint8_t *>(units.data() + at),
                             length * sizeof(char16_t));
        at += length;
    }
    return status;
}

/// Replaces the variables that a kernel-mode caller without an environment of its own can meet (values recalled).
std::u16string expand(std::u16string text) {
    const std::pair<std::u16string_view, std::u16string_view> variables[] = {{u"%SYSTEMROOT%", u"C:\\Windows"},
                                                                             {u"%SYSTEMDRIVE%", u"C:"}};
    for (const auto &[name, value] : variables) {
        for (std::size_t at = upcase(text).find(name); at != std::u16string::npos; at = upcase(text).find(name)) {
            text.replace(at, name.size(), value);
        }
    }
    return text;
}

NTSTATUS deliver(const Query &query, const RTL_QUERY_REGISTRY_TABLE &entry, const RegistryValue &value,
                 bool isDefault) {
    const bool raw = (entry.Flags & RTL_QUERY_REGISTRY_NOEXPAND) != 0;
    if (!raw && value.type == REG_MULTI_SZ) {
        return callPerString(query, entry, value.name, value.data, isDefault);
    }
    if (!raw && value.type == REG_EXPAND_SZ && !value.data.empty()) {
        std::u16string text(value.data.size() / sizeof(char16_t), u'\0');
        std::memcpy(text.data(), value.data.data(), text.size() * sizeof(char16_t));
        if (text.find(u'%') != std::u16string::npos) {
            text = expand(std::move(text));
            return callRoutine(query, entry, value.name, REG_SZ, reinterpret_cast<const std::uint8_t *>(text.data()),
                               text.size() * sizeof(char16_t));
        }
    }
    return callRoutine(query, entry, value.name, value.type, value.data.data(), value.data.size());
}

/// The value that an entry gives for the case that the registry has none.
std::optional<RegistryValue> defaultOf(const RTL_QUERY_REGISTRY_TABLE &entry) {
    const ULONG type = entry.DefaultType & ~RTL_QUERY_REGISTRY_TYPECHECK_MASK;
    if (type == REG_NONE) {
        return std::nullopt;
    }
    std::size_t bytes = entry.DefaultLength;
    if (bytes == 0 && isText(type) && entry.DefaultData != nullptr) {
        bytes = defaultTextBytes(type, entry.DefaultData);
    }
    RegistryValue value{std::u16string(terminated(entry.Name)), type, std::vector<std::uint8_t>(bytes)};
    if (bytes != 0 && entry.DefaultData != nullptr) {
        std::memcpy(value.data.data(), entry.DefaultData, bytes);
    }
    return value;
}

void traceRead(const RTL_QUERY_REGISTRY_TABLE &entry, bool found) {
    if (kernel().trace.active()) {
        TraceEvent event{};
        event.kind = TraceEvent::Kind::registryValueRead;
        event.text = terminated(entry.Name);
        event.hit = found;
        event.status = found ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
        kernel().trace.emit(event);
    }
}

NTSTATUS processNamedValue(const Query &query, const RTL_QUERY_REGISTRY_TABLE &entry) {
    const auto stored = kernel().registry.value(query.key, terminated(entry.Name));
    const bool present =
        stored && stored->type != REG_NONE && !(stored->data.empty() && stored->type == entry.DefaultType);
    traceRead(entry, present);
    if (present) {
        return deliver(query, entry, *stored, false);
    }
    if (const auto value = defaultOf(entry)) {
        return deliver(query, entry, *value, true);
    }
    return (entry.Flags & RTL_QUERY_REGISTRY_REQUIRED) != 0 ? STATUS_OBJECT_NAME_NOT_FOUND : STATUS_SUCCESS;
}

NTSTATUS processEntry(const Query &query, const RTL_QUERY_REGISTRY_TABLE &entry) {
    constexpr ULONG simulated = RTL_QUERY_REGISTRY_REQUIRED | RTL_QUERY_REGISTRY_NOEXPAND;
    const bool direct = (entry.Flags & RTL_QUERY_REGISTRY_DIRECT) != 0;
    const bool subkey = (entry.Flags & RTL_QUERY_REGISTRY_SUBKEY) != 0;
    if ((direct && entry.QueryRoutine != nullptr) || ((direct || subkey) && entry.Name == nullptr)) {
        return STATUS_INVALID_PARAMETER;
    }
    if ((entry.Flags & ~simulated) != 0 || entry.Name == nullptr || entry.QueryRoutine == nullptr) {
        notSimulated(query.routine, "a table entry with flags " + hex(entry.Flags) + " or without name or routine",
                     query.callSite);
    }
    return processNamedValue(query, entry);
}

NTSTATUS queryValues(const char *routine, ULONG relativeTo, PCWSTR path, PRTL_QUERY_REGISTRY_TABLE table, PVOID context,
                     const void *callSite) {
    requirePassive(routine, callSite);
    if (const auto block = kernel().pool.blockAt(table); block && block->paged) {
        bugCheck("registry query", routine, "the query table lies in paged pool", callSite);
    }
    if (kernel().faults.shouldFail(routine)) {
        return kernel().faults.statusFor(routine, STATUS_INSUFFICIENT_RESOURCES);
    }
    const Query query{routine, callSite, keyPath(relativeTo, terminated(path), routine, callSite), context};
    if (!kernel().registry.keyExists(query.key)) {
        return (relativeTo & RTL_REGISTRY_OPTIONAL) != 0 ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
    }
    NTSTATUS status = STATUS_SUCCESS;
    for (; NT_SUCCESS(status) && (table->QueryRoutine != nullptr || table->Name != nullptr); ++table) {
        status = processEntry(query, *table);
    }
    return status;
}

} // namespace

// In the official headers the name is a macro for a lookup of the Ex form, with this routine to fall back on.
#undef RtlQueryRegistryValues

// learn.microsoft.com: RtlQueryRegistryValues
extern "C" NTSTATUS RtlQueryRegistryValues(ULONG relativeTo, PCWSTR path, PRTL_QUERY_REGISTRY_TABLE table,
                                           PVOID context, PVOID) {
    return queryValues("RtlQueryRegistryValues", relativeTo, path, table, context, SIM_CALL_SITE);
}

// Declared in no header; drivers find it by name. Differs from the other only for entries with
// RTL_QUERY_REGISTRY_DIRECT.
extern "C" NTSTATUS RtlQueryRegistryValuesEx(ULONG relativeTo, PCWSTR path, PRTL_QUERY_REGISTRY_TABLE table,
                                             PVOID context, PVOID) {
    return queryValues("RtlQueryRegistryValuesEx", relativeTo, path, table, context, SIM_CALL_SITE);
}
