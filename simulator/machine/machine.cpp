#include "machine.h"

#include "driver_under_test.h"
#include "plug_and_play.h"
#include "property_provider.h"
#include "setup_classes.h"
#include "standard_devices.h"

#include "../framework/framework.h"
#include "../kernel/strings.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

namespace sim {

using namespace machine;

namespace {

/// A folder of the caller's stays; one of our own goes unless it is to be kept.
bool keepsFiles(const MachineOptions &options) {
    return options.keepFiles || !options.systemRoot.empty();
}

} // namespace

struct Machine::Implementation {
    explicit Implementation(MachineOptions given)
        : options(std::move(given)), kernel(options.systemRoot, keepsFiles(options)),
          driver([this] { return openImage(); }),
          services([this] { return loadOnDemand(); }, [this] { return driver.object(); }),
          plugAndPlay(services, options.hubStatuses), properties(plugAndPlay.tree()) {
        kernel.deviceProperties = &properties;
        kernel.runLater = [this](std::function<void()> action) { plugAndPlay.runLater(std::move(action)); };
        kernel.deviceFileClosed = [this] {
            plugAndPlay.fileClosed();
            finishUnload();
        };
        fillRegistry();
        for (const std::u16string &hub : options.hubDrivers) {
            if (!Services::isHubDriver(hub)) {
                throw std::invalid_argument("\"" + toUtf8(hub) + "\" is no hub driver that this machine has");
            }
            services.load(hub);
        }
    }

    /// A machine that is switched off takes its driver along, so that the next one finds nothing of it.
    ~Implementation() {
        kernel.faults.clear();
        kernel.workers.resume();
        kernel.workers.drain();
        plugAndPlay.observer = nullptr;
        if (PDRIVER_OBJECT object = driver.object()) {
            plugAndPlay.removeDevicesOf(object);
        }
        plugAndPlay.runPending();
        driver.switchOff();
        kernel.deviceFileClosed = nullptr;
        kernel.runLater = nullptr;
        kernel.deviceProperties = nullptr;
    }

    std::unique_ptr<DriverImage> openImage() const {
        if (options.openImage) {
            return options.openImage();
        }
        return openDriver(options.driver.empty() ? defaultDriver() : options.driver);
    }

    /// What a stack that needs the driver meets: a module that cannot be opened is a load that failed.
    NTSTATUS loadOnDemand() {
        try {
            return driver.load();
        } catch (const std::runtime_error &) {
            return STATUS_OBJECT_NAME_NOT_FOUND;
        }
    }

    void fillRegistry() {
        Registry &registry = kernel.registry;
        for (const SetupClass &setupClass : setupClasses()) {
            const std::u16string key = Machine::classKey(setupClass.guid);
            registry.makeKey(key);
            registry.setString(key, u"Class", setupClass.name);
        }
        registry.makeKey(enumKey);
        services.declare(driverService);
        registry.makeKey(Machine::parametersKey());
        services.declare(u"USBHUB3");
        services.declare(u"USBHUB");
    }

    /// learn.microsoft.com: DRIVER_UNLOAD: a driver stays while it has devices.
    bool finishUnload() {
        if (!unloadWanted || driver.inUse()) {
            return false;
        }
        if (unloadWanted.exchange(false)) {
            driver.unload();
        }
        return true;
    }

    Node &hostController() {
        Node *node = plugAndPlay.tree().byName("host-controller");
        if (node != nullptr) {
            return *node;
        }
        node = &plugAndPlay.tree().root();
        for (const DeviceDescription &description : hostControllerPath()) {
            Node *existing = plugAndPlay.tree().byName(description.name);
            node = existing != nullptr ? existing : &plugAndPlay.plug(description, *node);
        }
        return *node;
    }

    Node &rootHub() {
        if (Node *node = plugAndPlay.tree().byName("root-hub")) {
            return *node;
        }
        if (options.hubDrivers.empty()) {
            throw std::logic_error("this machine has no hub driver and therefore no root hub");
        }
        return plugAndPlay.plug(rootHubDescription(options.hubDrivers.front()), hostController());
    }

