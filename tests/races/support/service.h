#pragma once

#include "tests/races/support/user_request.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace races {

/// One life of a service process: it opens the control device, parks requests for questions and answers what it is
/// asked. One thread uses it.
class Service {
  public:
    /// The mode for a device by its serial number; nothing: the question stays without a reply.
    using Answer = std::function<std::uint32_t(const std::u16string &serial)>;

    Service(PDEVICE_OBJECT anyDeviceOfStack, unsigned processId, unsigned parked, Answer answer);
    ~Service(); ///< takes its requests back, replies to what they brought, closes

    bool isOpen() const { return handle_.isOpen(); }
    NTSTATUS openStatus() const { return handle_.status(); }
    /// Replies to what has come and parks anew. Returns how many questions it replied to.
    unsigned work();
    /// Goes away at once, without a word to what it was asked.
    void die();

    static constexpr std::uint32_t noReply = 0;

  private:
    std::unique_ptr<UserRequest> park();
    unsigned reply(const UserRequest &request);

    ServiceHandle handle_;
    const Answer answer_;
    bool dead_ = false;
    std::vector<std::unique_ptr<UserRequest>> parked_;
};

} // namespace races
