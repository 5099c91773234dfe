#include "live_objects.h"

#include <algorithm>
#include <shared_mutex>
#include <unordered_map>
#include <unordered_set>

namespace sim::framework::live {

namespace {

struct Registry {
    std::shared_mutex mutex;
    std::unordered_set<const Object *> objects;
    std::unordered_map<const void *, Object *> contexts;
    std::vector<const Object *> buried;
};

Registry &registry() {
    static Registry instance;
    return instance;
}

} // namespace

void addObject(Object &object) {
    std::unique_lock lock(registry().mutex);
    registry().objects.insert(&object);
}

void removeObject(Object &object) {
    std::unique_lock lock(registry().mutex);
    registry().objects.erase(&object);
}

void bury(Object &object) {
    std::unique_lock lock(registry().mutex);
    registry().objects.erase(&object);
    std::erase_if(registry().contexts, [&](const auto &entry) { return entry.second == &object; });
    registry().buried.push_back(&object);
}

bool isObject(const Object *object) {
    std::shared_lock lock(registry().mutex);
    return registry().objects.contains(object);
}

std::vector<Object *> objects() {
    std::vector<Object *> result;
    {
        std::shared_lock lock(registry().mutex);
        for (const Object *object : registry().objects) {
            result.push_back(const_cast<Object *>(object));
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}

void addContext(const void *memory, Object &owner) {
    std::unique_lock lock(registry().mutex);
    registry().contexts[memory] = &owner;
}

void removeContext(const void *memory) {
    std::unique_lock lock(registry().mutex);
    registry().contexts.erase(memory);
}

Object *contextOwner(const void *memory) {
    std::shared_lock lock(registry().mutex);
    const auto found = registry().contexts.find(memory);
    return found == registry().contexts.end() ? nullptr : found->second;
}

} // namespace sim::framework::live
