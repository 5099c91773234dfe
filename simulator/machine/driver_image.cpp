#include "driver_image.h"

#include <cstdlib>
#include <fstream>

namespace sim {

bool isPeImage(const std::filesystem::path &file) {
    char start[2] = {};
    std::ifstream(file, std::ios::binary).read(start, sizeof start);
    return start[0] == 'M' && start[1] == 'Z';
}

std::unique_ptr<DriverImage> openDriver(const std::filesystem::path &file) {
    return isPeImage(file) ? openPeImage(file) : openNativeImage(file);
}

std::filesystem::path defaultDriver() {
    if (const char *named = std::getenv("MYRTELHAVEN_DRIVER"); named != nullptr && *named != '\0') {
        return named;
    }
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return (folder / (runsPeImages() ? "../image/TarvenholtMyrtelhavenDriver.sys" : "TarvenholtMyrtelhavenDriver.so"))
        .lexically_normal();
}

} // namespace sim
