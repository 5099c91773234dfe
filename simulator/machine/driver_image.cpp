#include "driver_image.h"

#include <cstdlib>
#include <fstream>

namespace sim {

namespace {

#if defined(__aarch64__)
constexpr bool onArm64 = true;
#else
constexpr bool onArm64 = false;
#endif

} // namespace

bool isPeImage(const std::filesystem::path &file) {
    char start[2] = {};
    std::ifstream(file, std::ios::binary).read(start, sizeof start);
    return start[0] == 'M' && start[1] == 'Z';
}

bool runsPeImages() {
    return onArm64;
}

std::unique_ptr<DriverImage> openDriver(const std::filesystem::path &file) {
    return isPeImage(file) ? openPeImage(file) : openNativeImage(file);
}

std::filesystem::path defaultDriver() {
    if (const char *named = std::getenv("MYRTELHAVEN_DRIVER"); named != nullptr && *named != '\0') {
        return named;
    }
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return (folder / (onArm64 ? "../image/TarvenholtMyrtelhavenDriver.sys" : "TarvenholtMyrtelhavenDriver.so"))
        .lexically_normal();
}

} // namespace sim
