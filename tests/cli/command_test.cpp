// The command line: exit statuses, files and folders, what goes where.

#include "cli/play_command.h"
#include "cli/scenario/problem.h"
#include "command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <sstream>

using namespace cli;
using namespace cli::test;

namespace fs = std::filesystem;

namespace {

using Command = CommandTest;

const std::string good = "name: good\nsteps:\n  - expect: {loaded: false}\n";
const std::string bad = "name: bad\nsteps:\n  - expect: {loaded: true}\n";
const std::string broken = "nam: broken\n";

} // namespace

TEST_F(Command, exitStatusTellsWhatHappened) {
    EXPECT_EQ(run({"play", write("good.yaml", good)}).status, 0);
    EXPECT_EQ(run({"play", write("bad.yaml", bad)}).status, 1);
    EXPECT_EQ(run({"play", write("broken.yaml", broken)}).status, 2);
    EXPECT_EQ(run({"play", (folder / "missing.yaml").string()}).status, 2);
    EXPECT_EQ(run({"play"}).status, 2);
    EXPECT_EQ(run({"plai"}).status, 2);
    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"play", "--colour", "red", "x"}).status, 2);
    EXPECT_EQ(run({"--help"}).status, 0);
}

TEST_F(Command, problemsOfFilesGoToStandardError) {
    const std::string file = write("broken.yaml", broken);
    const Outcome result = run({"play", file});
    EXPECT_EQ(result.err, file + ":1: unknown key 'nam' in scenario (did you mean 'name'?)\n");
    EXPECT_EQ(result.out, "");
    const std::string missing = (folder / "missing.yaml").string();
    EXPECT_EQ(run({"play", missing}).err, missing + ": there is no such file or folder\n");
    EXPECT_EQ(run({"play", folder.string() + "/x/.."}).status, 2);
}

TEST_F(Command, aFileThatCannotBeUsedDoesNotStopTheOthers) {
    write("a-broken.yaml", broken);
    write("b-bad.yaml", bad);
    write("c-good.yaml", good);
    const Outcome result = run({"play", folder.string()});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.out.find("✗ " + (folder / "b-bad.yaml").string() + "  bad (1 not met)\n"), std::string::npos);
    EXPECT_NE(result.out.find("✓ " + (folder / "c-good.yaml").string() + "  good\n"), std::string::npos);
    EXPECT_NE(result.out.find("1 of 2 scenarios held, 1 could not be used\n"), std::string::npos);
}

TEST_F(Command, foldersAreWalkedInOrderAndLibrariesLeftOut) {
    write("z.yaml", good);
    write("a/b.yaml", good);
    write("devices/sticks.yaml", "stick: {instance: a}\n");
    write("notes.txt", "no scenario");
    EXPECT_EQ(scenarioFiles(folder.string()),
              (std::vector<std::string>{(folder / "a/b.yaml").string(), (folder / "z.yaml").string()}));
    fs::create_directory(folder / "empty");
    EXPECT_THROW(scenarioFiles((folder / "empty").string()), UnusableFile);
}

TEST_F(Command, takesDevicesFromTheNearestLibrary) {
    write("devices/sticks.yaml", R"(
stick:
  instance: USB\S\1
  class: USB
  hardware-ids: [USB\S]
  usb: {vendor-id: 1, serial: LIBRARY, product: kept}
)");
    const std::string file = write("inner/deeper/s.yaml", R"(
devices:
  mine:
    use: stick
    instance: USB\S\2
    usb: {serial: MINE}
    compatible-ids: [USB\X]
    expect: {message: {vendor-id: 1, serial: MINE, device-name: kept}}
)");
    const Outcome result = run({"play", file});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_F(Command, problemsOfTheLibraryAreNamedThere) {
    const std::string library = write("devices/sticks.yaml", "stick: {instanze: USB\\S\\1}\n");
    const Outcome result = run({"play", write("s.yaml", "devices: {a: {use: stick}}\n")});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("sticks.yaml:1: unknown key 'instanze' in device 'stick' (did you mean 'instance'?)"),
              std::string::npos)
        << result.err;
}

TEST_F(Command, problemsOfRegFilesAreNamedThere) {
    write("p.reg", "Windows Registry Editor Version 5.00\n\nnonsense\n");
    const Outcome result = run({"play", write("s.yaml", "reg-files: [p.reg]\n")});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, (folder / "p.reg").string() + ":3: expected a key, a value or a comment, found 'nonsense'\n");
}

TEST_F(Command, jsonIsAListOfFiles) {
    write("bad.yaml", bad);
    write("broken.yaml", broken);
    const Outcome result = run({"play", "--json", folder.string()});
    EXPECT_EQ(result.status, 2);
    const auto json = nlohmann::json::parse(result.out);
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["name"], "bad");
    EXPECT_EQ(json[0]["held"], false);
    EXPECT_EQ(json[1]["usable"], false);
}

