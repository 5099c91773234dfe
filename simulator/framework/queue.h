#pragma once

#include "object.h"

#include <wdf.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <vector>

namespace sim::framework {

class Device;
class FileObject;
class Request;

/// A WDFQUEUE. Its lock is dropped for every call into the driver and for every completion.
class Queue : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::queue;

    Queue(Device &device, const WDF_IO_QUEUE_CONFIG &config, bool powerManaged, bool passive, const void *callSite);
    ~Queue() override;

    Device &device;
    const WDF_IO_QUEUE_CONFIG config;
    const bool powerManaged;

    bool internal() const override { return hidden; }
    bool passiveDisposal() const override { return true; }
    const char *deletionRefusal() const override;
    bool hidden = false; ///< the framework's own

    bool manual() const { return config.DispatchType == WdfIoQueueDispatchManual; }
    bool hasHandler(UCHAR majorFunction) const;

    // Requests come, move and go.
    void accept(Request &request); ///< new; completes it when the queue takes no requests or the IRP is cancelled
    /// STATUS_WDF_BUSY when the destination takes no requests: the driver keeps it. Cancelled meanwhile: success.
    static NTSTATUS forward(Request &request, Queue &destination);
    NTSTATUS requeue(Request &request);
    void markFinished(Request &request); ///< completion begins
    void requestLeft(Request &request);  ///< completion has ended
    void cancelQueued(Request &request); ///< its IRP's cancel routine was called
    void flushFileObject(PFILE_OBJECT file);

    // What the driver asks.
    NTSTATUS retrieveNext(Request *&request);
    NTSTATUS find(Request *after, bool any, PFILE_OBJECT file, WDF_REQUEST_PARAMETERS *parameters, Request *&found);
    NTSTATUS retrieveFound(Request &request);
    NTSTATUS setReadyNotify(PFN_WDF_IO_QUEUE_STATE callback, WDFCONTEXT context);
    WDF_IO_QUEUE_STATE state(ULONG *queued, ULONG *withDriver) const;
    void acknowledgeStop(Request &request);
    std::vector<Request *> referencedOwned(); ///< what the driver has, each referenced

    // Power and removal.
    void stopPresenting(); ///< waits for callbacks that run
    void suspendOwned();   ///< EvtIoStop for what the driver has, then waits for it
    void powerOn();
    void presentWaiting();
    void purge();

  protected:
    void afterCleanup() override { purge(); }

  private:
    using Lock = std::unique_lock<std::mutex>;
    enum class Power { on, stopping, off };

    bool insert(Request &request, bool atHead); ///< false, and not inserted: the IRP is cancelled
    bool takeFromList(Request &request);        ///< false: somebody else is cancelling it
    Request *takeFirst();
    void giveToDriver(Request &request);
    void completeCancelled(Request &request); ///< without the lock; it is in no list
    std::vector<Request *> takeAll(PFILE_OBJECT file, bool anyFile);
    void cancelAll(PFILE_OBJECT file, bool anyFile);

    void dispatchEvents(Lock &lock, bool inserted);
    bool presentOne(Lock &lock);
    void deferDispatch();
    void present(Request &request);
    bool completeByItself(Request &request, UCHAR major) const;
    void callHandler(Request &request);
    void stopOwned(ULONG action);

    const bool passive_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::list<Request *> queued_;
    std::list<Request *> owned_;
    Power power_;
    bool accepting_ = true;
    bool purged_ = false;
    bool becameNonEmpty_ = false;    ///< the ready notification is due
    bool onlyCancelledLeft_ = false; ///< a retrieval found nothing but requests being cancelled
    bool workerQueued_ = false;
    unsigned dispatchers_ = 0;
    unsigned callbacks_ = 0;
    PFN_WDF_IO_QUEUE_STATE readyCallback_ = nullptr;
    WDFCONTEXT readyContext_ = nullptr;
};

} // namespace sim::framework
