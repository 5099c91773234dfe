#include "service.h"

#include "myrtelhaven_service.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

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

Service::Service(unsigned processId, unsigned parked, Answer answer)
    : process_(processId), answer_(std::move(answer)), openStatus_(process_.open(controlDeviceName, handle_)) {
    for (unsigned number = 0; number < parked && isOpen(); ++number) {
        parked_.push_back(park());
    }
}

sim::UserProcess::Io Service::park() {
    return begin(IOCTL_WAIT_CALLBACK, MYRTELHAVEN_CALLBACK_BYTES);
}

/// What a pass has at that moment comes back a bit later, with a question or without; what the driver forgot never
/// does.
Service::~Service() {
    if (dead_) {
        return;
    }
    for (const sim::UserProcess::Io &request : parked_) {
        request->cancel();
    }
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    for (const sim::UserProcess::Io &request : parked_) {
        while (!request->isBack() && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        if (request->isBack()) {
            reply(request);
        }
    }
}

void Service::die() {
    dead_ = true;
    process_.die();
}

unsigned Service::work() {
    unsigned replied = 0;
    for (sim::UserProcess::Io &request : parked_) {
        if (request->isBack()) {
            replied += reply(request);
            request = park();
        }
    }
    return replied;
}

/// Number of replies: none to a notification, nor to a request that came back empty.
unsigned Service::reply(const sim::UserProcess::Io &request) {
    if (request->status() != STATUS_SUCCESS) {
        EXPECT_EQ(request->status(), STATUS_CANCELLED);
        return 0;
    }
    EXPECT_EQ(request->information(), MYRTELHAVEN_CALLBACK_BYTES);
    ServiceMessage message{};
    std::memcpy(&message, request->output().data(), MYRTELHAVEN_CALLBACK_BYTES);
    const std::uint32_t answer = message.mode == 0 ? answer_(serialIn(message)) : noReply;
    if (answer == noReply) {
        return 0;
    }
    const CallbackReply said{message.requestId, answer, 0};
    std::vector<std::uint8_t> bytes(sizeof(said));
    std::memcpy(bytes.data(), &said, sizeof(said));
    const auto sent = process_.control(handle_, {IOCTL_CALLBACK_REPLY, std::move(bytes), 0});
    return NT_SUCCESS(sent->status()) ? 1 : 0; // the question may have timed out
}

} // namespace races
