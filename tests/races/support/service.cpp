#include "service.h"

#include "myrtelhaven_service.h"

#include <gtest/gtest.h>

#include <cstring>

namespace races {

namespace {

std::u16string serialIn(const ServiceMessage &message) {
    std::u16string serial;
    for (const wchar_t unit : message.serialNumber) {
        if (unit == 0) {
            break;
        }
        serial += static_cast<char16_t>(unit);
    }
    return serial;
}

} // namespace

Service::Service(PDEVICE_OBJECT anyDeviceOfStack, unsigned processId, unsigned parked, Answer answer)
    : handle_(anyDeviceOfStack, processId), answer_(std::move(answer)) {
    for (unsigned number = 0; number < parked && isOpen(); ++number) {
        parked_.push_back(park());
    }
}

std::unique_ptr<UserRequest> Service::park() {
    return std::make_unique<UserRequest>(handle_, IOCTL_WAIT_CALLBACK, std::vector<std::uint8_t>{},
                                         MYRTELHAVEN_CALLBACK_BYTES);
}

Service::~Service() {
    for (const auto &request : parked_) {
        request->cancel();
    }
    for (const auto &request : parked_) {
        request->await();
        if (!dead_) {
            reply(*request);
        }
    }
}

void Service::die() {
    dead_ = true;
}

unsigned Service::work() {
    unsigned replied = 0;
    for (auto &request : parked_) {
        if (request->isBack()) {
            replied += reply(*request);
            request = park();
        }
    }
    return replied;
}

/// Number of replies: none to a notification, nor to a request that came back empty.
unsigned Service::reply(const UserRequest &request) {
    if (request.status() != STATUS_SUCCESS) {
        EXPECT_EQ(request.status(), STATUS_CANCELLED);
        return 0;
    }
    EXPECT_EQ(request.information(), MYRTELHAVEN_CALLBACK_BYTES);
    ServiceMessage message{};
    std::memcpy(&message, request.buffer().data(), MYRTELHAVEN_CALLBACK_BYTES);
    const std::uint32_t answer = message.mode == 0 ? answer_(serialIn(message)) : noReply;
    if (answer == noReply) {
        return 0;
    }
    const CallbackReply said{message.requestId, answer, 0};
    std::vector<std::uint8_t> bytes(sizeof(said));
    std::memcpy(bytes.data(), &said, sizeof(said));
    UserRequest sent(handle_, IOCTL_CALLBACK_REPLY, std::move(bytes), 0);
    sent.await();
    return NT_SUCCESS(sent.status()) ? 1 : 0; // the question may have timed out
}

} // namespace races
