#include "channel_operations.h"

#include "channel_room.h"
#include "control/service_channel.h"
#include "ping_pong.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr std::uint32_t blocked = 1;
constexpr std::uint32_t allowed = 2;

/// A thread of the service that answers every question. It parks the next request before it replies, as a service does.
class AnsweringThread {
  public:
    explicit AnsweringThread(ChannelRoom &room) : room_(room), parked_(room.parkForQuestion()) {
        thread_ = std::thread([this] { answer(); });
    }
    ~AnsweringThread() {
        room_.service.die(); // what is parked comes back cancelled
        thread_.join();
    }
    AnsweringThread(const AnsweringThread &) = delete;
    AnsweringThread &operator=(const AnsweringThread &) = delete;

  private:
    void answer() {
        for (;;) {
            parked_->await();
            if (parked_->status() != STATUS_SUCCESS) {
                return;
            }
            const auto shown = std::move(parked_);
            parked_ = room_.parkForQuestion();
            std::uint64_t requestId = 0;
            std::memcpy(&requestId, shown->output().data(), sizeof(requestId));
            room_.reply(requestId, allowed);
        }
    }

    ChannelRoom &room_;
    sim::UserProcess::Io parked_;
    std::thread thread_;
};

void requireAllowed(std::uint32_t answer) {
    if (answer != allowed) {
        throw std::runtime_error("the question was not answered");
    }
}

/// A filter's thread asks, the service's thread answers.
std::function<void()> roundTrip() {
    struct Asked {
        ChannelRoom room{1};
        AnsweringThread service{room};
        ServiceMessage message = messageOfDevice(0);
    };
    auto asked = std::make_shared<Asked>();
    return [asked] {
        ULONG answer = 0;
        if (!NT_SUCCESS(sendCallback(asked->room.control(), asked->message, answer))) {
            throw std::runtime_error("the question failed");
        }
        requireAllowed(answer);
    };
}

std::function<void()> pingPong() {
    auto other = std::make_shared<PingPong>();
    return [other, message = messageOfDevice(0)] { requireAllowed(other->ask(message)); };
}

/// A decision meets the first of many parked requests, and the service parks that one again.
std::function<void()> pairing(unsigned parked) {
    auto room = std::make_shared<ChannelRoom>();
    for (unsigned number = 0; number < parked; ++number) {
        room->parkForNotification();
    }
    return [room, message = messageOfDevice(blocked)]() mutable {
        if (!NT_SUCCESS(sendNotification(room->control(), message))) {
            throw std::runtime_error("the notification failed");
        }
        room->parkForNotification();
    };
}

std::function<void()> listing(unsigned devices) {
    auto room = std::make_shared<ChannelRoom>(0, devices);
    return [room] { room->list(); };
}

/// No decision differs: every device is judged again and none has its port cycled.
std::function<void()> rescan(unsigned devices, unsigned rules) {
    auto room = std::make_shared<ChannelRoom>(0, devices);
    room->setRules(rules);
    return [room] { room->rescan(); };
}

} // namespace

void addChannelOperations(std::vector<Operation> &operations) {
    operations.push_back({"callback/roundtrip", roundTrip, 0, 1, ""});
    operations.push_back({"callback/pingpong", pingPong, 0, 1, ""});
    for (const unsigned parked : {1u, 100u, 10'000u}) {
        operations.push_back({fmt::format("pairing/{}", parked), [=] { return pairing(parked); }, 100, 1, ""});
    }
    for (const unsigned devices : {10u, 100u, 1'000u}) {
        operations.push_back({fmt::format("listing/{}", devices), [=] { return listing(devices); }, 1, 1, ""});
    }
    for (const unsigned devices : {10u, 100u}) {
        operations.push_back({fmt::format("rescan/{}x10", devices), [=] { return rescan(devices, 10); }, 1, 1, ""});
    }
    operations.push_back({"rescan/1000x1000", [] { return rescan(1'000, 1'000); }, 0, 1, "", true});
}

} // namespace bench
