// Preloaded into a test program, this makes threads meet in more orders: around taking and releasing a mutex a thread
// now and then gives way or sleeps. Each thread has a pace of its own, drawn from SHAKE_SEED, so that some threads hang
// behind the others for a whole run. Calls reach it after the sanitizer's own wrappers, so what it does orders nothing
// between threads.

#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

constexpr long longestSleep = 3'000'000; ///< nanoseconds, of a quarter of the threads; the others a twentieth of it
constexpr std::uint64_t paces[] = {15, 60, 400, ~std::uint64_t(0)}; ///< every how many calls a thread is held up

std::uint64_t seed() {
    static const std::uint64_t given = [] {
        const char *text = std::getenv("SHAKE_SEED");
        return text == nullptr ? 1 : std::strtoull(text, nullptr, 10);
    }();
    return given;
}

/// One thread's sequence of numbers (xorshift) and its pace.
class Pace {
  public:
    Pace() {
        const auto thread = static_cast<std::uint64_t>(syscall(SYS_gettid));
        number_ = (seed() * 0x9E3779B97F4A7C15 ^ thread * 0xD1B54A32D192ED03) | 1;
        for (int i = 0; i < 8; ++i) {
            next();
        }
        every_ = paces[next() % 4];
        longest_ = next() % 4 == 0 ? longestSleep : longestSleep / 20;
    }

    void mayHoldUp() {
        if (next() % every_ != 0) {
            return;
        }
        const std::uint64_t how = next();
        if (how % 3 == 0) {
            syscall(SYS_sched_yield);
            return;
        }
        const timespec time{0, static_cast<long>((how >> 8) % static_cast<std::uint64_t>(longest_))};
        syscall(SYS_nanosleep, &time, nullptr);
    }

  private:
    std::uint64_t next() {
        number_ ^= number_ << 13;
        number_ ^= number_ >> 7;
        number_ ^= number_ << 17;
        return number_;
    }

    std::uint64_t number_;
    std::uint64_t every_;
    long longest_;
};

thread_local Pace pace;

using MutexCall = int (*)(pthread_mutex_t *);

MutexCall next(const char *name) {
    return reinterpret_cast<MutexCall>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) {
    static const MutexCall lock = next("pthread_mutex_lock");
    pace.mayHoldUp();
    return lock(mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t *mutex) {
    static const MutexCall unlock = next("pthread_mutex_unlock");
    const int result = unlock(mutex);
    pace.mayHoldUp();
    return result;
}
