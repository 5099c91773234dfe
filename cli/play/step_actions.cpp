#include "step_actions.h"

#include "machine_setup.h"
#include "step_failure.h"

#include <fmt/format.h>

#include <utility>

namespace cli {

sim::DeviceNode &StepActions::present(const std::string &name) {
    sim::DeviceNode *node = nullptr;
    if (name != "control-node") {
        node = stage_.machine.find(name);
    } else if (controlNode_ != nullptr) {
        for (sim::DeviceNode *known : stage_.machine.nodes()) {
            node = known == controlNode_ ? known : node;
        }
    }
    if (node == nullptr) {
        throw StepFailure(fmt::format("'{}' is not plugged in", name));
    }
    return *node;
}

sim::DeviceNode &StepActions::presentDisk(const std::string &name) {
    sim::DeviceNode &node = present(name);
    if (node.hasMedium()) {
        return node;
    }
    throw StepFailure(fmt::format("'{}' is no disk", name));
}

std::shared_ptr<sim::Volume> StepActions::mounted(const std::string &disk) {
    auto volume = stage_.machine.volume(disk);
    if (volume == nullptr) {
        throw StepFailure(fmt::format("nothing is mounted on '{}'", disk));
    }
    return volume;
}

void StepActions::plug(const ScenarioDevice &device) {
    if (stage_.machine.find(device.description.name) != nullptr) {
        throw StepFailure(fmt::format("'{}' is plugged in already", device.description.name));
    }
    sim::DeviceNode *parent = nullptr;
    if (device.parent == "root") {
        parent = &stage_.machine.rootNode();
    } else if (device.parent == "pci") {
        parent = &stage_.machine.pciRoot();
    } else if (!device.parent.empty()) {
        parent = &present(device.parent);
    }
    if (parent != nullptr && parent != &stage_.machine.rootNode() && !parent->started()) {
        throw StepFailure(fmt::format("its parent '{}' is not started", device.parent));
    }
    stage_.machine.plug(device.description, parent);
    if (plugged_.insert(&device).second) {
        newlyPlugged_.push_back(&device);
    }
}

const ScenarioDevice &StepActions::declared(const std::string &name) const {
    for (const ScenarioDevice &device : stage_.scenario.devices) {
        if (device.description.name == name) {
            return device;
        }
    }
    throw StepFailure(fmt::format("'{}' comes with its parent and can't be plugged in by itself", name));
}

void StepActions::operator()(const LoadDriver &) {
    stage_.recorder.driverIsLoading();
    stage_.step.status = stage_.machine.loadDriver();
}

void StepActions::operator()(const UnloadDriver &) {
    if (!stage_.machine.driverLoaded()) {
        throw StepFailure("the driver is not loaded");
    }
    stage_.machine.unloadDriver();
}

void StepActions::operator()(const StartControlNode &) {
    stage_.recorder.controlNodeIsStarting(true);
    controlNode_ = &stage_.machine.plugControlNode();
    stage_.recorder.controlNodeIsStarting(false);
}

void StepActions::operator()(const PlugDevices &action) {
    for (const std::string &name : action.names) {
        plug(declared(name));
    }
    if (action.names.empty()) {
        for (const ScenarioDevice &device : stage_.scenario.devices) {
            if (stage_.machine.find(device.description.name) == nullptr) {
                plug(device);
            }
        }
    }
}

void StepActions::operator()(const UnplugDevices &action) {
    for (const std::string &name : action.names) {
        stage_.machine.unplug(present(name));
    }
}

void StepActions::operator()(const ReplugDevices &action) {
    for (const std::string &name : action.names) {
        sim::DeviceNode &node = present(name);
        stage_.recorder.forget(node);
        const bool isControlNode = &node == controlNode_;
        stage_.recorder.controlNodeIsStarting(isControlNode);
        sim::DeviceNode &again = stage_.machine.replug(node);
        stage_.recorder.controlNodeIsStarting(false);
        controlNode_ = isControlNode ? &again : controlNode_;
    }
}

void StepActions::operator()(const ChangeRegistry &action) {
    applyRegistry(stage_.machine, action.changes);
}

void StepActions::operator()(const ChangeFiles &action) {
    applyFiles(stage_.machine, action.files);
    stage_.recorder.skipPresentFiles();
}

void StepActions::operator()(const SetClock &action) {
    sim::Clock &clock = stage_.machine.kernel().clock;
    clock.set(action.localTime + clock.bias());
}

void StepActions::operator()(const AdvanceClock &action) {
    stage_.machine.kernel().clock.advance(action.units);
}

void StepActions::operator()(const PlanFaults &action) {
    stage_.faults.setStanding(action.faults);
}

void StepActions::operator()(const SetVolume &action) {
    sim::FileSystem &files = stage_.machine.kernel().files;
    files.setMounted(action.state != SetVolume::State::unmounted);
    files.setFull(action.state == SetVolume::State::full);
}

void StepActions::operator()(const SetLogWorkers &action) {
    if (action.paused) {
        stage_.machine.kernel().workers.pause();
    } else {
        stage_.machine.kernel().workers.resume();
    }
}

void StepActions::operator()(const ChangePower &action) {
    switch (action.to) {
    case ChangePower::To::sleep:
        return stage_.machine.sleep();
    case ChangePower::To::wake:
        return stage_.machine.wake();
    case ChangePower::To::shutDown:
        return stage_.machine.shutDown();
    }
}

void StepActions::operator()(const UseDisk &action) {
    stage_.disks.use(action, presentDisk(action.disk), stage_.step);
}

void StepActions::operator()(const AwaitDisk &action) {
    if (!stage_.disks.await(action.disk, stage_.step)) {
        throw StepFailure(fmt::format("no request to '{}' is under way", action.disk));
    }
}

void StepActions::operator()(const SaveToVolume &action) {
    stage_.step.status = mounted(action.disk)->save(action.offset, action.data);
}

void StepActions::operator()(const WriteBack &action) {
    mounted(action.disk)->writeBack();
}

void StepActions::operator()(const MountMedium &action) {
    if (stage_.machine.mount(presentDisk(action.disk)) == nullptr) {
        throw StepFailure(fmt::format("'{}' does not run", action.disk));
    }
}

void StepActions::operator()(const ChangeMedium &action) {
    sim::Medium &medium = stage_.machine.medium(presentDisk(action.disk).description().name);
    medium.setPresent(action.present.value_or(medium.present()));
    medium.setWriteProtected(action.writeProtected.value_or(medium.writeProtected()));
    if (action.stalled) {
        *action.stalled ? medium.stall() : medium.resume();
    }
}

void StepActions::operator()(const ProcessAction &action) {
    stage_.step.status = stage_.processes.perform(action);
}

} // namespace cli
