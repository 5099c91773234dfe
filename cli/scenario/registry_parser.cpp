#include "registry_parser.h"

#include "../../simulator/kernel/strings.h"
#include "../../simulator/machine/machine.h"
#include "../reg/key_paths.h"

#include <fmt/format.h>

#include <filesystem>

namespace cli {
namespace {

constexpr std::uint64_t largestFile = 64u << 20;

void readValues(const YamlNode &node, const std::u16string &key, RegistryChanges &into) {
    for (const YamlEntry &entry : node.entries()) {
        RegOperation operation{RegOperation::Kind::setValue, key, sim::toUtf16(entry.name), {}, entry.key.where().line};
        if (entry.value.isNull()) {
            operation.kind = RegOperation::Kind::deleteValue;
        } else if (const auto value = parseValue(entry.value, "value '" + entry.name + "'")) {
            operation.value = *value;
        } else {
            continue;
        }
        into.push_back(std::move(operation));
    }
}

std::optional<std::string> parseFileBytes(const YamlNode &node, const std::string &name) {
    if (node.isScalar()) {
        return node.text("file");
    }
    MapReader reader(node, "file '" + name + "'");
    std::string content;
    if (const auto text = reader.take("text")) {
        content = sim::toUtf8(parseUtf16(*text, "text").value_or(u""));
    }
    if (const auto bytes = reader.take("bytes")) {
        if (const auto parsed = bytes->bytes("bytes")) {
            content.assign(parsed->begin(), parsed->end());
        }
    }
    if (const auto size = reader.take("size")) {
        content.assign(size->number("size", largestFile).value_or(0), 'x');
    }
    reader.finish();
    return content;
}

} // namespace

RegistryChanges parsePolicy(const YamlNode &node) {
    MapReader(node, "policy");
    RegistryChanges changes{{RegOperation::Kind::makeKey, sim::Machine::parametersKey(), {}, {}, node.where().line}};
    readValues(node, sim::Machine::parametersKey(), changes);
    return changes;
}

RegistryChanges parseRegistryChanges(const YamlNode &node) {
    MapReader(node, "registry");
    RegistryChanges changes;
    for (const YamlEntry &entry : node.entries()) {
        const auto path = scenarioKeyPath(entry.name);
        if (!path) {
            entry.key.problem(fmt::format("registry key '{}' has an unknown root", entry.name));
            continue;
        }
        if (entry.value.isNull()) {
            changes.push_back({RegOperation::Kind::deleteKey, *path, {}, {}, entry.key.where().line});
            continue;
        }
        MapReader(entry.value, "key '" + entry.name + "'");
        changes.push_back({RegOperation::Kind::makeKey, *path, {}, {}, entry.key.where().line});
        readValues(entry.value, *path, changes);
    }
    return changes;
}

RegistryChanges parseRegFiles(const YamlNode &node) {
    RegistryChanges changes;
    for (const YamlNode &item : node.items()) {
        const auto name = item.text("a .reg file");
        if (!name) {
            continue;
        }
        try {
            const auto path = std::filesystem::path(item.file()).parent_path() / *name;
            for (RegOperation &operation : readRegFile(path.string())) {
                changes.push_back(std::move(operation));
            }
        } catch (const UnusableFile &unusable) {
            for (const Problem &problem : unusable.problems()) {
                if (problem.where.line > 0) {
                    item.problems().add(problem.where, problem.message);
                } else { // of the file as a whole: told where it was asked for
                    item.problem(fmt::format("{} {}", problem.where.file, problem.message));
                }
            }
        }
    }
    return changes;
}

std::vector<TempFile> parseTempFiles(const YamlNode &node) {
    MapReader(node, "files");
    std::vector<TempFile> files;
    for (const YamlEntry &entry : node.entries()) {
        if (entry.name.empty() || entry.name.find_first_of("/\\") != std::string::npos || entry.name == "..") {
            entry.key.problem("a file's name stands for a file directly in \\SystemRoot\\Temp");
        } else if (entry.value.isNull()) {
            files.push_back({entry.name, std::nullopt});
        } else {
            files.push_back({entry.name, parseFileBytes(entry.value, entry.name)});
        }
    }
    return files;
}

} // namespace cli
