#include "machine_setup.h"

#include <algorithm>

namespace cli {
namespace {

/// Where a scenario's files are kept: as it lies below the current folder, or by its name alone.
std::filesystem::path placeFor(const std::string &file) {
    const std::filesystem::path path = std::filesystem::path(file).lexically_normal();
    const bool below = path.is_relative() && *path.begin() != "..";
    return below ? std::filesystem::path(path).replace_extension() : path.stem();
}

} // namespace

sim::MachineOptions machineOptions(const Scenario &scenario, const PlayOptions &options) {
    sim::MachineOptions machine;
    machine.driver = options.driver;
    machine.openImage = options.openImage;
    machine.hubDrivers = scenario.hubDrivers;
    if (!options.keepFiles.empty()) {
        machine.systemRoot = options.keepFiles / placeFor(scenario.file);
        if (std::filesystem::exists(machine.systemRoot)) {
            throw UnusableFile({machine.systemRoot.string(), 0}, "exists already; files are kept in a new folder only");
        }
        machine.keepFiles = true;
    }
    return machine;
}

void setUp(sim::Machine &machine, const Scenario &scenario) {
    sim::Kernel &kernel = machine.kernel();
    kernel.clock.setBias(scenario.bias);
    if (scenario.localTime) {
        kernel.clock.set(*scenario.localTime + scenario.bias);
    }
    if (!scenario.logInOrder) {
        kernel.workers.setMode(sim::WorkQueue::Mode::free);
    }
    for (const std::u16string &routine : scenario.missingRoutines) {
        kernel.systemRoutines[routine] = nullptr;
    }
    // The machine's own hub is there before the driver, which so never sees it; a scenario that wants the driver on a
    // hub describes one.
    const bool usesRootHub = std::any_of(scenario.devices.begin(), scenario.devices.end(), [](const auto &device) {
        return device.parent.empty() && device.description.hasParent;
    });
    if (usesRootHub) {
        machine.rootHub();
    }
    for (const std::u16string &service : scenario.services) {
        machine.addService(service);
    }
    if (scenario.installed) {
        machine.presetClassFilters();
    }
    applyRegistry(machine, scenario.registry);
    applyFiles(machine, scenario.files);
}

void applyRegistry(sim::Machine &machine, const RegistryChanges &changes) {
    sim::Registry &registry = machine.kernel().registry;
    for (const RegOperation &change : changes) {
        switch (change.kind) {
        case RegOperation::Kind::makeKey:
            registry.makeKey(change.key);
            break;
        case RegOperation::Kind::deleteKey:
            registry.deleteKey(change.key);
            break;
        case RegOperation::Kind::setValue:
            registry.makeKey(change.key);
            registry.setValue(change.key, change.name, change.value.type, change.value.data);
            break;
        case RegOperation::Kind::deleteValue:
            registry.deleteValue(change.key, change.name);
            break;
        }
    }
}

void applyFiles(sim::Machine &machine, const std::vector<TempFile> &files) {
    sim::FileSystem &fileSystem = machine.kernel().files;
    for (const TempFile &file : files) {
        if (file.bytes) {
            fileSystem.putTempFile(file.name, *file.bytes);
        } else {
            std::filesystem::remove(fileSystem.systemRoot() / "Temp" / file.name);
        }
    }
}

} // namespace cli
