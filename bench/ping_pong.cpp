#include "ping_pong.h"

#include <cstring>

namespace bench {

PingPong::PingPong() : thread_([this] { work(); }) {}

PingPong::~PingPong() {
    {
        const std::lock_guard lock(mutex_);
        turn_ = Turn::nobody;
    }
    changed_.notify_all();
    thread_.join();
}

std::uint32_t PingPong::ask(const ServiceMessage &message) {
    std::unique_lock lock(mutex_);
    std::memcpy(&message_, &message, sizeof(message));
    turn_ = Turn::answerer;
    changed_.notify_all();
    changed_.wait(lock, [this] { return turn_ == Turn::asker; });
    return answer_;
}

void PingPong::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return turn_ != Turn::asker; });
        if (turn_ == Turn::nobody) {
            return;
        }
        answer_ = message_.mode + 2;
        turn_ = Turn::asker;
        changed_.notify_all();
    }
}

} // namespace bench
