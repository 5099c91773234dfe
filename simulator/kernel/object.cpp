#include "object.h"

#include "kernel.h"
#include "strings.h"
#include "violation.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sim {

struct ObjectManager::Record {
    ObjectType type;
    std::u16string name;
    std::function<void()> destroy;
    long references = 1;
    long driverReferences = 0;
    std::map<const void *, long> referencedAt; ///< call sites of the driver's references, ever
};

struct ObjectManager::Handle {
    void *body;
    ACCESS_MASK access;
    const void *openedAt;
};

namespace {

constexpr std::array<std::u16string_view, 7> rootDirectories{u"",     u"\\DEVICE",   u"\\DRIVER",    u"\\FILESYSTEM",
                                                             u"\\??", u"\\GLOBAL??", u"\\DOSDEVICES"};

std::string describeObject(const void *body) {
    return "object " + hex(reinterpret_cast<std::uintptr_t>(body));
}

} // namespace

const char *nameOf(ObjectType type) {
    switch (type) {
    case ObjectType::device:
        return "device";
    case ObjectType::driver:
        return "driver";
    case ObjectType::file:
        return "file";
    case ObjectType::key:
        return "key";
    case ObjectType::directory:
        return "directory";
    case ObjectType::event:
        return "event";
    case ObjectType::symbolicLink:
        return "symbolic link";
    case ObjectType::other:
        break;
    }
    return "other";
}

ObjectManager::ObjectManager() = default;
ObjectManager::~ObjectManager() = default;

void ObjectManager::insert(void *body, ObjectType type, std::u16string name, std::function<void()> destroy) {
    std::lock_guard lock(mutex_);
    if (!name.empty()) {
        names_.emplace(upcase(name), body);
    }
    records_[body] = std::make_unique<Record>(Record{type, std::move(name), std::move(destroy), 1, 0, {}});
}

long ObjectManager::reference(void *body, const void *callSite) {
    {
        std::lock_guard lock(mutex_);
        const auto found = records_.find(body);
        if (found != records_.end()) {
            if (callSite != nullptr) {
                ++found->second->driverReferences;
                ++found->second->referencedAt[callSite];
            }
            return ++found->second->references;
        }
    }
    bugCheck("object", "ObfReferenceObject", describeObject(body) + " is not a live object", callSite);
}

long ObjectManager::dereference(void *body, const void *callSite) {
    std::unique_lock lock(mutex_);
    const auto found = records_.find(body);
    if (found == records_.end()) {
        lock.unlock();
        bugCheck("object", "ObfDereferenceObject", describeObject(body) + " is not a live object", callSite);
    }
    Record &record = *found->second;
    if (callSite != nullptr && record.driverReferences == 0) {
        lock.unlock();
        bugCheck("object", "ObfDereferenceObject",
                 describeObject(body) + " is dereferenced more often than it was referenced", callSite);
    }
    record.driverReferences -= callSite != nullptr ? 1 : 0;
    if (--record.references != 0) {
        return record.references;
    }
    const std::function<void()> destroy = std::move(record.destroy);
    std::erase_if(names_, [body](const auto &entry) { return entry.second == body; });
    records_.erase(found);
    lock.unlock();
    if (destroy) {
        destroy();
    }
    return 0;
}

bool ObjectManager::contains(const void *body) const {
    std::lock_guard lock(mutex_);
    return records_.contains(body);
}

ObjectType ObjectManager::typeOf(const void *body, const char *routine, const void *callSite) const {
    {
        std::lock_guard lock(mutex_);
        if (const auto found = records_.find(body); found != records_.end()) {
            return found->second->type;
        }
    }
    bugCheck("object", routine, describeObject(body) + " is not a live object", callSite);
}

long ObjectManager::references(const void *body) const {
    std::lock_guard lock(mutex_);
    const auto found = records_.find(body);
    return found == records_.end() ? 0 : found->second->references;
}

void *ObjectManager::find(std::u16string_view name, bool ignoreCase) const {
    std::lock_guard lock(mutex_);
    return named(name, ignoreCase);
}

void *ObjectManager::findReferenced(std::u16string_view name, bool ignoreCase) {
    std::lock_guard lock(mutex_);
    void *body = named(name, ignoreCase);
    if (body != nullptr) {
        ++records_.at(body)->references;
    }
    return body;
}

