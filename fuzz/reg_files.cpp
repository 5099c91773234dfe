// Registry Editor exports of any bytes. What can be read is written out again, and must then read the same.

#include "cli/reg/reg_file.h"
#include "cli/scenario/problem.h"
#include "fuzz/support/require.h"
#include "fuzz/support/unusable.h"
#include "simulator/kernel/registry.h"

#include <string>

namespace fuzz {

namespace {

using cli::RegOperation;

std::u16string quoted(std::u16string_view text) {
    std::u16string result = u"\"";
    for (const char16_t unit : text) {
        if (unit == u'"' || unit == u'\\') {
            result += u'\\';
        }
        result += unit;
    }
    return result + u'"';
}

std::u16string hex(std::uint64_t number) {
    char digits[20];
    std::snprintf(digits, sizeof digits, "%llx", static_cast<unsigned long long>(number));
    return {digits, digits + std::char_traits<char>::length(digits)};
}

std::u16string bytesText(const cli::ValueData &value) {
    std::u16string text = u"hex(" + hex(value.type) + u"):";
    for (std::size_t index = 0; index < value.data.size(); ++index) {
        text +=
            (index == 0 ? u"" : u",") + std::u16string(value.data[index] < 16 ? u"0" : u"") + hex(value.data[index]);
    }
    return text;
}

/// The operations as an export of version 5. Values without a key of their own before them get one.
std::u16string written(const std::vector<RegOperation> &operations) {
    std::u16string text = u"Windows Registry Editor Version 5.00\r\n";
    for (const RegOperation &operation : operations) {
        switch (operation.kind) {
        case RegOperation::Kind::makeKey:
            text += u"[" + operation.key + u"]";
            break;
        case RegOperation::Kind::deleteKey:
            text += u"[-" + operation.key + u"]";
            break;
        case RegOperation::Kind::setValue:
            text += quoted(operation.name) + u"=" + bytesText(operation.value);
            break;
        case RegOperation::Kind::deleteValue:
            text += quoted(operation.name) + u"=-";
            break;
        }
        text += u"\r\n";
    }
    return text;
}

std::string asFile(std::u16string_view text) {
    std::string bytes = "\xFF\xFE";
    for (const char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

void requireSame(const std::vector<RegOperation> &first, const std::vector<RegOperation> &second) {
    requireEqual(second.size(), first.size(), "the number of operations");
    for (std::size_t index = 0; index < first.size(); ++index) {
        require(first[index].kind == second[index].kind && first[index].key == second[index].key &&
                    first[index].name == second[index].name && first[index].value == second[index].value,
                "operation " + std::to_string(index) + " reads the same again");
    }
}

void run(std::string_view bytes) {
    std::vector<RegOperation> operations;
    try {
        operations = cli::parseRegFile(bytes, "fuzzed.reg");
    } catch (const cli::UnusableFile &unusable) {
        requireTold(unusable, bytes, "fuzzed.reg");
        return;
    }
    for (const RegOperation &operation : operations) {
        require(operation.key.starts_with(u"\\Registry\\"), "a key lies in the registry");
    }
    requireSame(operations, cli::parseRegFile(asFile(written(operations)), "again.reg"));
}

} // namespace

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::run({reinterpret_cast<const char *>(data), size});
    return 0;
}
