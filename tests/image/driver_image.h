// The image that was built.
#pragma once

#include "../../simulator/image/pe_file.h"

using namespace sim::image;

inline const PeFile &image() {
    static const PeFile theImage{DRIVER_IMAGE};
    return theImage;
}
