#include "trace.h"

#include <utility>

namespace sim {

void Trace::setObserver(Observer observer) {
    std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
    active_.store(static_cast<bool>(observer_), std::memory_order_release);
}

void Trace::emit(const TraceEvent &event) {
    if (!active()) {
        return;
    }
    std::lock_guard lock(mutex_);
    if (observer_) {
        observer_(event);
    }
}

} // namespace sim
