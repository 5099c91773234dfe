#include "exports.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <dlfcn.h>
#include <string_view>
#include <utility>

namespace sim::image {

namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char letter) { return static_cast<char>(std::tolower(static_cast<unsigned char>(letter))); });
    return text;
}

constexpr std::array<std::string_view, 2> frameworkLoader{"WdfVersionBind", "WdfVersionUnbind"};

/// The simulated routines stand in this program under the names that the kernel exports.
void *ofThisProgram(const std::string &name) {
    void *address = dlsym(RTLD_DEFAULT, name.c_str());
    Dl_info found{};
    Dl_info own{};
    const bool isOwn = address != nullptr && dladdr(address, &found) != 0 &&
                       dladdr(reinterpret_cast<void *>(&exportOf), &own) != 0 && found.dli_fbase == own.dli_fbase;
    return isOwn ? address : nullptr;
}

/// Routines of the C library that the kernel exports too, with the same meaning.
void *memoryRoutine(const std::string &name) {
    static const std::array<std::pair<std::string_view, void *>, 4> routines{{
        {"memcmp", reinterpret_cast<void *>(&std::memcmp)},
        {"memcpy", reinterpret_cast<void *>(&std::memcpy)},
        {"memmove", reinterpret_cast<void *>(&std::memmove)},
        {"memset", reinterpret_cast<void *>(&std::memset)},
    }};
    const auto found =
        std::find_if(routines.begin(), routines.end(), [&](const auto &each) { return each.first == name; });
    return found == routines.end() ? nullptr : found->second;
}

} // namespace

void *exportOf(const std::string &module, const std::string &name) {
    const std::string file = lowerCase(module);
    const bool ofLoader = std::find(frameworkLoader.begin(), frameworkLoader.end(), name) != frameworkLoader.end();
    if (file == "wdfldr.sys") {
        return ofLoader ? ofThisProgram(name) : nullptr;
    }
    if (file != "ntoskrnl.exe" || ofLoader) {
        return nullptr;
    }
    if (void *routine = memoryRoutine(name)) {
        return routine;
    }
    return ofThisProgram(name);
}

} // namespace sim::image
