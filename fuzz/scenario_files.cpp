// Scenario files of any text. What can be read, and is no more than a few steps and devices, is played.

#include "cli/play/player.h"
#include "cli/scenario/scenario_parser.h"
#include "fuzz/support/lasting_driver.h"
#include "fuzz/support/unusable.h"

#include <algorithm>
#include <cstdint>

namespace fuzz {

namespace {

/// Playing takes milliseconds then.
bool isSmall(const cli::Scenario &scenario) {
    constexpr std::size_t most = 6;
    const bool advances = std::any_of(scenario.steps.begin(), scenario.steps.end(), [](const cli::Step &step) {
        return std::holds_alternative<cli::AdvanceClock>(step.action) ||
               std::holds_alternative<cli::ChangeFiles>(step.action);
    });
    return scenario.steps.size() <= most && scenario.devices.size() <= most && scenario.files.empty() && !advances;
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
