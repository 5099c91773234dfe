#pragma once

#include "../../simulator/kernel/registry.h"
#include "yaml_node.h"

#include <optional>
#include <string>
#include <vector>

namespace cli {

/// Type and bytes of a registry value.
struct ValueData {
    std::uint32_t type = 0;
    std::vector<std::uint8_t> data;
    bool operator==(const ValueData &) const = default;
};

/// Any UTF-16 text: a scalar, or a list of parts that are joined, where a part is a scalar, {repeat: TEXT, times: N} or
/// {units: [0xD800, 0]} (single UTF-16 units, for NULs and lone surrogates).
std::optional<std::u16string> parseUtf16(const YamlNode &node, std::string_view what);

/// A list of such texts.
std::vector<std::u16string> parseUtf16List(const YamlNode &node, std::string_view what);

/// A registry value: number = REG_DWORD, text = REG_SZ, list = REG_MULTI_SZ, or a map that gives the type and one of
/// text, strings, number and bytes. Null is reported; callers handle it before.
std::optional<ValueData> parseValue(const YamlNode &node, std::string_view what);

/// Bytes of strings as registry and property lists store them: each with its NUL, then one more.
std::vector<std::uint8_t> multiStringBytes(const std::vector<std::u16string> &strings);
std::vector<std::uint8_t> textBytes(std::u16string_view text, bool terminated);
std::vector<std::uint8_t> dwordBytes(std::uint32_t number);

/// "REG_SZ" and the like to the number and back; unknown numbers become "type 0x…".
std::string valueTypeName(std::uint32_t type);
const std::vector<std::string> &valueTypeNames();

/// The value as a person reads it, e.g. "REG_SZ 'Class_08'", "REG_DWORD 4", "REG_MULTI_SZ [a, b]" or hexadecimal bytes
/// where the data does not fit the type.
std::string describeValue(const ValueData &value);

} // namespace cli
