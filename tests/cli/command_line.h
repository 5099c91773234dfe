#pragma once

#include "cli/command.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace cli::test {

/// What the command printed and ended with.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

/// Runs the command in this process.
inline Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "myrtelhaven");
    std::vector<const char *> pointers;
    for (const std::string &argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    Outcome result;
    result.status = runCommand(static_cast<int>(pointers.size()), pointers.data(), out, err);
    result.out = out.str();
    result.err = err.str();
    return result;
}

/// Files for the command, in a folder that goes with the test.
class CommandTest : public testing::Test {
  protected:
    CommandTest()
        : // The device library of a folder is read once, so each test has a folder of its own.
          folder(std::filesystem::temp_directory_path() /
                 (std::string("command-test-") + testing::UnitTest::GetInstance()->current_test_info()->name())) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
    }
    ~CommandTest() override { std::filesystem::remove_all(folder); }

    std::string write(const std::string &name, const std::string &bytes) {
        std::filesystem::create_directories((folder / name).parent_path());
        std::ofstream(folder / name, std::ios::binary) << bytes;
        return (folder / name).string();
    }

    const std::filesystem::path folder;
};

} // namespace cli::test
