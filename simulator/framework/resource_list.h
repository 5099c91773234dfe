#pragma once

#include "device.h"

namespace sim::framework {

/// The two resource lists that hardware callbacks are given. Both are empty: simulated devices have no resources.
class ResourceLists {
  public:
    explicit ResourceLists(Device &device) : raw_(new List(device)), translated_(new List(device)) {}
    ~ResourceLists() {
        raw_->remove();
        translated_->remove();
    }
    ResourceLists(const ResourceLists &) = delete;
    ResourceLists &operator=(const ResourceLists &) = delete;

    WDFCMRESLIST raw() const { return static_cast<WDFCMRESLIST>(raw_->handle()); }
    WDFCMRESLIST translated() const { return static_cast<WDFCMRESLIST>(translated_->handle()); }

  private:
    struct List : Object {
        explicit List(Device &device) : Object(device.client(), ObjectType::resourceList, nullptr) {}
        bool internal() const override { return true; }
    };
    List *raw_;
    List *translated_;
};

} // namespace sim::framework
