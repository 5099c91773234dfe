#include "object.h"

#include "live_objects.h"

#include <algorithm>
#include <cstdlib>

namespace sim::framework {

NTSTATUS Object::addContext(const WDF_OBJECT_ATTRIBUTES *attributes, void **memory) {
    ObjectContext context;
    std::size_t bytes = 0;
    if (attributes) {
        context.type = attributes->ContextTypeInfo;
        context.cleanup = attributes->EvtCleanupCallback;
        context.destroy = attributes->EvtDestroyCallback;
        bytes = attributes->ContextSizeOverride ? attributes->ContextSizeOverride
                : attributes->ContextTypeInfo   ? attributes->ContextTypeInfo->ContextSize
                                                : 0;
    }
    if (deleting()) {
        return STATUS_DELETE_PENDING;
    }
    std::lock_guard lock(contextMutex_);
    const auto sameType = [&](const ObjectContext &existing) {
        return existing.type && context.type && existing.type->UniqueType == context.type->UniqueType;
    };
    if (const auto found = std::find_if(contexts_.begin(), contexts_.end(), sameType); found != contexts_.end()) {
        if (memory) {
            *memory = found->memory;
        }
        return STATUS_OBJECT_NAME_EXISTS;
    }
    context.memory = std::calloc(1, std::max<std::size_t>(bytes, 1));
    live::addContext(context.memory, *this);
    contexts_.push_back(context);
    if (memory) {
        *memory = context.memory;
    }
    return STATUS_SUCCESS;
}

void *Object::contextOf(PCWDF_OBJECT_CONTEXT_TYPE_INFO contextType) const {
    std::lock_guard lock(contextMutex_);
    for (const ObjectContext &context : contexts_) {
        if (context.type && context.type->UniqueType == contextType) {
            return context.memory;
        }
    }
    return nullptr;
}

void *Object::contextNamed(std::string_view typeName) const {
    std::lock_guard lock(contextMutex_);
    for (const ObjectContext &context : contexts_) {
        if (context.type && context.type->ContextName == typeName) {
            return context.memory;
        }
    }
    return nullptr;
}

void *Object::primaryContext() const {
    std::lock_guard lock(contextMutex_);
    return contexts_.empty() ? nullptr : contexts_.front().memory;
}

} // namespace sim::framework