TEST_F(Command, jsonTellsEveryProblem) {
    const std::string file = write("broken.yaml", "nam: x\ndevices: {a: {class: USB}}\n");
    const Outcome result = run({"play", "--json", file, (folder / "missing.yaml").string()});
    EXPECT_EQ(result.status, 2);
    const auto json = nlohmann::json::parse(result.out);
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["problems"][0]["message"], "there is no such file or folder");
    EXPECT_EQ(json[1]["problems"][0]["line"], 1);
    EXPECT_EQ(json[1]["problems"][1]["line"], 2);
    EXPECT_NE(result.err.find("broken.yaml:2: a device needs an 'instance'"), std::string::npos) << result.err;
}

TEST_F(Command, filesThatCannotBeReadSayWhy) {
    fs::create_symlink(folder / "gone", folder / "dangling.yaml");
    EXPECT_EQ(run({"play", folder.string()}).err,
              (folder / "dangling.yaml").string() + ": cannot be read: No such file or directory\n");
    const std::string huge = write("huge.yaml", "");
    fs::resize_file(huge, 3u << 30);
    EXPECT_EQ(run({"play", huge}).err, huge + ": is larger than 64 MiB\n");
    EXPECT_EQ(run({"play", "/dev/zero"}).err, "/dev/zero: is larger than 64 MiB\n");
    const std::string asksForFolder = write("s.yaml", "\nreg-files: [.]\n");
    EXPECT_EQ(run({"play", asksForFolder}).err,
              asksForFolder + ":2: " + (folder / ".").string() + " cannot be read: Is a directory\n");
    fs::create_directories(folder / "inner/devices/odd.yaml");
    const std::string inner = write("inner/s.yaml", "devices: {a: {use: x}}\n");
    EXPECT_NE(run({"play", inner}).err.find("odd.yaml: cannot be read: Is a directory"), std::string::npos);
}

TEST_F(Command, controlCharactersOfNamesAreShownAndNotSentToTheTerminal) {
    const std::string file = write("s.yaml", "steps:\n  - \"\\e[31mred\\0\"\n");
    EXPECT_EQ(run({"play", file}).err, file + ":2: unknown step '\u241B[31mred\u2400'\n");
    const std::string odd =
        write("t.yaml", "name: \"\\e[2J\"\ndevices:\n  \"\\e[31m\": {instance: \"USB\\\\A\\\\1\", class: USB, "
                        "expect: {mode: \"allowed\"}}\nsteps: [plug]\n");
    const Outcome played = run({"play", odd});
    EXPECT_EQ(played.out.find('\x1b'), std::string::npos) << played.out;
    EXPECT_EQ(played.err.find('\x1b'), std::string::npos) << played.err;
}

TEST_F(Command, resultsThatCannotBeWrittenAreAnError) {
    const std::string file = write("good.yaml", good);
    std::ofstream full("/dev/full");
    std::ostringstream err;
    const char *arguments[] = {"myrtelhaven", "play", file.c_str()};
    EXPECT_EQ(runCommand(3, arguments, full, err), 2);
    EXPECT_EQ(err.str(), "the results could not be written\n");
}

TEST_F(Command, keepsFilesOnRequest) {
    const std::string file = write("s.yaml", "clock: 2024-03-07 9:05:01\npolicy: {LogLevel: 4}\nsteps: [load]\n");
    EXPECT_EQ(run({"play", "--keep-files", (folder / "kept").string(), file}).status, 0);
    EXPECT_TRUE(fs::exists(folder / "kept/s/Temp/com.tarvenholt.myrtelhaven-driver-1709802301.log"));
    std::ostringstream registry;
    registry << std::ifstream(folder / "kept/s/registry.reg").rdbuf();
    EXPECT_THAT(registry.str(), testing::AllOf(testing::StartsWith("Windows Registry Editor Version 5.00\n"),
                                               testing::HasSubstr("\"LogLevel\"=hex(4):04,00,00,00\n")));
}

TEST_F(Command, leavesNothingInTheTemporaryFolder) {
    const std::string file = write("good.yaml", good);
    const fs::path temporary = folder / "temporary";
    fs::create_directory(temporary);
    const char *before = std::getenv("TMPDIR");
    const std::string restored = before == nullptr ? "" : before;
    setenv("TMPDIR", temporary.c_str(), 1);
    EXPECT_EQ(run({"play", file}).status, 0);
    EXPECT_EQ(run({"faults", "--at-most", "3", file}).status, 0);
    before == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", restored.c_str(), 1);
    EXPECT_TRUE(fs::is_empty(temporary));
}

TEST_F(Command, anImageMustBeOneThatCanRunHere) {
    const std::string file = write("s.yaml", good);
    const Outcome missing = run({"play", "--image", (folder / "none.sys").string(), file});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, testing::HasSubstr("there is no file " + (folder / "none.sys").string()));
    const Outcome text = run({"play", "--image", file, file});
    EXPECT_EQ(text.status, 2);
    EXPECT_THAT(text.err, testing::HasSubstr(file + " is no Windows image"));
    EXPECT_EQ(run({"play", "--image", write("cut.sys", "MZ"), file}).status, 2);
}

TEST_F(Command, whatTheMachineRefusesIsAnUnusableFile) {
    const std::string file = write("s.yaml", "hub-drivers: [NOHUB]\ndevices: {a: {instance: USB\\A\\1, class: USB}}\n");
    const Outcome result = run({"play", file});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.substr(0, file.size() + 2), file + ": ");
}
