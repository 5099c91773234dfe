#pragma once

namespace sim::image {

/// From now on a fault of an image's code is a bug check that names the place in its sources: an address that it may
/// not touch, a fast fail, a trap. Also when a simulated routine meets the fault on the image's behalf.
void reportImageCrashes();

} // namespace sim::image
