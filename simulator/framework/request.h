#pragma once

#include "object.h"

#include <ntifs.h>

#include <list>
#include <memory>
#include <optional>

namespace sim::framework {

class Device;
class FileObject;
class Memory;
class Queue;
class Target;

/// What a request was last formatted with, as far as completion needs it.
struct RequestFormat {
    bool formatted = false;
    bool byTarget = false;    ///< by a WdfIoTargetFormatXxx routine
    Memory *input = nullptr;  ///< referenced
    Memory *output = nullptr; ///< referenced
    void *outputAddress = nullptr;
    std::size_t outputLength = 0;
    std::unique_ptr<std::uint8_t[]> systemBuffer; ///< of a METHOD_BUFFERED request that the framework built
    std::size_t systemBufferLength = 0;
};

/// A WDFREQUEST: an IRP that a queue presents, or one that the driver made to send.
class Request : public Object {
  public:
    static constexpr ObjectType objectType = ObjectType::request;

    Request(Client &client, const void *callSite); ///< of the driver; its IRP comes with the target
    Request(Device &device, PIRP irp);             ///< about to go into a queue
    ~Request() override;

    bool passiveDisposal() const override { return false; }
    const char *deletionRefusal() const override;
    bool presentable() const { return device_ != nullptr; }
    Device *device() const { return device_; }
    PIRP irp() const { return irp_; }

    // Where a presentable request stands. Guarded by the lock of `queue`.
    enum class Standing { arriving, queued, withDriver, finished };
    Standing standing = Standing::arriving;
    Queue *queue = nullptr;
    std::list<Request *>::iterator place{};
    bool presentedBefore = false;
    bool stopAcknowledged = false;
    FileObject *opening = nullptr; ///< the file object that a create request is about

    /// Completes a presentable request: its own clean-up, then the IRP, then its queue hears of it. Gone afterwards,
    /// unless somebody holds a reference.
    void complete(NTSTATUS status, std::optional<ULONG_PTR> information = std::nullopt);
    /// The same without the IRP: somebody else has it now.
    void letGo();

    // Sending.
    /// Gives a driver's request an IRP with enough stack locations.
    void provideIrp(CCHAR stackSize);
    /// An IRP as new, with this status.
    void reuse(NTSTATUS status);
    void releaseFormat();
    RequestFormat format;

    /// From just before the IRP goes to the target until it has come back and was looked after.
    enum class Flight { grounded, underWay };
    std::atomic<Flight> flight{Flight::grounded};
    std::atomic<bool> cancelledByTimer{false};
    KEVENT back{};
    bool waited = false; ///< the sender waits for `back`
    enum class Wait { none, parked, over };
    std::atomic<Wait> wait{Wait::none}; ///< of a sender; while it is parked it is one of parkedSends()
    Target *target = nullptr;
    std::list<Request *>::iterator placeInTarget{};
    /// The IRP itself counts one; a canceller counts one while it is in IoCancelIrp.
    std::atomic<int> irpUsers{0};
    std::optional<NTSTATUS> refusal; ///< why the last send did not happen

    /// Cancels the IRP if it is under way.
    void cancelSent();
    /// Called with each end of use of the IRP; the last one finishes the flight.
    void irpUserLeaves();

  private:
    void finishFlight();
    void copyBack();
    void leaveTree();

    Device *const device_ = nullptr;
    PIRP irp_ = nullptr;
    const bool ownsIrp_ = false;
};

/// The completion routine of every IRP that a target sends. Context: the request.
NTSTATUS sentIrpCompleted(PDEVICE_OBJECT device, PIRP irp, PVOID context);

} // namespace sim::framework
