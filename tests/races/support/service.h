#pragma once

#include "simulator/process/user_process.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace races {

inline constexpr std::u16string_view controlDeviceName = u"\\\\.\\Tarvenholt Myrtelhaven";

/// One life of a service process: it opens the control device, parks requests for questions and answers what it is
/// asked. One thread uses it.
class Service {
  public:
    /// The mode for a device by its serial number; nothing: the question stays without a reply.
    using Answer = std::function<std::uint32_t(const std::u16string &serial)>;

    Service(unsigned processId, unsigned parked, Answer answer);
    ~Service(); ///< takes its requests back, replies to what they brought, closes

    bool isOpen() const { return NT_SUCCESS(openStatus_); }
    NTSTATUS openStatus() const { return openStatus_; }
    /// Replies to what has come and parks anew. Returns how many questions it replied to.
    unsigned work();
    /// Makes another request, and waits for it.
    sim::UserProcess::Io control(std::uint32_t code, std::size_t outputBytes = 0) {
        return process_.control(handle_, {code, {}, outputBytes});
    }
    /// Starts one that waits to be told of something.
    sim::UserProcess::Io begin(std::uint32_t code, std::size_t outputBytes) {
        return process_.begin(handle_, {code, {}, outputBytes});
    }
    /// Goes away at once, without a word to what it was asked.
    void die();

    static constexpr std::uint32_t noReply = 0;

  private:
    sim::UserProcess::Io park();
    unsigned reply(const sim::UserProcess::Io &request);

    sim::UserProcess process_;
    sim::UserProcess::Handle handle_ = 0;
    const Answer answer_;
    NTSTATUS openStatus_;
    bool dead_ = false;
    std::vector<sim::UserProcess::Io> parked_;
};

} // namespace races
