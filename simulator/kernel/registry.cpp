#include "registry.h"

#include "strings.h"

#include <algorithm>
#include <utility>

namespace sim {

struct Registry::Key {
    std::u16string name;                                 ///< spelling as stored
    std::map<std::u16string, std::unique_ptr<Key>> keys; ///< by upcased name
    std::vector<RegistryValue> values;                   ///< in the order in which they were first set

    RegistryValue *value(std::u16string_view wanted) {
        const auto found = std::find_if(values.begin(), values.end(), [wanted](const RegistryValue &value) {
            return equalNoCase(value.name, wanted);
        });
        return found == values.end() ? nullptr : &*found;
    }
};

namespace {

/// Takes the next component off the front of a path; empty at its end. Repeated backslashes count as one.
std::u16string_view nextComponent(std::u16string_view &path) {
    while (path.starts_with(u'\\')) {
        path.remove_prefix(1);
    }
    const std::u16string_view component = path.substr(0, path.find(u'\\'));
    path.remove_prefix(component.size());
    return component;
}

std::u16string_view parentOf(std::u16string_view path) {
    while (path.ends_with(u'\\')) {
        path.remove_suffix(1);
    }
    const std::size_t separator = path.rfind(u'\\');
    return separator == std::u16string_view::npos ? std::u16string_view{} : path.substr(0, separator);
}

void appendUnits(std::vector<std::uint8_t> &bytes, std::u16string_view text) {
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
}

} // namespace

Registry::Registry() : root_(std::make_unique<Key>()) {}
Registry::~Registry() = default;

Registry::Key *Registry::find(std::u16string_view path) const {
    Key *key = root_.get();
    for (auto component = nextComponent(path); !component.empty(); component = nextComponent(path)) {
        const auto found = key->keys.find(upcase(component));
        if (found == key->keys.end()) {
            return nullptr;
        }
        key = found->second.get();
    }
    return key;
}

Registry::Key &Registry::make(std::u16string_view path) {
    Key *key = root_.get();
    for (auto component = nextComponent(path); !component.empty(); component = nextComponent(path)) {
        auto &child = key->keys[upcase(component)];
        if (!child) {
            child = std::make_unique<Key>();
            child->name = component;
        }
        key = child.get();
    }
    return *key;
}

bool Registry::keyExists(std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    return find(path) != nullptr;
}

void Registry::makeKey(std::u16string_view path) {
    std::lock_guard lock(mutex_);
    make(path);
}

NTSTATUS Registry::createKey(std::u16string_view path, bool &created) {
    std::lock_guard lock(mutex_);
    created = find(path) == nullptr;
    if (created && find(parentOf(path)) == nullptr) {
        created = false;
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    make(path);
    return STATUS_SUCCESS;
}

void Registry::deleteKey(std::u16string_view path) {
    std::lock_guard lock(mutex_);
    while (path.ends_with(u'\\')) {
        path.remove_suffix(1);
    }
    if (Key *parent = find(parentOf(path))) {
        parent->keys.erase(upcase(path.substr(path.rfind(u'\\') + 1)));
    }
}

std::optional<RegistryValue> Registry::value(std::u16string_view path, std::u16string_view name) const {
    std::lock_guard lock(mutex_);
    Key *key = find(path);
    const RegistryValue *found = key == nullptr ? nullptr : key->value(name);
    return found == nullptr ? std::nullopt : std::optional(*found);
}

std::vector<RegistryValue> Registry::values(std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    const Key *key = find(path);
    return key == nullptr ? std::vector<RegistryValue>{} : key->values;
}

std::vector<std::u16string> Registry::subkeys(std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    std::vector<std::u16string> names;
    if (const Key *key = find(path)) {
        for (const auto &[upcased, child] : key->keys) {
            names.push_back(child->name);
        }
    }
    return names;
}

void Registry::setValue(std::u16string_view path, std::u16string_view name, std::uint32_t type,
                        std::vector<std::uint8_t> data) {
    std::lock_guard lock(mutex_);
    Key &key = make(path);
    if (RegistryValue *found = key.value(name)) {
        found->type = type;
        found->data = std::move(data);
        return;
    }
    key.values.push_back({std::u16string(name), type, std::move(data)});
}

void Registry::deleteValue(std::u16string_view path, std::u16string_view name) {
    std::lock_guard lock(mutex_);
    if (Key *key = find(path)) {
        std::erase_if(key->values, [name](const RegistryValue &value) { return equalNoCase(value.name, name); });
    }
}

void Registry::setString(std::u16string_view path, std::u16string_view name, std::u16string_view text) {
    std::vector<std::uint8_t> bytes;
    appendUnits(bytes, text);
    appendUnits(bytes, std::u16string_view(u"\0", 1));
    setValue(path, name, REG_SZ, std::move(bytes));
}

void Registry::setMultiString(std::u16string_view path, std::u16string_view name,
                              const std::vector<std::u16string> &strings) {
    std::vector<std::uint8_t> bytes;
    for (const std::u16string &text : strings) {
        appendUnits(bytes, text);
        appendUnits(bytes, std::u16string_view(u"\0", 1));
    }
    appendUnits(bytes, std::u16string_view(u"\0", 1));
    setValue(path, name, REG_MULTI_SZ, std::move(bytes));
}

void Registry::setDword(std::u16string_view path, std::u16string_view name, std::uint32_t number) {
    std::vector<std::uint8_t> bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
    setValue(path, name, REG_DWORD, std::move(bytes));
}

std::optional<std::uint32_t> Registry::dword(std::u16string_view path, std::u16string_view name) const {
    const auto found = value(path, name);
    if (!found || found->type != REG_DWORD || found->data.size() != 4) {
        return std::nullopt;
    }
    const auto &data = found->data;
    return static_cast<std::uint32_t>(data[0]) | static_cast<std::uint32_t>(data[1]) << 8 |
           static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24;
}

std::optional<std::vector<std::u16string>> Registry::multiString(std::u16string_view path,
                                                                 std::u16string_view name) const {
    const auto found = value(path, name);
    if (!found || found->type != REG_MULTI_SZ) {
        return std::nullopt;
    }
    std::vector<std::u16string> strings;
    std::u16string text;
    for (std::size_t at = 0; at + 1 < found->data.size(); at += 2) {
        const auto unit = static_cast<char16_t>(found->data[at] | found->data[at + 1] << 8);
        if (unit != 0) {
            text += unit;
        } else if (!text.empty()) {
            strings.push_back(std::exchange(text, {}));
        }
    }
    if (!text.empty()) {
        strings.push_back(std::move(text));
    }
    return strings;
}

} // namespace sim
