#pragma once

#include "../../simulator/kernel/kernel.h"
#include "../facts/device_outcome.h"

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace cli {

/// The questions that the driver asks the kernel while it judges one device: from which registry value each rule came
/// (the value read last before the rule entered its table), and which rule answered yes to which id.
class DecisionTrace {
  public:
    /// `ids` are the device's own, to show an id as written where the kernel only tells the rule that equals it.
    DecisionTrace(const sim::Kernel &kernel, std::vector<std::u16string> ids) : kernel_(kernel), ids_(std::move(ids)) {}

    void observe(const sim::TraceEvent &event);

    bool policyWasRead() const { return policyWasRead_; } ///< a rule list was read
    bool sdCardModeWasRead() const { return sdCardModeWasRead_; }
    bool rulesWereAsked() const { return rulesWereAsked_; } ///< a rule was looked up or matched
    const std::optional<RuleHit> &filterableBy() const { return filterableBy_; }
    const std::optional<RuleHit> &decidedBy() const { return decidedBy_; }

  private:
    struct RuleTable {
        const void *table = nullptr;
        std::u16string value;
        bool builtInList = false;
    };

    void inserted(const sim::TraceEvent &event);
    void lookedUp(const sim::TraceEvent &event);
    void fetched(const sim::TraceEvent &event);
    void matched(const sim::TraceEvent &event);
    void record(const RuleTable &table, const std::u16string &rule, const std::u16string &id);
    RuleTable *tableAt(const void *table);
    std::u16string idEqualTo(const std::u16string &rule) const;

    const sim::Kernel &kernel_;
    std::vector<std::u16string> ids_;
    std::deque<RuleTable> tables_; ///< in the order in which they were filled
    std::u16string lastValue_;
    std::optional<bool> lastValueIsEmpty_; ///< found out when first needed
    const RuleTable *walked_ = nullptr;    ///< whose rule was fetched last and not yet compared
    std::u16string walkedRule_;
    bool policyWasRead_ = false;
    bool sdCardModeWasRead_ = false;
    bool rulesWereAsked_ = false;
    std::optional<RuleHit> filterableBy_;
    std::optional<RuleHit> decidedBy_;
};

/// Traces the decisions of all threads, one at a time each. Thread-safe.
class DecisionTraces {
  public:
    explicit DecisionTraces(sim::Kernel &kernel);
    ~DecisionTraces();
    DecisionTraces(const DecisionTraces &) = delete;
    DecisionTraces &operator=(const DecisionTraces &) = delete;

    /// Watches the calling thread from now on, for one device.
    void begin(std::vector<std::u16string> ids);
    /// What it did since.
    std::unique_ptr<DecisionTrace> end();

  private:
    DecisionTrace *ofThisThread();

    sim::Kernel &kernel_;
    std::mutex mutex_;
    std::map<std::thread::id, std::unique_ptr<DecisionTrace>> traces_;
};

} // namespace cli
