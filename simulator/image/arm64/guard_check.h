#pragma once

namespace sim::image {

/// What control flow guard calls before an indirect call of an image, with the target in x15: a bug check when the
/// target is code of an image that no one may call. It keeps every register that may hold an argument, so it is no C++
/// function.
const void *guardCheckRoutine();

} // namespace sim::image
