#include "driver_image.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace sim {

namespace {

using Entry = NTSTATUS (*)(PDRIVER_OBJECT, PUNICODE_STRING);

std::string linkerError() {
    const char *error = dlerror();
    return error == nullptr ? "unknown error" : error;
}

class NativeImage final : public DriverImage {
  public:
    explicit NativeImage(const std::filesystem::path &module) {
        if (void *mapped = dlopen(module.c_str(), RTLD_NOW | RTLD_NOLOAD)) {
            dlclose(mapped);
            throw std::runtime_error("driver module " + module.string() + " is still mapped");
        }
        handle_ = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle_ == nullptr) {
            throw std::runtime_error("driver module " + module.string() + " cannot be mapped: " + linkerError());
        }
        entry_ = reinterpret_cast<Entry>(dlsym(handle_, "FxDriverEntry"));
        if (entry_ == nullptr) {
            const std::string error = linkerError();
            dlclose(handle_);
            throw std::runtime_error("driver module " + module.string() + " has no entry point: " + error);
        }
        Dl_info info{};
        if (dladdr(reinterpret_cast<void *>(entry_), &info) != 0) {
            start_ = info.dli_fbase;
        }
    }

    ~NativeImage() override { dlclose(handle_); }

    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        return entry_(driver, registryPath);
    }
    void *start() const override { return start_; }

  private:
    void *handle_ = nullptr;
    Entry entry_ = nullptr;
    void *start_ = nullptr;
};

} // namespace

std::unique_ptr<DriverImage> openNativeImage(const std::filesystem::path &module) {
    return std::make_unique<NativeImage>(std::filesystem::absolute(module));
}

} // namespace sim
