#include "interleaving.h"

#include <chrono>
#include <cstdint>
#include <thread>

namespace sim {

std::atomic<bool> interleaving = false;

namespace {

constexpr std::uint64_t yieldEvery = 4;
constexpr std::uint64_t sleepEvery = 256;

/// A sequence of numbers of each thread's own (xorshift), so that asking for one orders nothing between threads.
std::uint64_t nextNumber() {
    static std::atomic<std::uint64_t> threads = 0;
    static thread_local std::uint64_t number =
        0x9E3779B97F4A7C15 * (threads.fetch_add(1, std::memory_order_relaxed) + 1);
    number ^= number << 13;
    number ^= number >> 7;
    number ^= number << 17;
    return number;
}

} // namespace

void setInterleaving(bool on) {
    interleaving.store(on, std::memory_order_relaxed);
}

void letOthersRun() {
    const std::uint64_t number = nextNumber();
    if (number % sleepEvery == 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    } else if (number % yieldEvery == 0) {
        std::this_thread::yield();
    }
}

} // namespace sim
