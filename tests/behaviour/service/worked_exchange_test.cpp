// The exchange that docs/service-protocol.md shows in bytes takes place, and each byte is as shown.

#include "protocol_document.h"
#include "service_test.h"

#include "tests/behaviour/support/log_lines.h"

#include <regex>

namespace behaviour {
namespace {

using document::HexDump;
using document::hexDump;
using document::ShownField;

constexpr std::size_t requestIdBytes = 8;

class WorkedExchange : public ServiceTest {
  protected:
    /// Byte for byte but for the request id, which no document can tell.
    static void expectAsShown(const HexDump &shown, std::vector<std::uint8_t> bytes, bool beginsWithId) {
        ASSERT_EQ(bytes.size(), shown.bytes.size());
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            const bool ofId = beginsWithId && at < requestIdBytes;
            ASSERT_EQ(shown.bytes[at].has_value(), !ofId) << "only the request id is not told; offset " << at;
            if (!ofId) {
                EXPECT_EQ(unsigned{bytes[at]}, unsigned{*shown.bytes[at]}) << "offset " << at;
            }
        }
    }
    static std::u16string textAt(const HexDump &shown, std::size_t at) {
        std::u16string text;
        for (; at + 1 < shown.bytes.size(); at += 2) {
            const char16_t unit = static_cast<char16_t>(*shown.bytes[at] | *shown.bytes[at + 1] << 8);
            if (unit == 0) {
                break;
            }
            text += unit;
        }
        return text;
    }
    static std::uint32_t numberAt(const HexDump &shown, const ShownField &field) {
        std::uint32_t number = 0;
        for (std::size_t index = field.bytes; index-- > 0;) {
            number = number << 8 | *shown.bytes[field.offset + index];
        }
        return number;
    }
    /// What stands beside the bytes says the same as they do, and each begins where a field of the message does.
    static void expectExplained(const HexDump &shown, const std::string &message) {
        std::vector<std::size_t> offsets;
        for (const auto &row : document::tableAfter("### `" + message + "`")) {
            offsets.push_back(document::numberOf(row[0]).value());
        }
        static const std::regex quoted("\"(.*)\"");
        static const std::regex number("\\b(0x[0-9A-F]+|[0-9]+)\\b");
        std::size_t told = 0;
        for (const ShownField &field : shown.fields) {
            SCOPED_TRACE(field.meaning);
            EXPECT_THAT(offsets, testing::Contains(field.offset));
            std::smatch found;
            if (std::regex_search(field.meaning, found, quoted)) {
                EXPECT_EQ(lines::utf8(textAt(shown, field.offset)), found[1]);
                ++told;
            } else if (std::regex_search(field.meaning, found, number)) {
                ASSERT_LE(field.bytes, 4U);
                EXPECT_EQ(numberAt(shown, field), document::numberOf(found[1]));
                ++told;
            }
        }
        EXPECT_GT(told, 0U);
    }
};

TEST_F(WorkedExchange, TakesPlaceAsTheGuideShowsIt) {
    startWithService();
    const HexDump questionShown = hexDump("question");
    const HexDump replyShown = hexDump("reply");
    const HexDump notificationShown = hexDump("notification");
    const HexDump listingShown = hexDump("listing");

    const Request question = waitForCallback();
    auto plugged = plugging(flashDrive());
    question->await();
    EXPECT_EQ(question->status(), STATUS_SUCCESS);
    expectAsShown(questionShown, question->received(), true);

    const Request told = waitForNotification();
    std::vector<std::uint8_t> answer(question->output().begin(), question->output().begin() + requestIdBytes);
    for (std::size_t at = requestIdBytes; at < replyShown.bytes.size(); ++at) {
        answer.push_back(replyShown.bytes[at].value());
    }
    expectAsShown(replyShown, answer, true);
    const Request replied = send(IOCTL_CALLBACK_REPLY, 0, answer);
    replied->await();
    EXPECT_EQ(replied->status(), STATUS_SUCCESS);
    EXPECT_EQ(replied->information(), 0U);

    told->await();
    EXPECT_TRUE(plugged.get()->started());
    EXPECT_EQ(told->status(), STATUS_SUCCESS);
    expectAsShown(notificationShown, told->received(), false);

    const Request listed = send(IOCTL_GET_PROCESSED_DEVICES, 10 * sizeof(ProcessedDeviceInfo));
    EXPECT_EQ(listed->status(), STATUS_SUCCESS);
    expectAsShown(listingShown, listed->received(), false);
}

TEST_F(WorkedExchange, IsExplainedFieldByField) {
    expectExplained(hexDump("question"), "ServiceMessage");
    expectExplained(hexDump("reply"), "CallbackReply");
    expectExplained(hexDump("notification"), "NotificationInfo");
    expectExplained(hexDump("listing"), "ProcessedDeviceInfo");
}

} // namespace
} // namespace behaviour
