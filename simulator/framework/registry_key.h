#pragma once

#include "call.h"

#include <string>

namespace sim::framework {

/// A WDFKEY: an open registry key with the rights that were asked for.
class RegistryKey : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::key;

    RegistryKey(Client &client, std::u16string path, ACCESS_MASK access, const void *callSite);

    bool passiveDisposal() const override { return true; }
    const std::u16string &path() const { return path_; }
    /// STATUS_ACCESS_DENIED when the handle was opened without `right`, STATUS_KEY_DELETED when the key is gone,
    /// STATUS_INVALID_HANDLE when the handle has been closed.
    NTSTATUS check(ACCESS_MASK right) const;
    void close() { open_ = false; }

  protected:
    void afterCleanup() override { open_ = false; }

  private:
    std::u16string path_;
    ACCESS_MASK rights_;
    bool open_ = true;
};

} // namespace sim::framework
