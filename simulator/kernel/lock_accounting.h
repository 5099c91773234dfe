#pragma once

#include <cstdint>

namespace sim {

enum class LockKind { executiveResource, fastMutex, waitLock };

/// Every acquisition and release of a lock that a driver makes passes through these two, in the thread that makes it,
/// after the lock was granted and before it is given up. `exclusive` is false for shared holds.
void lockAcquired(LockKind kind, const void *lock, bool exclusive, const void *callSite);
void lockReleased(LockKind kind, const void *lock, const void *callSite);

/// bugCheck when the thread holds an executive resource while normal kernel APCs are on (learn.microsoft.com:
/// ExAcquireResourceExclusiveLite wants them off until the release).
void requireResourcesProtected(const char *routine, const void *callSite);

} // namespace sim
