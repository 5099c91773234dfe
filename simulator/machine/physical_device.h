#pragma once

#include "hardware.h"
#include "simulated_device.h"

#include <atomic>
#include <memory>

namespace sim::machine {

/// The physical device object that a bus driver makes for one device it found, and the bus driver's answers for it.
class PhysicalDevice : public SimulatedDevice {
  public:
    PhysicalDevice(PDRIVER_OBJECT driver, std::shared_ptr<Hardware> hardware, std::u16string_view name);

    const Hardware &hardware() const { return *hardware_; }
    bool started() const { return started_; }
    /// The bus no longer sees the device: the next IRP_MN_REMOVE_DEVICE deletes the object. Until then a removal only
    /// takes the drivers above away.
    void markMissing() { present_ = false; }

  protected:
    /// Reads, writes and device control requests. The default refuses them.
    virtual NTSTATUS request(PIRP irp, PIO_STACK_LOCATION location);
    /// The device has been pulled out, or is about to be removed.
    virtual void disappear() {}

  private:
    NTSTATUS handle(PIRP irp, PIO_STACK_LOCATION location) override;
    NTSTATUS plugAndPlay(PIRP irp, PIO_STACK_LOCATION location);
    NTSTATUS answerCapabilities(PIRP irp, DEVICE_CAPABILITIES *capabilities);
    NTSTATUS answerTargetRelation(PIRP irp);
    NTSTATUS remove(PIRP irp);

    const std::shared_ptr<Hardware> hardware_;
    std::atomic<bool> started_ = false;
    std::atomic<bool> present_ = true;
};

} // namespace sim::machine
