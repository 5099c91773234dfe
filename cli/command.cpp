#include "command.h"

#include "../simulator/machine/driver_image.h"
#include "faults_command.h"
#include "play_command.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <ostream>

namespace cli {
namespace {

/// What is wrong with `file` as an image for this program to load; empty when nothing is seen from outside.
std::string canRunImage(const std::string &file) {
    if (!std::filesystem::is_regular_file(file)) {
        return "there is no file " + file;
    }
    if (!sim::isPeImage(file)) {
        return file + " is no Windows image";
    }
    return sim::runsPeImages()
               ? ""
               : "this command can't run ARM64 code: use ./run play --image FILE, or build the preset arm64";
}

} // namespace

int runCommand(int argc, const char *const *argv, std::ostream &out, std::ostream &err) {
    CLI::App app("Plays what happens to devices on a simulated Windows machine that runs the driver.", "myrtelhaven");
    app.require_subcommand(1);
    CLI::App &play = *app.add_subcommand("play", "Play scenarios and compare what they show with what they expect");
    PlayArguments arguments;
    std::string colours = "auto";
    std::string driver;
    std::string image;
    std::string keepFiles;
    play.add_option("path", arguments.paths, "Scenario files, or folders that are walked for *.yaml")->required();
    play.add_flag("--log", arguments.log, "Show the driver's log lines");
    play.add_flag("--json", arguments.json, "Print the results as JSON, for programs");
    play.add_flag("--tables", arguments.tables, "Show the table of every scenario when there are several");
    play.add_flag("--all", arguments.all, "Show the machine's own devices in the table too");
    CLI::Option *module = play.add_option("--driver", driver, "The driver module to load");
    play.add_option("--image", image, "The ARM64 image (.sys) to load, in the command that was built for ARM64")
        ->excludes(module)
        ->check(canRunImage);
    play.add_option("--keep-files", keepFiles,
                    "Keep each machine's \\SystemRoot and registry in a folder below this one");
    play.add_option("--color", colours, "When to colour: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    CLI::App &faults = *app.add_subcommand("faults", "Play scenarios again for each platform call that can fail");
    FaultArguments faultArguments;
    std::string faultDriver;
    faults.add_option("path", faultArguments.paths, "Scenario files, or folders that are walked for *.yaml")
        ->required();
    faults.add_option("--driver", faultDriver, "The driver module to load");
    faults.add_option("--at-most", faultArguments.atMost,
                      "Of each scenario's calls let only so many fail, spread evenly");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error, out, err) == 0 ? exitHeld : exitUnusable;
    }
    if (faults.parsed()) {
        faultArguments.driver = faultDriver;
        return playWithFaults(faultArguments, out, err);
    }
    arguments.options.driver = image.empty() ? driver : image;
    arguments.options.keepFiles = keepFiles;
    arguments.style = styleFor(stdout, colours);
    return playAll(arguments, out, err);
}

} // namespace cli
