#pragma once

#include "object.h"

#include <vector>

namespace sim::framework {

/// A WDFCOLLECTION: references to objects, duplicates allowed. Not locked: using one from two threads without the
/// driver's own lock is a race that the sanitizers see.
class Collection : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::collection;

    using Object::Object;
    Collection(Client &client, const void *callSite) : Object(client, objectType, callSite) {}
    ~Collection() override { clearFrom(0); }

    std::size_t count() const { return items_.size(); }
    Object *item(std::size_t index) const { return index < items_.size() ? items_[index] : nullptr; }
    void add(Object &object);
    void removeAt(std::size_t index);
    void clearFrom(std::size_t first); ///< drops the items from `first` on, last first

  protected:
    void afterCleanup() override { clearFrom(0); }

  private:
    std::vector<Object *> items_;
};

} // namespace sim::framework
