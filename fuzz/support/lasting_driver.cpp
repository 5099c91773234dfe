#include "lasting_driver.h"

namespace fuzz {

namespace {

class LastingImage final : public sim::DriverImage {
  public:
    explicit LastingImage(sim::DriverImage &module) : module_(module) {}
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        return module_.callEntry(driver, registryPath);
    }
    void *start() const override { return module_.start(); }

  private:
    sim::DriverImage &module_;
};

} // namespace

std::unique_ptr<sim::DriverImage> openLastingDriver() {
    static sim::DriverImage &module = *sim::openNativeImage(sim::defaultDriver()).release();
    return std::make_unique<LastingImage>(module);
}

} // namespace fuzz
