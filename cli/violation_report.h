#pragma once

#include <string>

namespace cli {

/// While it lives, a rule that the driver breaks ends the run with a message that says what was being played.
class ViolationReport {
  public:
    ViolationReport();
    ~ViolationReport();
    ViolationReport(const ViolationReport &) = delete;
    ViolationReport &operator=(const ViolationReport &) = delete;

    /// What the message begins with from now on, e.g. the scenario's file.
    void playing(std::string what);

  private:
    std::string playing_;
};

} // namespace cli