/// The lock is held.
void *ObjectManager::named(std::u16string_view name, bool ignoreCase) const {
    const auto [first, last] = names_.equal_range(upcase(name));
    const auto found = std::find_if(
        first, last, [&](const auto &entry) { return ignoreCase || records_.at(entry.second)->name == name; });
    return found == last ? nullptr : const_cast<void *>(found->second);
}

void ObjectManager::removeName(void *body) {
    std::lock_guard lock(mutex_);
    std::erase_if(names_, [body](const auto &entry) { return entry.second == body; });
    if (const auto found = records_.find(body); found != records_.end()) {
        found->second->name.clear();
    }
}

std::u16string ObjectManager::nameOf(const void *body) const {
    std::lock_guard lock(mutex_);
    const auto found = records_.find(body);
    return found == records_.end() ? std::u16string{} : found->second->name;
}

HANDLE ObjectManager::openHandle(void *body, ACCESS_MASK access, const void *callSite, bool kernelHandle) {
    reference(body, nullptr);
    std::lock_guard lock(mutex_);
    std::uint32_t &next = kernelHandle ? nextKernelHandle_ : nextUserHandle_;
    const auto value = static_cast<std::intptr_t>(static_cast<std::int32_t>(std::exchange(next, next + 4)));
    const auto handle = reinterpret_cast<HANDLE>(value);
    handles_.emplace(handle, Handle{body, access, callSite});
    return handle;
}

void *ObjectManager::bodyOf(HANDLE handle, ACCESS_MASK *access) const {
    std::lock_guard lock(mutex_);
    const auto found = handles_.find(handle);
    if (found == handles_.end()) {
        return nullptr;
    }
    if (access != nullptr) {
        *access = found->second.access;
    }
    return found->second.body;
}

bool ObjectManager::closeHandle(HANDLE handle) {
    void *body = nullptr;
    {
        std::lock_guard lock(mutex_);
        const auto found = handles_.find(handle);
        if (found == handles_.end()) {
            return false;
        }
        body = found->second.body;
        handles_.erase(found);
    }
    dereference(body, nullptr);
    return true;
}

std::size_t ObjectManager::handlesInUse() const {
    std::lock_guard lock(mutex_);
    return handles_.size();
}

bool ObjectManager::directoryExists(std::u16string_view name) const {
    const std::u16string wanted = upcase(name);
    if (std::find(rootDirectories.begin(), rootDirectories.end(), wanted) != rootDirectories.end()) {
        return true;
    }
    std::lock_guard lock(mutex_);
    const auto below = names_.lower_bound(wanted + u"\\");
    return below != names_.end() && below->first.starts_with(wanted + u"\\");
}

std::vector<std::string> ObjectManager::leaks() const {
    std::vector<std::string> lines;
    std::lock_guard lock(mutex_);
    for (const auto &[body, record] : records_) {
        if (record->driverReferences != 0) {
            std::string line = std::string(sim::nameOf(record->type)) + " " + describeObject(body) + " " +
                               toUtf8(record->name) + " has " + std::to_string(record->driverReferences) +
                               " reference(s) too many; references were taken by";
            for (const auto &[callSite, count] : record->referencedAt) {
                line += " " + describeCodeAddress(callSite) + " (" + std::to_string(count) + " times)";
            }
            lines.push_back(std::move(line));
        }
    }
    for (const auto &[handle, entry] : handles_) {
        if (entry.openedAt != nullptr) {
            lines.push_back("handle " + hex(reinterpret_cast<std::uintptr_t>(handle)) + " to a " +
                            sim::nameOf(records_.at(entry.body)->type) + ", opened by " +
                            describeCodeAddress(entry.openedAt));
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

void ObjectManager::destroyAll() {
    std::unordered_map<const void *, std::unique_ptr<Record>> records;
    {
        std::lock_guard lock(mutex_);
        handles_.clear();
        names_.clear();
        records.swap(records_);
    }
    for (const auto &[body, record] : records) {
        if (record->destroy) {
            record->destroy();
        }
    }
}

NamedObject::NamedObject(std::u16string_view name, bool ignoreCase)
    : body_(kernel().objects.findReferenced(name, ignoreCase)) {}

NamedObject::~NamedObject() {
    if (body_ != nullptr) {
        kernel().objects.dereference(body_, nullptr);
    }
}

void *NamedObject::ofType(ObjectType type) const {
    const bool fits = body_ != nullptr && kernel().objects.typeOf(body_, "object by name", nullptr) == type;
    return fits ? body_ : nullptr;
}

} // namespace sim
