#pragma once

#include <ntifs.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Makes chosen platform calls fail. Every simulated routine that can fail on a real machine asks here first; the
/// calls are counted in order. Thread-safe.
class FaultPlan {
  public:
    /// True when this call of `routine` must fail. Counts the call. Only calls made while armed count.
    bool shouldFail(std::string_view routine);

    void arm(bool on);                               ///< counting and failing happen only while armed (default off)
    void failNth(std::uint64_t n, bool andAllAfter); ///< 1-based over all fallible calls; 0 = none
    void failNamed(std::string routine, std::uint64_t nth, std::optional<NTSTATUS> status, bool andAllAfter);
    void clear();
    std::uint64_t callsSeen() const;
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
    std::uint64_t seen_ = 0;
    std::uint64_t nth_ = 0;
    bool andAllAfter_ = false;
    std::vector<Named> named_;
};

} // namespace sim
