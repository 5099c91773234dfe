#include "threads.h"

#include <gtest/gtest.h>

#include <exception>
#include <latch>
#include <thread>
#include <vector>

namespace races {

void together(unsigned count, const std::function<void(unsigned)> &work) {
    std::latch begin(count);
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (unsigned index = 0; index < count; ++index) {
        threads.emplace_back([&, index] {
            begin.arrive_and_wait();
            try {
                work(index);
            } catch (const std::exception &problem) {
                ADD_FAILURE() << "thread " << index << ": " << problem.what();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace races
