#pragma once

#include <ntifs.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// What an observer of the machine sees of the driver's questions, enough to tell which value and rule decided.
struct TraceEvent {
    enum class Kind {
        registryValueRead, ///< text = value name; status
        tableInsert,       ///< table, element (user data)
        tableLookup,       ///< table, element (null on a miss)
        tableElement,      ///< table, element returned by index or by a walk
        nameMatch,         ///< text = expression, name = name matched; hit
    };
    Kind kind{};
    const void *table = nullptr;
    const void *element = nullptr;
    std::u16string text;
    std::u16string name;
    bool hit = false;
    NTSTATUS status = 0;
};

/// Passes events to at most one observer, in the thread that caused them. Costs a load and a branch without one.
class Trace {
  public:
    using Observer = std::function<void(const TraceEvent &)>;
    void setObserver(Observer observer);
    bool active() const { return active_.load(std::memory_order_acquire); }
    void emit(const TraceEvent &event);

  private:
    std::atomic<bool> active_ = false;
    std::recursive_mutex mutex_;
    Observer observer_;
};

} // namespace sim
