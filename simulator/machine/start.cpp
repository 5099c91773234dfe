#include "plug_and_play.h"

namespace sim::machine {

/// START, then the questions that Plug and Play asks of a device that has just started. True when it runs.
bool PlugAndPlay::start(Node &node) {
    PDEVICE_OBJECT device = node.physicalDevice();
    const PnpResult result = sendToStack(device, IRP_MN_START_DEVICE, "IRP_MN_START_DEVICE");
    if (!NT_SUCCESS(result.status)) {
        removeStack(node, StackRemoval::afterFailure);
        setProblem(node, problem::failedStart, result.status);
        return false;
    }
    setInterfaces(node, true);
    queryCapabilities(node);
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.everStarted = true;
    }
    if (!askState(node)) {
        return false;
    }
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.started = true;
    }
    notifyChanged(node);
    const std::optional<DiskDescription> &disk = node.description().disk;
    if (disk && disk->mounts && node.hardware()->medium->present()) {
        post([this, &node] { mount(node); });
    }
    return true;
}

/// What the mount manager and a file system do when a disk with a medium arrives.
std::shared_ptr<Volume> PlugAndPlay::mount(Node &node) {
    std::shared_ptr<Volume> volume;
    {
        const NodeClaim claim = claimUnlessOwn(node); // its stack must not be taken apart while it is opened
        volume = node.started() ? std::make_shared<Volume>(node) : nullptr;
    }
    if (volume) {
        volume->askWhetherWritable();
    }
    const std::lock_guard guard(tree_.mutex);
    return volumes_[node.description().name] = volume;
}

std::shared_ptr<Volume> PlugAndPlay::volume(const std::string &disk) {
    const std::lock_guard guard(tree_.mutex);
    const auto found = volumes_.find(disk);
    return found == volumes_.end() ? nullptr : found->second;
}

// learn.microsoft.com: IRP_MN_QUERY_PNP_DEVICE_STATE. That a disabled device is removed as by surprise and gets code 29
// is recalled. False when the device does not stay.
bool PlugAndPlay::askState(Node &node) {
    const PnpResult result =
        sendToStack(node.physicalDevice(), IRP_MN_QUERY_PNP_DEVICE_STATE, "IRP_MN_QUERY_PNP_DEVICE_STATE");
    const auto bits = NT_SUCCESS(result.status) ? static_cast<PNP_DEVICE_STATE>(result.information) : 0;
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.hidden = (bits & PNP_DEVICE_DONT_DISPLAY_IN_UI) != 0;
    }
    ULONG code = 0;
    if ((bits & PNP_DEVICE_REMOVED) != 0) {
        code = problem::deviceNotThere;
    } else if ((bits & PNP_DEVICE_FAILED) != 0) {
        code = problem::failedPostStart;
    } else if ((bits & PNP_DEVICE_DISABLED) != 0) {
        code = problem::hardwareDisabled;
    }
    if (code == 0) {
        return true;
    }
    takeChildrenAway(node, Manner::surprise);
    removeStack(node, StackRemoval::surprise);
    setProblem(node, code, STATUS_SUCCESS);
    return false;
}

void PlugAndPlay::setProblem(Node &node, ULONG code, NTSTATUS status) {
    {
        const std::lock_guard guard(tree_.mutex);
        node.state.problemCode = code;
        node.state.problemStatus = status;
    }
    notifyChanged(node);
}

void PlugAndPlay::setInterfaces(Node &node, bool enabled) {
    const std::lock_guard guard(tree_.mutex);
    for (DeviceInterface &interface : node.state.interfaces) {
        interface.enabled = enabled;
    }
}

void PlugAndPlay::notifyChanged(Node &node) {
    if (MachineObserver *watching = observer) {
        watching->nodeChanged(node);
    }
}

} // namespace sim::machine
