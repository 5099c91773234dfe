#include "control_codes.h"

namespace fuzz {

namespace {

constexpr std::size_t listedDeviceBytes = 788;

/// Codes ask for access with bits 14 (read) and 15 (write).
bool mayReachTheDriver(const SentCode &sent) {
    return ((sent.code & 0x4000) == 0 || sent.canRead) && ((sent.code & 0x8000) == 0 || sent.canWrite);
}

std::string told(const AnsweredCode &answer) {
    return "status " + std::to_string(answer.status) + ", information " + std::to_string(answer.information);
}

std::optional<std::string> expect(const AnsweredCode &answer, std::uint32_t status, std::size_t information = 0) {
    if (answer.status == status && answer.information == information) {
        return std::nullopt;
    }
    return told(answer) + " instead of " + told({status, information});
}

std::optional<std::string> faultOfParked(const ControlCode &code, const SentCode &sent, const AnsweredCode &answer) {
    if (answer.status == cancelled) {
        return sent.cancelled ? expect(answer, cancelled) : "cancelled by nobody";
    }
    return sent.outputBytes < code.leastOutput ? expect(answer, bufferTooSmall)
                                               : expect(answer, success, code.leastOutput);
}

std::optional<std::string> faultOfListing(const SentCode &sent, const AnsweredCode &answer) {
    const std::size_t room = sent.outputBytes / listedDeviceBytes * listedDeviceBytes;
    if (answer.status == success && answer.information <= room && answer.information % listedDeviceBytes == 0) {
        return std::nullopt;
    }
    return expect(answer, bufferTooSmall, room);
}

std::optional<std::string> faultOfText(const SentCode &sent, const AnsweredCode &answer) {
    if (answer.status == success && answer.information % 2 == 0 && answer.information + 2 <= sent.outputBytes) {
        return std::nullopt;
    }
    return "a text with " + told(answer);
}

} // namespace

const std::array<ControlCode, controlCodeCount> controlCodes = {{
    {0x224004, "wait for a notification", 0, 404, true},
    {0x226008, "wait for a question", 0, 1073, true},
    {0x226014, "list devices", 0, 788, false},
    {0x226018, "read the text", 0, 20480, false},
    {0x228003, "ping", 0, 0, false},
    {0x22A004, "reply", 16, 0, false},
    {0x22A00F, "rescan", 0, 0, false},
    {0x22A013, "reload the log settings", 0, 0, false},
}};

const ControlCode *knownCode(std::uint32_t code) {
    for (const ControlCode &known : controlCodes) {
        if (known.code == code) {
            return &known;
        }
    }
    return nullptr;
}

std::optional<std::string> faultOf(const SentCode &sent, const AnsweredCode &answer) {
    if (!sent.handleOpen) {
        return expect(answer, invalidHandle);
    }
    if (!mayReachTheDriver(sent)) {
        return expect(answer, accessDenied);
    }
    const ControlCode *code = knownCode(sent.code);
    if (code == nullptr) {
        return expect(answer, invalidDeviceRequest);
    }
    if (code->parked) {
        return faultOfParked(*code, sent, answer);
    }
    if (sent.inputBytes < code->leastInput || sent.outputBytes < code->leastOutput) {
        return expect(answer, bufferTooSmall);
    }
    switch (sent.code) {
    case 0x226014:
        return faultOfListing(sent, answer);
    case 0x226018:
        return faultOfText(sent, answer);
    case 0x228003:
        return expect(answer, success);
    case 0x22A004: // no request leaves a queue while power is off
        if (answer.information == 0 && (answer.status == success || answer.status == noMoreEntries ||
                                        (sent.powerOff && answer.status == deviceBusy))) {
            return std::nullopt;
        }
        return "a reply with " + told(answer);
    default: // their statuses depend on more than the request
        return answer.information == 0 ? std::nullopt : std::optional<std::string>("with " + told(answer));
    }
}

} // namespace fuzz
