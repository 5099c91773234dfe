#include "plug_and_play.h"

#include "../kernel/kernel.h"
#include "../kernel/strings.h"
#include "../kernel/thread.h"

#include <exception>

namespace sim::machine {

namespace {
thread_local unsigned operationDepth = 0;
}

PlugAndPlay::Operation::Operation(PlugAndPlay &owner) : owner_(owner) {
    ++operationDepth;
}

PlugAndPlay::Operation::~Operation() noexcept(false) {
    --operationDepth;
    if (std::uncaught_exceptions() == 0 && kernel().workers.mode() == WorkQueue::Mode::ordered) {
        owner_.runPending();
    }
}

PnpResult sendToStack(PDEVICE_OBJECT physicalDevice, UCHAR minor, const char *name,
                      const std::function<void(PIO_STACK_LOCATION)> &fill) {
    const CallbackContract contract(name);
    return sendPnpIrp(
        physicalDevice, minor,
        [](PIO_STACK_LOCATION location, void *context) {
            const auto &given = *static_cast<const std::function<void(PIO_STACK_LOCATION)> *>(context);
            if (given) {
                given(location);
            }
        },
        const_cast<std::function<void(PIO_STACK_LOCATION)> *>(&fill));
}

PlugAndPlay::PlugAndPlay(Services &services, HubStatuses hubStatuses) : services_(services), hubStatuses_(hubStatuses) {
    SimulatedDriver &driver = services_.simulated(rootBus);
    RootDevice &device = driver.make<RootDevice>();
    auto hardware = std::make_shared<Hardware>();
    hardware->description.name = "root";
    hardware->description.instanceId = rootInstance;
    const auto root = std::make_shared<Node>(tree_.mutex, hardware, device.object());
    root->state.stack = {{device.object(), std::u16string(view(driver.object()->DriverName))}};
    root->state.started = true;
    root->state.everStarted = true;
    root->state.childList = &device.children();
    tree_.setRoot(root);
    kernel().invalidateDeviceState = [this](PDEVICE_OBJECT physicalDevice) { stateInvalidated(physicalDevice); };
}

PlugAndPlay::~PlugAndPlay() {
    kernel().invalidateDeviceState = nullptr;
}

bool PlugAndPlay::runPending() {
    if (operationDepth != 0) {
        return false;
    }
    const bool done = actions_.drain();
    finishPostponedRemovals();
    return done;
}

void PlugAndPlay::fileClosed() {
    if (kernel().workers.mode() == WorkQueue::Mode::ordered) {
        runPending();
    } else {
        finishPostponedRemovals();
    }
}

// learn.microsoft.com: IoInvalidateDeviceState. For a device that has not started it does nothing.
void PlugAndPlay::stateInvalidated(PDEVICE_OBJECT device) {
    Node *node = tree_.byDevice(device);
    if (node == nullptr || !node->started()) {
        return;
    }
    post([this, node] {
        const NodeClaim claim = tree_.claim(*node);
        if (claim && node->started()) {
            askState(*node);
        }
    });
}

void PlugAndPlay::portCycled(PDEVICE_OBJECT device) {
    if (Node *node = tree_.byDevice(device)) {
        post([this, node] { cycle(*node); });
    }
}

void PlugAndPlay::post(std::function<void()> action) {
    actions_.post(std::move(action), kernel().workers.mode() == WorkQueue::Mode::free);
}

} // namespace sim::machine
