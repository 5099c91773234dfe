#pragma once

#include <ntifs.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace sim {

enum class ObjectType { device, driver, file, key, directory, event, symbolicLink, other };

const char *nameOf(ObjectType type);

/// Reference counts, types and names of the kernel objects that drivers hold pointers to (the pointer is the body).
/// References taken with a call site are a driver's and reported as leaks while they last; those taken without are the
/// machine's own. The same goes for handles. Thread-safe.
class ObjectManager {
  public:
    /// Registers a body with one reference (its creator's). `destroy` runs when the last reference goes.
    void insert(void *body, ObjectType type, std::u16string name, std::function<void()> destroy);
    /// Both return the number of references afterwards.
    long reference(void *body, const void *callSite);
    long dereference(void *body, const void *callSite);
    bool contains(const void *body) const;
    ObjectType typeOf(const void *body, const char *routine,
                      const void *callSite) const; ///< bugCheck if no live object
    long references(const void *body) const;
    /// Named objects, found with or without regard to case. Null when absent. Adds no reference, so another thread may
    /// delete the object before the caller looks at it.
    void *find(std::u16string_view name, bool ignoreCase) const;
    /// The same with one of the machine's own references.
    void *findReferenced(std::u16string_view name, bool ignoreCase);
    void removeName(void *body);
    std::u16string nameOf(const void *body) const;

    /// References the body. A kernel handle unless `kernelHandle` is false.
    HANDLE openHandle(void *body, ACCESS_MASK access, const void *callSite, bool kernelHandle = true);
    /// Null when the handle is not open.
    void *bodyOf(HANDLE handle, ACCESS_MASK *access = nullptr) const;
    bool closeHandle(HANDLE handle);
    std::size_t handlesInUse() const;

    /// True when `name` is a directory of the name space, e.g. "\\Driver" (no trailing backslash).
    bool directoryExists(std::u16string_view name) const;

    /// References and handles that a driver still has, one line each, for the leak report.
    std::vector<std::string> leaks() const;

    /// Destroys every object that is left, whatever its references. Only at the end of the machine.
    void destroyAll();

    ObjectManager();
    ~ObjectManager();

  private:
    struct Record;
    struct Handle;
    void *named(std::u16string_view name, bool ignoreCase) const;

    mutable std::mutex mutex_;
    std::unordered_map<const void *, std::unique_ptr<Record>> records_;
    std::multimap<std::u16string, const void *> names_; ///< by upcased name
    std::map<HANDLE, Handle> handles_;
    std::uint32_t nextKernelHandle_ = 0x80000004; ///< sign-extended to 64 bits, as kernel handles are
    std::uint32_t nextUserHandle_ = 4;
};

/// The object with a name, which stays for as long as this does. Null when there is none.
class NamedObject {
  public:
    NamedObject(std::u16string_view name, bool ignoreCase);
    NamedObject(const NamedObject &) = delete;
    NamedObject &operator=(const NamedObject &) = delete;
    ~NamedObject();

    void *get() const { return body_; }
    /// Null when the object is of another type.
    void *ofType(ObjectType type) const;

  private:
    void *const body_;
};

} // namespace sim
