#include "command.h"

#include "faults_command.h"
#include "play_command.h"

#include <CLI/CLI.hpp>

#include <ostream>

namespace cli {

int runCommand(int argc, const char *const *argv, std::ostream &out, std::ostream &err) {
    CLI::App app("Plays what happens to devices on a simulated Windows machine that runs the driver.", "myrtelhaven");
    app.require_subcommand(1);
    CLI::App &play = *app.add_subcommand("play", "Play scenarios and compare what they show with what they expect");
    PlayArguments arguments;
    std::string colours = "auto";
    std::string driver;
    std::string keepFiles;
    play.add_option("path", arguments.paths, "Scenario files, or folders that are walked for *.yaml")->required();
    play.add_flag("--log", arguments.log, "Show the driver's log lines");
    play.add_flag("--json", arguments.json, "Print the results as JSON, for programs");
    play.add_flag("--tables", arguments.tables, "Show the table of every scenario when there are several");
    play.add_flag("--all", arguments.all, "Show the machine's own devices in the table too");
    play.add_option("--driver", driver, "The driver module to load");
    play.add_option("--keep-files", keepFiles, "Keep each machine's \\SystemRoot in a folder below this one");
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
    arguments.options.driver = driver;
    arguments.options.keepFiles = keepFiles;
    arguments.style = styleFor(stdout, colours);
    return playAll(arguments, out, err);
}

} // namespace cli
