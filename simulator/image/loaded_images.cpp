#include "loaded_images.h"

#include "../kernel/violation.h"
#include "mapped_image.h"
#include "source_place.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace sim::image {

namespace {

struct LoadedImages {
    std::shared_mutex mutex;
    std::vector<const MappedImage *> list;
};

LoadedImages &loadedImages() {
    static auto &images = *new LoadedImages; // also asked while the process ends
    return images;
}

} // namespace

void addLoadedImage(const MappedImage &image) {
    const std::unique_lock lock(loadedImages().mutex);
    loadedImages().list.push_back(&image);
}

void removeLoadedImage(const MappedImage &image) {
    const std::unique_lock lock(loadedImages().mutex);
    std::erase(loadedImages().list, &image);
}

const MappedImage *loadedImageAt(const void *address) {
    const std::shared_lock lock(loadedImages().mutex);
    const auto &list = loadedImages().list;
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const auto &each) { return each->relative(address).has_value(); });
    return found == list.end() ? nullptr : *found;
}

std::optional<std::string> describeReturnAddress(const void *address) {
    const MappedImage *image = loadedImageAt(address);
    if (image == nullptr) {
        return std::nullopt;
    }
    const std::uint32_t offset = *image->relative(address);
    // The call is the instruction before the one that it returns to.
    const auto places = offset == 0 ? std::vector<SourcePlace>() : placesInSource(image->path(), offset - 1);
    if (places.empty()) {
        return image->name() + "+" + hex(offset);
    }
    std::string text = image->name() + "!";
    for (const SourcePlace &place : places) {
        text += (&place == &places.front() ? "" : " in ") + place.function;
        text += place.file.empty() ? "" : " (" + place.file + ":" + std::to_string(place.line) + ")";
    }
    return text;
}

} // namespace sim::image
