#pragma once

#include "../kernel/kernel.h"

#include <wdf.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim::framework {

struct Client;

enum class ObjectType {
    driver,
    device,
    ioPackage, ///< the framework's own parent of queues; a driver never gets its handle
    queue,
    request,
    target,
    fileObject,
    memory,
    collection,
    string,
    key,
    waitLock,
    spinLock,
    general,
    resourceList,
};

/// "WDFDEVICE" and so on, as messages name them.
const char *handleTypeName(ObjectType type);

/// One context of an object: the memory that the driver asked for and the two callbacks given with it.
struct ObjectContext {
    PCWDF_OBJECT_CONTEXT_TYPE_INFO type = nullptr; ///< null when the attributes had callbacks only, or were absent
    void *memory = nullptr;                        ///< zeroed, 16-aligned, freed with the object
    PFN_WDF_OBJECT_CONTEXT_CLEANUP cleanup = nullptr;
    PFN_WDF_OBJECT_CONTEXT_DESTROY destroy = nullptr;
};

/// A framework object: a node of the tree of parents and children, counted, with contexts. Deletion is two sweeps over
/// the tree: dispose (children first, in the order they were made; cleanup callbacks), then destroy (each object gives
/// up the reference it was born with; destroy callbacks and memory when the last reference goes).
class Object {
  public:
    Object(Client &client, ObjectType type, const void *callSite);
    virtual ~Object();
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;

    const ObjectType type;
    const void *const callSite; ///< code that asked for the object

    /// The value that drivers hold: the address with its bits inverted above the low three.
    WDFOBJECT handle() const;
    Client &client() const { return *client_; }
    /// Objects that no driver can name and that no leak report shows.
    virtual bool internal() const { return false; }
    /// Whether the object can be disposed of only at PASSIVE_LEVEL.
    virtual bool passiveDisposal() const { return false; }
    /// Why WdfObjectDelete is refused for this object; null when it is not.
    virtual const char *deletionRefusal() const { return nullptr; }

    void reference() { references_.fetch_add(1, std::memory_order_relaxed); }
    /// Frees the object with the last reference. Dropping the birth reference of an object that is part of the tree is
    /// bug check 0x10D.
    void dereference(const char *routine, const void *site);

    /// Makes `parent` the owner. STATUS_DELETE_PENDING when the parent's deletion has begun.
    NTSTATUS adopt(Object &parent);
    Object *parent() const;
    bool descendsFrom(const Object &ancestor) const;

    /// Adds the context that the attributes describe (null: an empty one). STATUS_OBJECT_NAME_EXISTS with the existing
    /// memory when that type is there already.
    NTSTATUS addContext(const WDF_OBJECT_ATTRIBUTES *attributes, void **memory = nullptr);
    void *contextOf(PCWDF_OBJECT_CONTEXT_TYPE_INFO contextType) const; ///< null when absent
    void *contextNamed(std::string_view typeName) const;
    void *primaryContext() const;

    /// Deletes the object with its children. False, and nothing done, when deletion has begun before. Above
    /// PASSIVE_LEVEL, objects that need it are disposed of by a system worker.
    bool remove();
    /// Deletes a half-made object: its callbacks are forgotten first.
    void abandon();

    // The steps of remove(), for objects whose deletion has work in between.
    bool beginDeletion();   ///< leaves the parent; children and contexts can no longer be added
    void disposeTree();     ///< first sweep
    void destroyChildren(); ///< second sweep without the object itself
    void giveUpBirthReference();
    bool deleting() const;

  protected:
    virtual void beforeCleanup() {} ///< in the first sweep, after the children, before the own cleanup callbacks
    virtual void afterCleanup() {}

  private:
    enum class State { alive, disposing, destroying };
    void finishRemoval();

    const std::shared_ptr<Client> client_;
    std::atomic<long> references_{1};
    // The tree, guarded by one lock for all objects.
    State state_ = State::alive;
    Object *parent_ = nullptr;
    std::list<Object *> children_;
    std::list<Object *> disposedChildren_;
    std::list<Object *>::iterator placeInParent_{};
    mutable std::mutex contextMutex_;
    std::vector<ObjectContext> contexts_;
};

/// Reads a handle. Null when it is not the handle of a live object.
Object *objectFromHandle(const void *handle);
/// The object that a context belongs to; null when the address is no context.
Object *objectFromContext(const void *context);

/// Deletions that were asked for above PASSIVE_LEVEL and wait for a worker: all have ended on return.
void drainDeferredDeletions();

/// One line per live object that a driver could name.
std::vector<std::string> liveObjects();
/// Drops what unbound clients left behind from the reports. Their code is gone, so nothing is called or freed.
void forgetUnboundObjects();

} // namespace sim::framework
