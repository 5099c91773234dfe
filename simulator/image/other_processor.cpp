// Where ARM64 code does not run.

#include "../machine/driver_image.h"

#include <stdexcept>

namespace sim {

bool runsPeImages() {
    return false;
}

std::unique_ptr<DriverImage> openPeImage(const std::filesystem::path &file) {
    throw std::runtime_error(file.string() + " is an image for ARM64, which this program can't run");
}

} // namespace sim
