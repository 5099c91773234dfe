#include "device_library.h"

#include "device_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace cli {
namespace {

namespace fs = std::filesystem;

std::string nearestFolder(const std::string &scenarioFile) {
    std::error_code error;
    fs::path folder = fs::absolute(scenarioFile, error).lexically_normal().parent_path();
    for (;;) {
        if (fs::is_directory(folder / "devices", error)) {
            return (folder / "devices").string();
        }
        if (folder == folder.parent_path()) {
            return {};
        }
        folder = folder.parent_path();
    }
}

} // namespace

DeviceLibrary DeviceLibrary::load(const std::string &folder) {
    DeviceLibrary library;
    if (folder.empty()) {
        return library;
    }
    std::vector<std::string> files;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".yaml") {
            files.push_back(fs::proximate(entry.path()).string());
        }
    }
    std::sort(files.begin(), files.end());
    Problems problems;
    for (const std::string &file : files) {
        library.add(YamlNode::fromFile(file, problems));
    }
    if (!problems.empty()) {
        throw UnusableFile(problems.sorted());
    }
    return library;
}

const DeviceLibrary &DeviceLibrary::nearestTo(const std::string &scenarioFile) {
    static std::map<std::string, DeviceLibrary> libraries; // read once per run, however many scenarios use it
    const std::string folder = nearestFolder(scenarioFile);
    auto known = libraries.find(folder);
    if (known == libraries.end()) {
        known = libraries.emplace(folder, load(folder)).first;
    }
    return known->second;
}

void DeviceLibrary::add(const YamlNode &file) {
    if (!file.isMap()) {
        file.problem("a device library must be a map of names to devices");
    }
    for (const YamlEntry &entry : file.entries()) {
        if (devices_.contains(entry.name)) {
            entry.key.problem(fmt::format("the library has a device '{}' already", entry.name));
            continue;
        }
        sim::DeviceDescription device;
        MapReader reader(entry.value, "device '" + entry.name + "'");
        readDevice(reader, device, this);
        reader.finish();
        checkDevice(entry.key, device);
        devices_.emplace(entry.name, std::move(device));
    }
}

const sim::DeviceDescription *DeviceLibrary::find(const std::string &name) const {
    const auto found = devices_.find(name);
    return found == devices_.end() ? nullptr : &found->second;
}

std::vector<std::string> DeviceLibrary::names() const {
    std::vector<std::string> names;
    for (const auto &[name, device] : devices_) {
        names.push_back(name);
    }
    return names;
}

} // namespace cli