    MachineOptions options;
    Kernel kernel;
    DriverUnderTest driver;
    Services services;
    PlugAndPlay plugAndPlay;
    PropertyProvider properties;
    std::atomic<bool> unloadWanted = false; ///< an open handle keeps a device of the driver, and so the driver
    std::recursive_mutex standardDevices;   ///< makes the host controller and the root hub only once
};

Machine::Machine(MachineOptions options) : implementation_(std::make_unique<Implementation>(std::move(options))) {}

Machine::~Machine() = default;

Kernel &Machine::kernel() {
    return implementation_->kernel;
}

void Machine::setObserver(MachineObserver *observer) {
    implementation_->plugAndPlay.observer = observer;
}

std::u16string Machine::serviceKey() {
    return Services::keyOf(driverService);
}

std::u16string Machine::parametersKey() {
    return serviceKey() + u"\\Parameters";
}

std::u16string Machine::classKey(std::u16string_view classGuid) {
    return std::u16string(classesKey) + u"\\" + std::u16string(classGuid);
}

void Machine::presetClassFilters() {
    Registry &registry = kernel().registry;
    for (const FilterList &list : driverFilterLists()) {
        const std::u16string key = classKey(list.setupClass.guid);
        const std::u16string valueName(list.valueName);
        auto names = registry.multiString(key, valueName).value_or(std::vector<std::u16string>{});
        if (std::none_of(names.begin(), names.end(),
                         [](const auto &name) { return equalNoCase(name, driverService); })) {
            names.emplace_back(driverService);
            registry.setMultiString(key, valueName, names);
        }
    }
}

void Machine::addService(std::u16string_view name) {
    implementation_->services.declare(name);
}

NTSTATUS Machine::loadDriver() {
    return implementation_->driver.load();
}

bool Machine::driverLoaded() const {
    return driverObject() != nullptr;
}

PDRIVER_OBJECT Machine::driverObject() const {
    return implementation_->driver.object();
}

bool Machine::unloadDriver() {
    PDRIVER_OBJECT driver = driverObject();
    if (driver == nullptr) {
        return true;
    }
    implementation_->plugAndPlay.removeDevicesOf(driver);
    settle();
    implementation_->unloadWanted = true;
    return implementation_->finishUnload();
}

DeviceNode &Machine::plugControlNode() {
    return plug(controlNodeDescription(), &rootNode());
}

DeviceNode &Machine::rootNode() {
    return implementation_->plugAndPlay.tree().root();
}

DeviceNode &Machine::hostController() {
    const std::lock_guard guard(implementation_->standardDevices);
    Node &controller = implementation_->hostController();
    if (controller.started() && !implementation_->options.hubDrivers.empty()) {
        implementation_->rootHub();
    }
    return controller;
}

DeviceNode &Machine::rootHub() {
    const std::lock_guard guard(implementation_->standardDevices);
    return implementation_->rootHub();
}

DeviceNode &Machine::pciRoot() {
    return *hostController().parent();
}

DeviceNode &Machine::plug(DeviceDescription description, DeviceNode *parent) {
    Node &below = static_cast<Node &>(parent != nullptr ? *parent : rootHub());
    return implementation_->plugAndPlay.plug(std::move(description), below);
}

void Machine::unplug(DeviceNode &node) {
    implementation_->plugAndPlay.unplug(static_cast<Node &>(node));
}

DeviceNode &Machine::replug(DeviceNode &node) {
    return implementation_->plugAndPlay.replug(static_cast<Node &>(node));
}

DeviceNode *Machine::find(std::string_view name) {
    return implementation_->plugAndPlay.tree().byName(name);
}

Medium &Machine::medium(std::string_view disk) {
    const std::shared_ptr<Medium> found = implementation_->plugAndPlay.media().find(std::string(disk));
    if (found == nullptr) {
        throw std::invalid_argument("there never was a disk \"" + std::string(disk) + "\"");
    }
    return *found;
}

std::shared_ptr<Volume> Machine::volume(std::string_view disk) {
    return implementation_->plugAndPlay.volume(std::string(disk));
}

std::shared_ptr<Volume> Machine::mount(DeviceNode &disk) {
    return implementation_->plugAndPlay.mount(static_cast<Node &>(disk));
}

std::vector<DeviceNode *> Machine::nodes() {
    const std::vector<Node *> all = implementation_->plugAndPlay.tree().all();
    return {all.begin(), all.end()};
}

bool Machine::settle() {
    WorkQueue &workers = implementation_->kernel.workers;
    const bool done = implementation_->plugAndPlay.runPending();
    if (workers.mode() == WorkQueue::Mode::free) {
        workers.drain();
    } else {
        workers.settle();
    }
    implementation_->driver.unmapUnused();
    return done;
}

std::size_t Machine::waitingForDevices() const {
    return implementation_->plugAndPlay.tree().claimants();
}

std::vector<std::string> Machine::leaks() {
    settle();
    std::vector<std::string> lines = kernel().leaks();
    for (std::string &line : framework::leaks()) {
        lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace sim
