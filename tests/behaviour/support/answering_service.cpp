#include "answering_service.h"

#include "myrtelhaven_service.h"

#include <cstring>

namespace behaviour {

AnsweringService::AnsweringService(sim::UserProcess &process, sim::UserProcess::Handle handle, unsigned parked,
                                   Rule rule)
    : process_(process), handle_(handle), rule_(std::move(rule)) {
    for (unsigned number = 0; number < parked; ++number) {
        parked_.push_back(park());
    }
    thread_ = std::thread([this] { work(); });
}

AnsweringService::~AnsweringService() {
    stopping_ = true;
    process_.bell().ring();
    thread_.join();
}

sim::UserProcess::Io AnsweringService::park() {
    return process_.begin(handle_, {IOCTL_WAIT_CALLBACK, {}, MYRTELHAVEN_CALLBACK_BYTES});
}

void AnsweringService::work() {
    while (!stopping_) {
        const std::uint64_t seen = process_.bell().rings();
        look();
        process_.bell().awaitMoreThan(seen);
    }
}

void AnsweringService::look() {
    for (sim::UserProcess::Io &request : parked_) {
        while (request->isBack() && request->status() != STATUS_CANCELLED && !stopping_) {
            const sim::UserProcess::Io shown = std::move(request);
            request = park();
            handle(shown);
        }
    }
}

void AnsweringService::handle(const sim::UserProcess::Io &shown) {
    constexpr unsigned attempts = 3; // a reply may meet a shortage of memory
    if (shown->status() != STATUS_SUCCESS) {
        return;
    }
    const MessageBytes message(shown->output());
    if (message.mode() != 0) {
        ++decisions_;
        return;
    }
    ++questions_;
    CallbackReply reply{0, rule_(message), 0};
    std::memcpy(&reply.requestId, shown->output().data(), sizeof(reply.requestId));
    std::vector<std::uint8_t> bytes(sizeof(reply));
    std::memcpy(bytes.data(), &reply, sizeof(reply));
    for (unsigned attempt = 0; attempt < attempts; ++attempt) {
        if (NT_SUCCESS(process_.control(handle_, {IOCTL_CALLBACK_REPLY, bytes, 0})->status())) {
            return;
        }
    }
}

} // namespace behaviour
