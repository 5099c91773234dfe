// The command with an image of one's own. Runs on ARM64 only.

#include "tests/cli/command_line.h"

#include <gmock/gmock.h>

#include <iterator>

namespace {

using namespace cli::test;
using testing::HasSubstr;

class ImageOption : public CommandTest {
  protected:
    static Outcome play(const std::string &image, const std::string &scenario) {
        return run({"play", "--image", image, scenario});
    }

    const std::string scenario_ = write("s.yaml", R"(name: a stick
policy: {LogLevel: 4, BlockedCompatibleIds: Class_08, AllowedHardwareIds: [], ReadOnlyHardwareIds: []}
devices: {stick: {instance: 'USB\VID_0781&PID_5581\A1', class: USB, hardware-ids: ['USB\VID_0781&PID_5581'],
    compatible-ids: ['USB\Class_08'], expect: {decision: blocked}}}
)");
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
    EXPECT_EQ(play((folder / "none.sys").string(), scenario_).status, 2);
    EXPECT_THAT(play(scenario_, scenario_).err, HasSubstr("is no Windows image"));
}
