#include "workers.h"

#include "violation.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace sim {

namespace {

thread_local bool isWorker = false;

} // namespace

struct WorkQueue::State {
    std::mutex mutex;
    std::condition_variable workToDo;
    std::condition_variable idle;
    std::deque<std::function<void()>> items;
    std::vector<std::thread> threads;
    Mode mode = Mode::ordered;
    unsigned threadCount = 1;
    unsigned running = 0;
    bool paused = false;
    bool stopping = false;

    void run() {
        isWorker = true;
        std::unique_lock lock(mutex);
        for (;;) {
            workToDo.wait(lock, [this] { return stopping || (!paused && !items.empty()); });
            if (stopping) {
                return;
            }
            std::function<void()> routine = std::move(items.front());
            items.pop_front();
            ++running;
            lock.unlock();
            routine();
            routine = nullptr;
            lock.lock();
            --running;
            if (items.empty() && running == 0) {
                idle.notify_all();
            }
        }
    }

    /// Threads are made with the first item: most machines never queue one. The lock is held.
    void startThreads() {
        while (threads.size() < threadCount) {
            threads.emplace_back([this] { run(); });
        }
    }

    void stopThreads() {
        std::vector<std::thread> ending;
        {
            std::lock_guard lock(mutex);
            stopping = true;
            ending.swap(threads);
        }
        workToDo.notify_all();
        for (std::thread &thread : ending) {
            thread.join();
        }
        std::lock_guard lock(mutex);
        stopping = false;
    }
};

WorkQueue::WorkQueue() : state_(std::make_unique<State>()) {}

WorkQueue::~WorkQueue() {
    resume();
    drain();
    state_->stopThreads();
}

void WorkQueue::setMode(Mode mode, unsigned threads) {
    state_->stopThreads();
    std::lock_guard lock(state_->mutex);
    state_->mode = mode;
    state_->threadCount = mode == Mode::ordered ? 1 : (threads == 0 ? 1 : threads);
    if (!state_->items.empty()) {
        state_->startThreads();
    }
}

WorkQueue::Mode WorkQueue::mode() const {
    std::lock_guard lock(state_->mutex);
    return state_->mode;
}

void WorkQueue::queue(std::function<void()> routine) {
    {
        std::lock_guard lock(state_->mutex);
        state_->items.push_back(std::move(routine));
        if (!state_->stopping) {
            state_->startThreads();
        }
    }
    state_->workToDo.notify_one();
}

void WorkQueue::drain() {
    if (isWorker) {
        bugCheck("work queue", "WorkQueue::drain", "a worker would wait for itself", nullptr);
    }
    std::unique_lock lock(state_->mutex);
    state_->idle.wait(lock, [this] { return state_->items.empty() && state_->running == 0; });
}

void WorkQueue::pause() {
    std::lock_guard lock(state_->mutex);
    state_->paused = true;
}

void WorkQueue::resume() {
    {
        std::lock_guard lock(state_->mutex);
        state_->paused = false;
    }
    state_->workToDo.notify_all();
}

bool WorkQueue::onWorkerThread() {
    return isWorker;
}

std::size_t WorkQueue::pending() const {
    std::lock_guard lock(state_->mutex);
    return state_->items.size() + state_->running;
}

void WorkQueue::settle() {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->mode == Mode::free || state_->paused || isWorker) {
            return;
        }
    }
    drain();
}

} // namespace sim
