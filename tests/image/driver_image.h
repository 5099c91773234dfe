// The image that was built.
#pragma once

#include "pe_reader.h"

inline const PeImage &image() {
    static const PeImage theImage{DRIVER_IMAGE};
    return theImage;
}
