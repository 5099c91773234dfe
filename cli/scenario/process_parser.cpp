#include "process_parser.h"

#include "../../include/myrtelhaven_service.h"
#include "expectation_parser.h"
#include "suggestion.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {
namespace {

constexpr std::uint64_t most32 = 0xFFFFFFFF;
constexpr std::uint64_t mostOutput = 16 * 1024 * 1024;

unsigned processOf(const YamlNode &node) {
    const auto id = node.number("a process id", most32);
    if (id && (*id == 0 || *id == 4)) {
        node.problem("process ids 0 and 4 belong to the system");
    }
    return static_cast<unsigned>(id.value_or(0));
}

void takeProcess(MapReader &reader, unsigned &process) {
    if (const auto node = reader.take("process")) {
        process = processOf(*node);
    }
}

void takeText(MapReader &reader, std::string_view key, std::string &text) {
    if (const auto node = reader.take(key)) {
        text = node->text(key).value_or(std::string());
    }
}

void takeThread(MapReader &reader, unsigned &thread) {
    if (const auto node = reader.take("thread")) {
        thread = static_cast<unsigned>(node->number("thread", most32).value_or(1));
    }
}

void parseCode(const YamlNode &node, MakeRequest &request) {
    if (const auto number = node.plainNumber(); number && *number <= most32) {
        request.code = static_cast<std::uint32_t>(*number);
    } else {
        std::vector<std::string> names;
        for (const ControlCode &known : controlCodes()) {
            names.push_back(known.name);
        }
        const auto name = node.word("code", names);
        for (const ControlCode &known : controlCodes()) {
            request.code = name == known.name ? known.code : request.code;
        }
    }
    for (const ControlCode &known : controlCodes()) {
        request.outputBytes = known.code == request.code ? known.outputBytes : request.outputBytes;
    }
}

void takeSender(MapReader &reader, MakeRequest &request) {
    takeProcess(reader, request.process);
    takeText(reader, "handle", request.handle);
    takeThread(reader, request.thread);
    takeText(reader, "as", request.name);
}

} // namespace

const std::vector<ControlCode> &controlCodes() {
    static const std::vector<ControlCode> codes{
        {"IOCTL_PING", IOCTL_PING, 0},
        {"IOCTL_WAIT_NOTIFICATION", IOCTL_WAIT_NOTIFICATION, sizeof(NotificationInfo)},
        {"IOCTL_WAIT_CALLBACK", IOCTL_WAIT_CALLBACK, MYRTELHAVEN_CALLBACK_BYTES},
        {"IOCTL_CALLBACK_REPLY", IOCTL_CALLBACK_REPLY, 0},
        {"IOCTL_GET_PROCESSED_DEVICES", IOCTL_GET_PROCESSED_DEVICES, 64 * sizeof(ProcessedDeviceInfo)},
        {"IOCTL_GET_NOT_USBHUB_DEVICES", IOCTL_GET_NOT_USBHUB_DEVICES, MYRTELHAVEN_NOT_USBHUB_BYTES},
        {"IOCTL_RESCAN_DEVICES", IOCTL_RESCAN_DEVICES, 0},
        {"IOCTL_RELOAD_LOG_SETTINGS", IOCTL_RELOAD_LOG_SETTINGS, 0},
    };
    return codes;
}

OpenControlDevice parseOpen(const YamlNode &node) {
    OpenControlDevice open;
    if (node.isScalar()) {
        open.process = processOf(node);
        return open;
    }
    MapReader reader(node, "open");
    takeProcess(reader, open.process);
    takeText(reader, "handle", open.handle);
    if (const auto access = reader.take("access")) {
        const auto word = access->word("access", {"read-write", "read", "write", "none"});
        open.access = word == "read"    ? GENERIC_READ
                      : word == "write" ? GENERIC_WRITE
                      : word == "none"  ? FILE_READ_ATTRIBUTES
                                        : GENERIC_READ | GENERIC_WRITE;
    }
    reader.finish();
    if (!reader.has("process")) {
        node.problem("open needs a process");
    }
    return open;
}

CloseControlDevice parseClose(const YamlNode &node) {
    CloseControlDevice close;
    if (node.isScalar()) {
        close.process = processOf(node);
        return close;
    }
    MapReader reader(node, "close");
    takeProcess(reader, close.process);
    takeText(reader, "handle", close.handle);
    reader.finish();
    return close;
}

MakeRequest parseRequest(const YamlNode &node) {
    MakeRequest request;
    if (node.isScalar()) {
        parseCode(node, request);
        return request;
    }
    MapReader reader(node, "request");
    if (const auto code = reader.take("code")) {
        parseCode(*code, request);
    } else {
        node.problem("request needs a code");
    }
    takeSender(reader, request);
    if (const auto input = reader.take("input")) {
        request.input = input->bytes("input").value_or(std::vector<std::uint8_t>());
    }
    if (const auto output = reader.take("output-bytes")) {
        request.outputBytes = static_cast<std::size_t>(output->number("output-bytes", mostOutput).value_or(0));
    }
    reader.finish();
    return request;
}

ReplyToQuestion parseReply(const YamlNode &node) {
    ReplyToQuestion reply;
    reply.request.code = IOCTL_CALLBACK_REPLY;
    MapReader reader(node, "reply");
    takeSender(reader, reply.request);
    takeText(reader, "to", reply.question);
    const auto id = reader.take("id");
    if (id) {
        reply.id = id->number("id", ~std::uint64_t{0}).value_or(0);
    }
    if (const auto answer = reader.take("answer")) {
        const std::uint64_t mode = parseModeNumber(*answer, "answer").value_or(0);
        if (mode > most32) {
            answer->problem(fmt::format("answer must be at most {}, found {}", most32, mode));
        }
        reply.answer = static_cast<std::uint32_t>(mode);
    } else {
        node.problem("reply needs an answer");
    }
    if (id.has_value() != reply.question.empty()) {
        node.problem("reply needs 'to', the request that was shown the question, or an 'id'");
    }
    reader.finish();
    return reply;
}

CancelRequest parseCancel(const YamlNode &node) {
    return {node.text("cancel").value_or(std::string())};
}

EndThread parseEndThread(const YamlNode &node) {
    EndThread end;
    MapReader reader(node, "end-thread");
    takeProcess(reader, end.process);
    if (!reader.has("thread")) {
        node.problem("end-thread needs a thread");
    }
    takeThread(reader, end.thread);
    reader.finish();
    return end;
}

EndProcess parseEndProcess(const YamlNode &node) {
    return {processOf(node)};
}

} // namespace cli
