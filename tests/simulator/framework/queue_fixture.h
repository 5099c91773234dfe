#pragma once

#include "framework_fixture.h"

#include <deque>

namespace sim::test {

/// A function device with a parallel default queue, not managed by power, whose device controls are kept, and manual
/// queues to forward to.
class QueueTest : public FrameworkTest {
  protected:
    QueueTest();

    /// A manual queue of the device; call it in EvtDriverDeviceAdd or later.
    WDFQUEUE manualQueue(WDF_TRI_STATE managed = WdfFalse);
    PDEVICE_OBJECT deviceObject() const { return WdfDeviceWdmGetDeviceObject(device); }
    /// Sends a control request and returns the WDFREQUEST that the default queue presented.
    WDFREQUEST present(TestIrp &irp, ULONG code = bufferedCode);
    /// Presents and forwards.
    WDFREQUEST presentAndForward(TestIrp &irp, WDFQUEUE queue);
    WDFREQUEST retrieve(WDFQUEUE queue);
    static ULONG queuedIn(WDFQUEUE queue);
    static ULONG ownedFrom(WDFQUEUE queue);
    void notifyOn(WDFQUEUE queue, std::function<void(WDFQUEUE)> callback);

    WDF_IO_QUEUE_CONFIG defaultConfig{};
    WDFQUEUE defaultQueue = nullptr;
    std::function<void(WDFREQUEST)> onControl; ///< default: keeps it in `presented`
    std::function<void(WDFREQUEST, ULONG)> onStop;
    std::deque<WDFREQUEST> presented;
    std::mutex presentedMutex;
    char buffer[64] = {};

  private:
    static QueueTest &test() { return *static_cast<QueueTest *>(current); }
    static VOID evtControl(WDFQUEUE, WDFREQUEST request, size_t, size_t, ULONG);
    static VOID evtStop(WDFQUEUE, WDFREQUEST request, ULONG action);
    static VOID evtReady(WDFQUEUE queue, WDFCONTEXT context);
    std::deque<std::function<void(WDFQUEUE)>> readyCallbacks_;
};

} // namespace sim::test
