#include "../../kernel/code_address.h"
#include "../../machine/driver_image.h"
#include "../exports.h"
#include "../loaded_images.h"
#include "../mapped_image.h"
#include "crash_report.h"
#include "guard_check.h"
#include "structured_exceptions.h"

#include <mutex>

namespace sim {

namespace {

void *resolve(const std::string &module, const std::string &name) {
    void *address = image::exportOf(module, name);
    void *raising = address == nullptr ? nullptr : image::raisingRoutine(name);
    return raising == nullptr ? address : raising;
}

using Entry = NTSTATUS (*)(PDRIVER_OBJECT, PUNICODE_STRING);

class PeDriverImage final : public DriverImage {
  public:
    explicit PeDriverImage(const std::filesystem::path &file)
        : image_(file, resolve, {.cookie = 0, .guardCheck = image::guardCheckRoutine()}) {
        image::addLoadedImage(image_);
    }
    ~PeDriverImage() override { image::removeLoadedImage(image_); }

    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        const NTSTATUS status = reinterpret_cast<Entry>(image_.entryPoint())(driver, registryPath);
        image_.discard();
        return status;
    }
    void *start() const override { return image_.base(); }
    ULONG size() const override { return image_.size(); }

  private:
    image::MappedImage image_;
};

} // namespace

bool runsPeImages() {
    return true;
}

std::unique_ptr<DriverImage> openPeImage(const std::filesystem::path &file) {
    static std::once_flag once;
    std::call_once(once, [] {
        setCodeDescriber(image::describeReturnAddress);
        image::reportImageCrashes();
    });
    return std::make_unique<PeDriverImage>(file);
}

} // namespace sim
