#include "short_names.h"

#include <map>

namespace sim {

namespace {

constexpr std::size_t baseLength = 8;
constexpr std::size_t extensionLength = 3;
constexpr std::size_t keptOfBase = 6;

bool allowedInShortName(char16_t unit) {
    constexpr std::u16string_view forbidden = u" .+,;=[]\"*/:<>?\\|";
    return unit > u' ' && unit < 0x7F && forbidden.find(unit) == std::u16string_view::npos;
}

/// The characters that a short name may hold; others than spaces and dots become underscores.
std::u16string clean(std::u16string_view text) {
    std::u16string result;
    for (const char16_t unit : text) {
        if (unit != u' ' && unit != u'.') {
            result += allowedInShortName(unit) ? unit : u'_';
        }
    }
    return result;
}

} // namespace

void addShortNames(std::vector<FolderEntry> &entries) {
    std::map<std::u16string, unsigned> used; // numbers given per base and extension
    for (FolderEntry &entry : entries) {
        const std::size_t dot = entry.upperName.rfind(u'.');
        const std::u16string base = entry.upperName.substr(0, dot);
        const std::u16string extension =
            dot == std::u16string::npos ? std::u16string{} : entry.upperName.substr(dot + 1);
        const std::u16string cleanBase = clean(base);
        const std::u16string cleanExtension = clean(extension).substr(0, extensionLength);
        if (cleanBase == base && base.size() <= baseLength && cleanExtension == extension && !base.empty()) {
            continue;
        }
        const std::u16string start = cleanBase.substr(0, keptOfBase);
        const std::u16string end = cleanExtension.empty() ? std::u16string{} : u"." + cleanExtension;
        const std::string number = std::to_string(++used[start + u"|" + end]);
        const std::u16string tail = u"~" + std::u16string(number.begin(), number.end());
        entry.shortName = start.substr(0, baseLength - tail.size()) + tail + end;
    }
}

} // namespace sim
