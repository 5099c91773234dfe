#include "linked_driver.h"

#include <fmt/format.h>

#include <stdexcept>

extern "C" DRIVER_INITIALIZE FxDriverEntry;

namespace bench {
namespace {

/// Its entry sets up all that the driver keeps outside its contexts.
class LinkedImage final : public sim::DriverImage {
  public:
    NTSTATUS callEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) override {
        return FxDriverEntry(driver, registryPath);
    }
};

} // namespace

std::unique_ptr<sim::DriverImage> openLinkedDriver() {
    return std::make_unique<LinkedImage>();
}

void demand(NTSTATUS status, const char *what) {
    if (!NT_SUCCESS(status)) {
        throw std::runtime_error(fmt::format("{}: 0x{:08x}", what, static_cast<std::uint32_t>(status)));
    }
}

} // namespace bench
