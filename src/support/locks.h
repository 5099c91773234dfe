#pragma once

#include <ntifs.h>

/// Keeps normal kernel APCs off the thread, so that it can't be suspended while it holds a resource. IRQL <= APC_LEVEL.
class [[nodiscard]] CriticalRegion {
  public:
    CriticalRegion() { KeEnterCriticalRegion(); }
    ~CriticalRegion() { KeLeaveCriticalRegion(); }
    CriticalRegion(const CriticalRegion &) = delete;
    CriticalRegion &operator=(const CriticalRegion &) = delete;
};

/// Holds an executive resource for writing, inside a critical region. Waits for it. IRQL <= APC_LEVEL.
class [[nodiscard]] ExclusiveLock {
  public:
    explicit ExclusiveLock(ERESOURCE &resource) : resource_(resource) {
        ExAcquireResourceExclusiveLite(&resource_, TRUE);
    }
    ~ExclusiveLock() { ExReleaseResourceLite(&resource_); }
    ExclusiveLock(const ExclusiveLock &) = delete;
    ExclusiveLock &operator=(const ExclusiveLock &) = delete;

  private:
    CriticalRegion region_; // entered first, left last
    ERESOURCE &resource_;
};

/// Holds an executive resource for reading, inside a critical region. Waits for it. IRQL <= APC_LEVEL.
class [[nodiscard]] SharedLock {
  public:
    explicit SharedLock(ERESOURCE &resource) : resource_(resource) { ExAcquireResourceSharedLite(&resource_, TRUE); }
    ~SharedLock() { ExReleaseResourceLite(&resource_); }
    SharedLock(const SharedLock &) = delete;
    SharedLock &operator=(const SharedLock &) = delete;

  private:
    CriticalRegion region_;
    ERESOURCE &resource_;
};

/// Holds a fast mutex; the thread runs at APC_LEVEL meanwhile, where no string comparison, property, registry, file or
/// hub request is allowed.
class [[nodiscard]] FastMutexLock {
  public:
    explicit FastMutexLock(FAST_MUTEX &mutex) : mutex_(mutex) { ExAcquireFastMutex(&mutex_); }
    ~FastMutexLock() { ExReleaseFastMutex(&mutex_); }
    FastMutexLock(const FastMutexLock &) = delete;
    FastMutexLock &operator=(const FastMutexLock &) = delete;

  private:
    FAST_MUTEX &mutex_;
};
