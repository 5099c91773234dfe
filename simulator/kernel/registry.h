#pragma once

#include <ntifs.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct RegistryValue {
    std::u16string name; ///< spelling as stored
    std::uint32_t type = REG_NONE;
    std::vector<std::uint8_t> data;
};

/// The machine's registry: keys and values found without regard to case (system upcase table), spelling kept, paths in
/// kernel form ("\Registry\Machine\System\CurrentControlSet\…"). Thread-safe; values are returned by copy.
class Registry {
  public:
    bool keyExists(std::u16string_view path) const;
    /// Creates the key and every missing parent (what a set-up does, not what ZwCreateKey does).
    void makeKey(std::u16string_view path);
    /// STATUS_SUCCESS, or STATUS_OBJECT_NAME_NOT_FOUND when the parent is missing; `created` tells which happened.
    NTSTATUS createKey(std::u16string_view path, bool &created);
    void deleteKey(std::u16string_view path);

    std::optional<RegistryValue> value(std::u16string_view path, std::u16string_view name) const;
    std::vector<RegistryValue> values(std::u16string_view path) const;
    std::vector<std::u16string> subkeys(std::u16string_view path) const;
    void setValue(std::u16string_view path, std::u16string_view name, std::uint32_t type,
                  std::vector<std::uint8_t> data);
    void deleteValue(std::u16string_view path, std::u16string_view name);

    // Shorthands for set-up and assertions.
    void setString(std::u16string_view path, std::u16string_view name, std::u16string_view text); ///< REG_SZ with NUL
    void setMultiString(std::u16string_view path, std::u16string_view name, const std::vector<std::u16string> &strings);
    void setDword(std::u16string_view path, std::u16string_view name, std::uint32_t number);
    std::optional<std::uint32_t> dword(std::u16string_view path, std::u16string_view name) const;
    std::optional<std::vector<std::u16string>> multiString(std::u16string_view path, std::u16string_view name) const;

    Registry();
    ~Registry();

  private:
    struct Key;
    Key *find(std::u16string_view path) const;
    Key &make(std::u16string_view path);
    mutable std::mutex mutex_;
    std::unique_ptr<Key> root_;
};

} // namespace sim
