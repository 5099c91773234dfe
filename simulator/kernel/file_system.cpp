#include "files.h"

#include "strings.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr std::u16string_view rootName = u"\\SYSTEMROOT";

std::filesystem::path makeTemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "myrtelhaven-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary folder like " + pattern);
    }
    return pattern;
}

std::u16string entryName(const std::filesystem::path &entry) {
    return toUtf16(entry.filename().string());
}

} // namespace

FileSystem::FileSystem(std::filesystem::path systemRoot, bool keep) : systemRoot_(std::move(systemRoot)) {
    removeAtEnd_ = !keep && (systemRoot_.empty() || !std::filesystem::exists(systemRoot_));
    if (systemRoot_.empty()) {
        systemRoot_ = makeTemporaryFolder();
    }
    if (!findEntry(systemRoot_, u"Temp")) {
        std::filesystem::create_directories(systemRoot_ / "Temp");
    }
}

FileSystem::~FileSystem() {
    if (removeAtEnd_) {
        std::error_code ignored;
        std::filesystem::remove_all(systemRoot_, ignored);
    }
}

std::optional<std::filesystem::path> FileSystem::findEntry(const std::filesystem::path &folder,
                                                           std::u16string_view name) {
    std::error_code error;
    const std::filesystem::path exact = folder / toUtf8(name);
    if (std::filesystem::exists(exact, error)) {
        return exact;
    }
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (equalNoCase(entryName(entry->path()), name)) {
            return entry->path();
        }
    }
    return std::nullopt;
}

std::optional<std::filesystem::path> FileSystem::hostPath(std::u16string_view ntPath) const {
    if (!equalNoCase(ntPath.substr(0, rootName.size()), rootName)) {
        return std::nullopt;
    }
    ntPath.remove_prefix(rootName.size());
    while (ntPath.ends_with(u'\\')) {
        ntPath.remove_suffix(1);
    }
    if (!ntPath.empty() && !ntPath.starts_with(u'\\')) {
        return std::nullopt;
    }
    std::filesystem::path path = systemRoot_;
    while (!ntPath.empty()) {
        ntPath.remove_prefix(1);
        const std::u16string_view component = ntPath.substr(0, ntPath.find(u'\\'));
        ntPath.remove_prefix(component.size());
        const auto found = findEntry(path, component);
        if (!found && !ntPath.empty()) {
            return std::nullopt;
        }
        path = found ? *found : path / toUtf8(component);
    }
    return path;
}

bool FileSystem::mounted() const {
    return mounted_;
}

void FileSystem::setMounted(bool mounted) {
    mounted_ = mounted;
}

bool FileSystem::full() const {
    return full_;
}

void FileSystem::setFull(bool full) {
    full_ = full;
}

ULONG FileSystem::attributes(const std::filesystem::path &file) const {
    std::lock_guard lock(mutex_);
    const auto found = attributes_.find(file);
    return found == attributes_.end() ? 0 : found->second;
}

void FileSystem::setAttributes(const std::filesystem::path &file, ULONG attributes) {
    constexpr ULONG kept = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    std::lock_guard lock(mutex_);
    if ((attributes & kept) == 0) {
        attributes_.erase(file);
    } else {
        attributes_[file] = attributes & kept;
    }
}

void FileSystem::putTempFile(std::string_view name, std::string_view bytes) {
    const auto path = hostPath(u"\\SystemRoot\\Temp\\" + toUtf16(name));
    if (!path) {
        throw std::runtime_error("no folder for " + std::string(name));
    }
    std::ofstream stream(*path, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) {
        throw std::runtime_error("can't write " + path->string());
    }
}

std::vector<std::string> FileSystem::tempFiles() const {
    std::vector<std::string> names;
    std::error_code error;
    const auto folder = findEntry(systemRoot_, u"Temp");
    if (!folder) {
        return names;
    }
    for (std::filesystem::directory_iterator entry(*folder, error), end; !error && entry != end;
         entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> FileSystem::tempFile(std::string_view name) const {
    const auto path = hostPath(u"\\SystemRoot\\Temp\\" + toUtf16(name));
    if (!path || !std::filesystem::is_regular_file(*path)) {
        return std::nullopt;
    }
    std::ifstream stream(*path, std::ios::binary | std::ios::ate);
    std::string bytes(stream ? static_cast<std::size_t>(stream.tellg()) : 0, '\0');
    stream.seekg(0);
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

} // namespace sim
