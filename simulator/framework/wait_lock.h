#pragma once

#include "object.h"

#include <ntifs.h>

namespace sim::framework {

/// A WDFWAITLOCK: a synchronisation event with an owner, who must be the one to release it.
class WaitLock : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::waitLock;

    WaitLock(Client &client, const void *callSite);

    /// STATUS_SUCCESS or STATUS_TIMEOUT. `timeout` null: for ever.
    NTSTATUS acquire(LONGLONG *timeout, const void *site);
    void release(const void *site);

  protected:
    void afterCleanup() override;

  private:
    KEVENT event_{};
    std::atomic<void *> owner_{nullptr};
};

} // namespace sim::framework
