#include "simulator/machine/machine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

namespace sim::machinetest {
namespace {

/// Where \SystemRoot of a machine with these options was. It has been switched off since.
std::filesystem::path systemRootOf(const MachineOptions &options) {
    std::optional<Machine> machine(options);
    std::filesystem::path root = machine->kernel().files.systemRoot();
    EXPECT_TRUE(std::filesystem::is_directory(root / "Temp"));
    machine.reset();
    return root;
}

TEST(SystemRoot, IsATemporaryFolderThatGoesWithTheMachine) {
    EXPECT_FALSE(std::filesystem::exists(systemRootOf({})));
}

TEST(SystemRoot, StaysWhenItsFilesAreToBeKept) {
    MachineOptions options;
    options.keepFiles = true;
    const std::filesystem::path root = systemRootOf(options);
    EXPECT_TRUE(std::filesystem::is_directory(root / "Temp"));
    std::filesystem::remove_all(root);
}

TEST(SystemRoot, OfACallerStays) {
    MachineOptions options;
    options.systemRoot = std::filesystem::temp_directory_path() / "system-root-of-a-caller";
    const std::filesystem::path root = systemRootOf(options);
    EXPECT_EQ(root, options.systemRoot);
    EXPECT_TRUE(std::filesystem::is_directory(root / "Temp"));
    std::filesystem::remove_all(root);
}

} // namespace
} // namespace sim::machinetest
