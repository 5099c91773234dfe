// The control codes and message layouts that docs/service-protocol.md tells are the driver's.

#include "protocol_document.h"
#include "service_test.h"

#include <cstddef>

namespace behaviour {
namespace {

using document::numberOf;
using document::tableAfter;

struct LayoutField {
    std::string name;
    std::size_t offset;
    std::size_t bytes;
    bool operator==(const LayoutField &) const = default;
};

void PrintTo(const LayoutField &field, std::ostream *out) {
    *out << field.offset << " " << field.bytes << " " << field.name;
}

#define LAYOUT_FIELD(message, field)                                                                                   \
    LayoutField {                                                                                                      \
        #field, offsetof(message, field), sizeof(static_cast<message *>(nullptr)->field)                               \
    }

void expectLayout(const std::string &message, std::size_t bytes, const std::vector<LayoutField> &fields) {
    std::vector<LayoutField> told;
    for (const auto &row : tableAfter("### `" + message + "`, " + std::to_string(bytes) + " bytes")) {
        told.push_back({row.at(2), numberOf(row[0]).value(), numberOf(row[1]).value()});
    }
    EXPECT_EQ(told, fields);
}

TEST(ProtocolTables, TellEveryFieldOfTheMessages) {
    expectLayout("ServiceMessage", sizeof(ServiceMessage),
                 {LAYOUT_FIELD(ServiceMessage, requestId), LAYOUT_FIELD(ServiceMessage, deviceType),
                  LAYOUT_FIELD(ServiceMessage, mode), LAYOUT_FIELD(ServiceMessage, vendorId),
                  LAYOUT_FIELD(ServiceMessage, productId), LAYOUT_FIELD(ServiceMessage, release),
                  LAYOUT_FIELD(ServiceMessage, serialNumber), LAYOUT_FIELD(ServiceMessage, classCode),
                  LAYOUT_FIELD(ServiceMessage, subclassCode), LAYOUT_FIELD(ServiceMessage, protocolCode),
                  LAYOUT_FIELD(ServiceMessage, deviceName), LAYOUT_FIELD(ServiceMessage, manufacturer),
                  LAYOUT_FIELD(ServiceMessage, interfaceNumber), LAYOUT_FIELD(ServiceMessage, interfaceCount),
                  LAYOUT_FIELD(ServiceMessage, filterable), LAYOUT_FIELD(ServiceMessage, ruleType),
                  LAYOUT_FIELD(ServiceMessage, reserved), LAYOUT_FIELD(ServiceMessage, description),
                  LAYOUT_FIELD(ServiceMessage, identity)});
    expectLayout("CallbackReply", sizeof(CallbackReply),
                 {LAYOUT_FIELD(CallbackReply, requestId), LAYOUT_FIELD(CallbackReply, answer),
                  LAYOUT_FIELD(CallbackReply, reserved)});
    expectLayout("NotificationInfo", sizeof(NotificationInfo),
                 {LAYOUT_FIELD(NotificationInfo, mode), LAYOUT_FIELD(NotificationInfo, description),
                  LAYOUT_FIELD(NotificationInfo, identity)});
    expectLayout("ProcessedDeviceInfo", sizeof(ProcessedDeviceInfo),
                 {LAYOUT_FIELD(ProcessedDeviceInfo, valid), LAYOUT_FIELD(ProcessedDeviceInfo, mode),
                  LAYOUT_FIELD(ProcessedDeviceInfo, vendorId), LAYOUT_FIELD(ProcessedDeviceInfo, productId),
                  LAYOUT_FIELD(ProcessedDeviceInfo, ruleType), LAYOUT_FIELD(ProcessedDeviceInfo, serialNumber),
                  LAYOUT_FIELD(ProcessedDeviceInfo, deviceName), LAYOUT_FIELD(ProcessedDeviceInfo, manufacturer)});
}

#undef LAYOUT_FIELD

/// A row of the table of control codes.
struct ToldCode {
    std::string name;
    std::uint32_t code = 0;
    std::uint32_t function = 0;
    std::string method;
    std::string access;
    std::optional<std::uint32_t> inputBytes; ///< the least; nothing where none is taken
    std::optional<std::uint32_t> outputBytes;
};

std::vector<ToldCode> toldCodes() {
    std::vector<ToldCode> codes;
    for (const auto &row : tableAfter("## The eight control codes")) {
        codes.push_back({row.at(0), numberOf(row.at(1)).value(), numberOf(row.at(2)).value(), row.at(3), row.at(4),
                         numberOf(row.at(5)), numberOf(row.at(6))});
    }
    return codes;
}

TEST(ProtocolTables, TellEveryControlCode) {
    std::map<std::string, std::uint32_t> told;
    for (const ToldCode &code : toldCodes()) {
        SCOPED_TRACE(code.name);
        told[code.name] = code.code;
        EXPECT_EQ(code.code >> 16, 0x22U);
        EXPECT_EQ(code.code >> 2 & 0xFFF, code.function);
        EXPECT_EQ(code.code & 3, code.method == "buffered" ? 0U : 3U);
        EXPECT_TRUE(code.method == "buffered" || code.method == "neither");
    }
    EXPECT_EQ(told,
              (std::map<std::string, std::uint32_t>{{"IOCTL_WAIT_NOTIFICATION", IOCTL_WAIT_NOTIFICATION},
                                                    {"IOCTL_WAIT_CALLBACK", IOCTL_WAIT_CALLBACK},
                                                    {"IOCTL_GET_PROCESSED_DEVICES", IOCTL_GET_PROCESSED_DEVICES},
                                                    {"IOCTL_GET_NOT_USBHUB_DEVICES", IOCTL_GET_NOT_USBHUB_DEVICES},
                                                    {"IOCTL_PING", IOCTL_PING},
                                                    {"IOCTL_CALLBACK_REPLY", IOCTL_CALLBACK_REPLY},
                                                    {"IOCTL_RESCAN_DEVICES", IOCTL_RESCAN_DEVICES},
                                                    {"IOCTL_RELOAD_LOG_SETTINGS", IOCTL_RELOAD_LOG_SETTINGS}}));
}

class ToldCodes : public ServiceTest {
  protected:
    NTSTATUS sendThrough(sim::UserProcess::Handle file, const ToldCode &code) {
        const Request made = service.begin(
            file, {code.code, std::vector<std::uint8_t>(code.inputBytes.value_or(0)), code.outputBytes.value_or(0)});
        return made->isBack() ? made->status() : STATUS_PENDING;
    }
    /// A request with buffers of these sizes; a device is plugged, so that something meets it when it is parked.
    NTSTATUS sendSized(const ToldCode &code, std::size_t inputBytes, std::size_t outputBytes) {
        const Request made = send(code.code, outputBytes, std::vector<std::uint8_t>(inputBytes));
        if (made->isBack()) {
            return made->status();
        }
        const Request next = waitForNotification(); // takes what a buffer is too small for
        plug(mouse());
        unplug("mouse");
        next->cancel();
        made->await();
        return made->status();
    }
};

TEST_F(ToldCodes, NeedTheRightThatIsTold) {
    startWithService();
    sim::UserProcess::Handle reader = 0;
    sim::UserProcess::Handle writer = 0;
    ASSERT_EQ(service.open(linkName, reader, GENERIC_READ), STATUS_SUCCESS);
    ASSERT_EQ(service.open(linkName, writer, GENERIC_WRITE), STATUS_SUCCESS);
    for (const ToldCode &code : toldCodes()) {
        SCOPED_TRACE(code.name);
        const bool reads = code.access == "read";
        EXPECT_TRUE(reads || code.access == "write");
        EXPECT_NE(sendThrough(reads ? reader : writer, code), STATUS_ACCESS_DENIED);
        EXPECT_EQ(sendThrough(reads ? writer : reader, code), STATUS_ACCESS_DENIED);
    }
}

TEST_F(ToldCodes, NeedBuffersAsLargeAsTold) {
    startWithService(0);
    unsigned sizes = 0;
    for (const ToldCode &code : toldCodes()) {
        SCOPED_TRACE(code.name);
        const std::size_t input = code.inputBytes.value_or(0);
        const std::size_t output = code.outputBytes.value_or(0);
        EXPECT_NE(sendSized(code, input, output), STATUS_BUFFER_TOO_SMALL);
        if (input + output > 0) {
            ++sizes;
            EXPECT_EQ(sendSized(code, input - (input > 0), output - (output > 0)), STATUS_BUFFER_TOO_SMALL);
        }
    }
    EXPECT_EQ(sizes, 5U);
}

} // namespace
} // namespace behaviour
