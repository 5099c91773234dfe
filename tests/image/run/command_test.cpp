// The command with an image of one's own. Runs on ARM64 only.

#include "cli/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

Outcome play(const std::string &image, const std::string &scenario) {
    const char *arguments[] = {"myrtelhaven", "play", "--image", image.c_str(), scenario.c_str()};
    std::ostringstream out;
    std::ostringstream err;
    const int status = cli::runCommand(std::size(arguments), arguments, out, err);
    return {status, out.str(), err.str()};
}

class ImageOption : public testing::Test {
  protected:
    ImageOption() {
        fs::create_directories(folder_);
        scenario_ = write("s.yaml", R"(name: a stick
policy: {LogLevel: 4, BlockedCompatibleIds: Class_08, AllowedHardwareIds: [], ReadOnlyHardwareIds: []}
devices: {stick: {instance: 'USB\VID_0781&PID_5581\A1', class: USB, hardware-ids: ['USB\VID_0781&PID_5581'],
    compatible-ids: ['USB\Class_08'], expect: {decision: blocked}}}
)");
    }
    ~ImageOption() override { fs::remove_all(folder_); }

    std::string write(const std::string &name, const std::string &bytes) const {
        std::ofstream(folder_ / name, std::ios::binary) << bytes;
        return (folder_ / name).string();
    }

    const fs::path folder_ = fs::temp_directory_path() / ("image-option-" + std::to_string(getpid()));
    std::string scenario_;
};

std::string bytesOf(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

TEST_F(ImageOption, DecidesWithThatImage) {
    const Outcome played = play(write("copy.sys", bytesOf(DRIVER_IMAGE)), scenario_);
    EXPECT_EQ(played.status, 0) << played.out << played.err;
    EXPECT_THAT(played.out, HasSubstr("blocked"));
}

TEST_F(ImageOption, SaysWhyAnImageCannotBeLoaded) {
    std::string bytes = bytesOf(DRIVER_IMAGE);
    const std::size_t name = bytes.find("FsRtlIsNameInExpression");
    ASSERT_NE(name, std::string::npos);
    bytes[name] = 'X';
    const Outcome played = play(write("unbound.sys", bytes), scenario_);
    EXPECT_EQ(played.status, 2);
    EXPECT_THAT(played.err, HasSubstr("unbound.sys cannot be loaded: it imports ntoskrnl.exe!XsRtlIsNameInExpression, "
                                      "which the simulated machine does not have"));
    bytes.resize(1000);
    EXPECT_THAT(play(write("cut.sys", bytes), scenario_).err, HasSubstr("cut.sys cannot be loaded"));
}

TEST_F(ImageOption, NeedsAnImage) {
    EXPECT_EQ(play((folder_ / "none.sys").string(), scenario_).status, 2);
    EXPECT_THAT(play(scenario_, scenario_).err, HasSubstr("is no Windows image"));
}
