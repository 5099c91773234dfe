#pragma once

#include <ntifs.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Whose calls: those of system worker threads are counted apart, so that no count depends on how threads interleave.
enum class FaultThread { driver, worker };

/// One call that fails: the nth (1-based) of all fallible calls that threads of one kind make.
struct FaultPoint {
    FaultThread thread = FaultThread::driver;
    std::uint64_t nth = 0; ///< 0: none
    bool andAllAfter = false;
};

/// Makes chosen platform calls fail. Every simulated routine that can fail on a real machine asks here first; the
/// calls are counted in order. Thread-safe.
class FaultPlan {
  public:
    /// True when this call of `routine` must fail. Counts the call. Only calls made while armed count.
    bool shouldFail(std::string_view routine);

    void arm(bool on); ///< counting and failing happen only while armed (default off)
    void failAt(const FaultPoint &point);
    /// As failAt for the calls of all threads but system workers.
    void failNth(std::uint64_t n, bool andAllAfter) { failAt({FaultThread::driver, n, andAllAfter}); }
    void failNamed(std::string routine, std::uint64_t nth, std::optional<NTSTATUS> status, bool andAllAfter);
    void clear();
    std::uint64_t callsSeen(FaultThread thread = FaultThread::driver) const;
    /// The routine of the first call that failed since `clear`; empty when none did.
    std::string firstFailed() const;
    /// What was planned since `clear` and did not come to pass, e.g. "call 3 of WdfDeviceCreate (2 were made)".
    std::vector<std::string> unmet() const;
    /// The status that a scenario asked a named call to fail with; `otherwise` where it did not say.
    NTSTATUS statusFor(std::string_view routine, NTSTATUS otherwise) const;

  private:
    struct Named {
        std::string routine;
        std::uint64_t nth = 0;
        std::uint64_t seen = 0;
        std::optional<NTSTATUS> status;
        bool andAllAfter = false;
    };
    mutable std::mutex mutex_;
    std::atomic<bool> armed_ = false;
    std::array<std::uint64_t, 2> seen_{}; ///< by FaultThread
    FaultPoint point_;
    std::string firstFailed_;
    std::vector<Named> named_;
};

} // namespace sim
