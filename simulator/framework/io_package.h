#pragma once

#include "object.h"

#include <wdf.h>

#include <mutex>
#include <vector>

namespace sim::framework {

class Device;
class Queue;

/// A device's queues and the way of an I/O request to the right one. Parent of queues that have no other.
class IoPackage : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::ioPackage;

    explicit IoPackage(Device &device);
    bool internal() const override { return true; }

    /// Read, write, device control, internal device control.
    NTSTATUS dispatch(PIRP irp);

    void addQueue(Queue &queue);
    void removeQueue(Queue &queue);
    /// False when the device has a default queue already.
    bool setDefaultQueue(Queue &queue);
    Queue *defaultQueue() const;

    void holdManagedQueues();    ///< leaving D0; returns when no request is with the driver
    void releaseManagedQueues(); ///< back in D0
    void purgeQueues(bool managed);
    /// The last handle of a file is closed: its requests that still wait in queues are cancelled.
    void flushFileObject(PFILE_OBJECT file);

  private:
    template<typename Work>
    void forEachQueue(Work work);
    bool passesToLower(Queue *queue, UCHAR major) const;

    Device &device_;
    mutable std::mutex mutex_;
    std::vector<Queue *> queues_; ///< in the order of their creation
    Queue *defaultQueue_ = nullptr;
};

/// Presents an IRP as a new request to a queue. The IRP is marked pending; returns STATUS_PENDING always.
NTSTATUS presentAsRequest(Queue &queue, PIRP irp, class FileObject *opening);

} // namespace sim::framework
