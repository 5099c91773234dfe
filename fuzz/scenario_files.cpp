// Scenario files of any text. What can be read, and is no more than a few steps and devices, is played.

#include "cli/play/player.h"
#include "cli/scenario/scenario_parser.h"
#include "fuzz/support/lasting_driver.h"
#include "fuzz/support/unusable.h"

#include <algorithm>
#include <cstdint>

namespace fuzz {

namespace {

constexpr std::uint64_t mostBytes = 1 << 20;

std::uint64_t mediumBytes(const sim::DeviceDescription &device) {
    std::uint64_t bytes = device.disk ? device.disk->medium.bytes : 0;
    for (const sim::DeviceDescription &child : device.children) {
        bytes += mediumBytes(child);
    }
    return bytes;
}

bool hasSmallMedia(const cli::Scenario &scenario) {
    std::uint64_t bytes = 0;
    for (const cli::ScenarioDevice &device : scenario.devices) {
        bytes += mediumBytes(device.description);
    }
    return bytes <= mostBytes;
}

/// Playing takes milliseconds then.
bool isSmall(const cli::Scenario &scenario) {
    constexpr std::size_t most = 6;
    const bool takesLong = std::any_of(scenario.steps.begin(), scenario.steps.end(), [](const cli::Step &step) {
        const auto *use = std::get_if<cli::UseDisk>(&step.action);
        return std::holds_alternative<cli::AdvanceClock>(step.action) ||
               std::holds_alternative<cli::ChangeFiles>(step.action) || (use != nullptr && use->length > mostBytes);
    });
    return scenario.steps.size() <= most && scenario.devices.size() <= most && scenario.files.empty() && !takesLong &&
           hasSmallMedia(scenario);
}

void run(std::string_view text) {
    constexpr const char *file = "/nowhere/fuzzed.yaml";
    try {
        const cli::Scenario scenario = cli::parseScenario(std::string(text), file);
        if (isSmall(scenario)) {
            cli::PlayOptions options;
            options.openImage = openLastingDriver;
            const cli::PlayResult result = cli::play(scenario, options);
            require(result.steps.size() >= scenario.steps.size(), "each step is reported");
        }
    } catch (const cli::UnusableFile &unusable) {
        requireTold(unusable, text, file);
    }
}

} // namespace

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::run({reinterpret_cast<const char *>(data), size});
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::openLastingDriver();
    return 0;
}
