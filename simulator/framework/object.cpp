#include "object.h"

#include "../kernel/internals.h"
#include "../kernel/strings.h"
#include "../kernel/thread.h"
#include "../kernel/violation.h"
#include "client.h"
#include "deferred_deletions.h"
#include "live_objects.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace sim::framework {

namespace {

/// Guards the tree of all objects: parents, children, states.
std::mutex treeMutex;

} // namespace

Object::Object(Client &client, ObjectType type, const void *callSite)
    : type(type), callSite(callSite), client_(client.shared_from_this()) {
    live::addObject(*this);
}

Object::~Object() {
    live::removeObject(*this);
    for (const ObjectContext &context : contexts_) {
        live::removeContext(context.memory);
        if (context.type) {
            kernel().internals->lockOrder.forget(context.memory, context.type->ContextSize);
        }
        std::free(context.memory);
    }
}

WDFOBJECT Object::handle() const {
    return reinterpret_cast<WDFOBJECT>(~reinterpret_cast<std::uintptr_t>(this) & ~std::uintptr_t{7});
}

void Object::dereference(const char *routine, const void *site) {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return;
    }
    {
        std::lock_guard lock(treeMutex);
        if (state_ != State::destroying) {
            bugCheck("framework object", routine,
                     std::string("the last reference of a ") + handleTypeName(type) +
                         " was dropped without deleting it (bug check 0x10D)",
                     site);
        }
    }
    for (const ObjectContext &context : contexts_) {
        if (context.destroy) {
            CallbackContract contract("EvtDestroyCallback");
            context.destroy(handle());
        }
    }
    delete this;
}

NTSTATUS Object::adopt(Object &parent) {
    std::lock_guard lock(treeMutex);
    if (parent.state_ != State::alive) {
        return STATUS_DELETE_PENDING;
    }
    parent_ = &parent;
    placeInParent_ = parent.children_.insert(parent.children_.end(), this);
    return STATUS_SUCCESS;
}

Object *Object::parent() const {
    std::lock_guard lock(treeMutex);
    return parent_;
}

bool Object::descendsFrom(const Object &ancestor) const {
    std::lock_guard lock(treeMutex);
    for (const Object *object = this; object; object = object->parent_) {
        if (object == &ancestor) {
            return true;
        }
    }
    return false;
}

bool Object::beginDeletion() {
    std::lock_guard lock(treeMutex);
    if (state_ != State::alive) {
        return false;
    }
    state_ = State::disposing;
    if (parent_) {
        parent_->children_.erase(placeInParent_);
        parent_ = nullptr;
    }
    return true;
}

bool Object::deleting() const {
    std::lock_guard lock(treeMutex);
    return state_ != State::alive;
}

void Object::disposeTree() {
    for (;;) {
        Object *child = nullptr;
        {
            std::lock_guard lock(treeMutex);
            if (children_.empty()) {
                break;
            }
            child = children_.front();
            disposedChildren_.splice(disposedChildren_.end(), children_, children_.begin());
            child->state_ = State::disposing;
        }
        child->disposeTree();
    }
    beforeCleanup();
    for (std::size_t index = 0;; ++index) {
        PFN_WDF_OBJECT_CONTEXT_CLEANUP cleanup = nullptr;
        {
            std::lock_guard lock(contextMutex_);
            if (index == contexts_.size()) {
                break;
            }
            cleanup = contexts_[index].cleanup;
        }
        if (cleanup) {
            CallbackContract contract("EvtCleanupCallback");
            cleanup(handle());
        }
    }
    afterCleanup();
}

void Object::destroyChildren() {
    for (;;) {
        Object *child = nullptr;
        {
            std::lock_guard lock(treeMutex);
            if (disposedChildren_.empty()) {
                return;
            }
            child = disposedChildren_.front();
            disposedChildren_.pop_front();
            child->parent_ = nullptr;
        }
        child->destroyChildren();
        child->giveUpBirthReference();
    }
}

void Object::giveUpBirthReference() {
    {
        std::lock_guard lock(treeMutex);
        state_ = State::destroying;
    }
    dereference("WdfObjectDelete", nullptr);
}

bool Object::remove() {
    if (!beginDeletion()) {
        return false;
    }
    if (passiveDisposal() && currentThread().irql > PASSIVE_LEVEL) {
        deferDeletion([this] { finishRemoval(); });
    } else {
        finishRemoval();
    }
    return true;
}

void Object::finishRemoval() {
    disposeTree();
    destroyChildren();
    giveUpBirthReference();
}

void Object::abandon() {
    {
        std::lock_guard lock(contextMutex_);
        for (ObjectContext &context : contexts_) {
            context.cleanup = nullptr;
            context.destroy = nullptr;
        }
    }
    remove();
}

Object *objectFromHandle(const void *handle) {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value == 0 || (value & 7) != 0) {
        return nullptr;
    }
    auto *object = reinterpret_cast<Object *>(~value & ~std::uintptr_t{7});
    return live::isObject(object) ? object : nullptr;
}

Object *objectFromContext(const void *context) {
    return context ? live::contextOwner(context) : nullptr;
}

} // namespace sim::framework
