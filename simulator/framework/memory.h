#pragma once

#include "call.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace sim::framework {

/// A WDFMEMORY: a buffer of its own or one that the driver lent.
class Memory : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::memory;

    Memory(Client &client, std::size_t size, const void *callSite); ///< own buffer, filled with garbage
    Memory(Client &client, void *lent, std::size_t size, const void *callSite);
    ~Memory() override;

    void *buffer() const { return buffer_; }
    std::size_t size() const { return size_; }

  private:
    void *buffer_;
    std::size_t size_;
    bool owned_;
};

/// A memory object with a copy of `bytes`, as the querying routines hand out.
NTSTATUS createFilledMemory(const Call &call, Client &client, const std::vector<std::uint8_t> &bytes,
                            POOL_TYPE poolType, const WDF_OBJECT_ATTRIBUTES *attributes, WDFMEMORY *handle);

} // namespace sim::framework
