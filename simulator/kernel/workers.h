#pragma once

#include <ntifs.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace sim {

/// System worker threads (real host threads) that run work items. Ordered by default: one thread, first in first out,
/// so that logs compare byte for byte. Free: several threads, items overlap and finish in any order.
class WorkQueue {
  public:
    enum class Mode { ordered, free };
    WorkQueue();
    ~WorkQueue(); ///< waits for queued items, ends the threads

    void setMode(Mode mode, unsigned threads = 4);
    Mode mode() const;
    void queue(std::function<void()> routine);
    /// Waits until nothing is queued or running. Must not be called from a worker.
    void drain();
    /// Holds back items that have not started (to test late workers), and lets them go again.
    void pause();
    void resume();
    std::size_t pending() const;
    /// Whether the calling thread is a system worker.
    static bool onWorkerThread();
    /// In ordered mode drains (the moment at which real workers would have caught up); in free mode does nothing.
    void settle();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace sim
