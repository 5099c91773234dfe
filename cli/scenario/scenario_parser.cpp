#include "scenario_parser.h"

#include "device_library.h"
#include "device_parser.h"
#include "expectation_parser.h"
#include "registry_parser.h"
#include "step_parser.h"
#include "suggestion.h"
#include "time_parser.h"

#include <fmt/format.h>

#include <filesystem>
#include <unordered_set>

namespace cli {
namespace {

void readTime(MapReader &reader, Scenario &scenario) {
    if (const auto clock = reader.take("clock")) {
        if (const auto text = clock->text("clock")) {
            scenario.localTime = parseDateTime(*text);
            if (!scenario.localTime) {
                clock->problem(
                    fmt::format("clock must be a local time such as 2024-03-07 9:05:01.042, found '{}'", *text));
            }
        }
    }
    if (const auto offset = reader.take("utc-offset")) {
        if (const auto text = offset->text("utc-offset")) {
            const auto units = parseUtcOffset(*text);
            if (!units) {
                offset->problem(fmt::format("utc-offset must be written like +01:00, found '{}'", *text));
            }
            scenario.bias = -units.value_or(0);
        }
    }
}

void readMachine(MapReader &reader, Scenario &scenario) {
    if (const auto hubs = reader.take("hub-drivers")) {
        scenario.hubDrivers = parseUtf16List(*hubs, "hub-drivers");
    }
    if (const auto services = reader.take("services")) {
        scenario.services = parseUtf16List(*services, "services");
    }
    if (const auto routines = reader.take("missing-routines")) {
        scenario.missingRoutines = parseUtf16List(*routines, "missing-routines");
    }
    if (const auto installed = reader.take("installed")) {
        scenario.installed = installed->flag("installed").value_or(false);
    }
    if (const auto workers = reader.take("log-workers")) {
        scenario.logInOrder = workers->word("log-workers", {"in-order", "free"}) != "free";
    }
    const auto append = [&](RegistryChanges changes) {
        for (RegOperation &change : changes) {
            scenario.registry.push_back(std::move(change));
        }
    };
    // A .reg file comes first, so that a value written in the scenario itself wins.
    if (const auto files = reader.take("reg-files")) {
        append(parseRegFiles(*files));
    }
    if (const auto policy = reader.take("policy")) {
        append(parsePolicy(*policy));
    }
    if (const auto registry = reader.take("registry")) {
        append(parseRegistryChanges(*registry));
    }
    if (const auto files = reader.take("files")) {
        scenario.files = parseTempFiles(*files);
    }
}

void readDevices(const YamlNode &node, Scenario &scenario) {
    MapReader(node, "devices");
    const DeviceLibrary &library = DeviceLibrary::nearestTo(scenario.file);
    for (const YamlEntry &entry : node.entries()) {
        ScenarioDevice device;
        device.where = entry.key.where();
        device.description.name = entry.name;
        MapReader reader(entry.value, "device '" + entry.name + "'");
        const auto parent = reader.take("parent");
        if (const auto expect = reader.take("expect")) {
            device.expectations = parseDeviceExpectations(*expect);
        }
        readDevice(reader, device.description, &library);
        if (parent) {
            device.parent = parent->text("parent").value_or(std::string());
        }
        if (device.parent == "none") {
            device.parent.clear();
            device.description.hasParent = false;
        }
        reader.finish();
        checkDevice(entry.key, device.description);
        if (entry.name == "control-node" || entry.name.find('/') != std::string::npos) {
            entry.key.problem("a device's name may not hold '/' and may not be control-node");
        }
        scenario.devices.push_back(std::move(device));
    }
}

/// Names of the devices as steps call them: children are PARENT/CHILD.
void collectPaths(const sim::DeviceDescription &device, const std::string &path, std::vector<std::string> &into) {
    into.push_back(path);
    for (const sim::DeviceDescription &child : device.children) {
        collectPaths(child, path + "/" + child.name, into);
    }
}

void namePaths(sim::DeviceDescription &device, const std::string &path) {
    for (sim::DeviceDescription &child : device.children) {
        namePaths(child, path + "/" + child.name);
    }
    device.name = path;
}

/// Reports names that no device has, before anything is played.
class NameCheck {
  public:
    NameCheck(const Scenario &scenario, Problems &problems) : problems_(problems) {
        for (const ScenarioDevice &device : scenario.devices) {
            collectPaths(device.description, device.description.name, names_);
        }
        names_.emplace_back("control-node");
        known_.insert(names_.begin(), names_.end());
    }

    void check(const std::string &name, const Location &where) {
        if (!known_.contains(name)) {
            problems_.add(where, fmt::format("there is no device '{}'{}", name, didYouMean(name, names_)));
        }
    }

    void check(const std::vector<std::string> &names, const Location &where) {
        for (const std::string &name : names) {
            check(name, where);
        }
    }

  private:
    std::vector<std::string> names_;
    std::unordered_set<std::string> known_;
    Problems &problems_;
};

/// The disk that a step is about; null for other steps.
const std::string *diskOf(const Action &action) {
    return std::visit(
        [](const auto &one) -> const std::string * {
            if constexpr (requires { one.disk; }) {
                return &one.disk;
            } else {
                return nullptr;
            }
        },
        action);
}

void checkNames(const Scenario &scenario, Problems &problems) {
    NameCheck names(scenario, problems);
    for (const ScenarioDevice &device : scenario.devices) {
        if (!device.parent.empty() && device.parent != "root" && device.parent != "pci") {
            names.check(device.parent, device.where);
        }
    }
    for (const Step &step : scenario.steps) {
        if (const auto *plug = std::get_if<PlugDevices>(&step.action)) {
            names.check(plug->names, step.where);
        } else if (const auto *unplug = std::get_if<UnplugDevices>(&step.action)) {
            names.check(unplug->names, step.where);
        } else if (const auto *replug = std::get_if<ReplugDevices>(&step.action)) {
            names.check(replug->names, step.where);
        } else if (const std::string *disk = diskOf(step.action)) {
            names.check(*disk, step.where);
        }
        for (const DiskExpectation &expectation : step.expectations.disks) {
            names.check(expectation.disk, expectation.where);
        }
        for (const auto &[device, expectation] : step.expectations.devices) {
            names.check(device, expectation.where);
        }
    }
}

/// What a file without steps does: the driver starts, then everything is plugged in.
std::vector<Step> usualSteps(const Location &where) {
    std::vector<Step> steps(3);
    steps[0].title = "load";
    steps[0].action = LoadDriver();
    steps[1].title = "start-control-node";
    steps[1].action = StartControlNode();
    steps[2].title = "plug all";
    steps[2].action = PlugDevices();
    for (Step &step : steps) {
        step.where = where;
    }
    return steps;
}

Scenario parse(const YamlNode &root, const std::string &path, Problems &problems) {
    Scenario scenario;
    scenario.file = path;
    scenario.name = std::filesystem::path(path).stem().string();
    if (!root.isMap()) {
        throw UnusableFile(Location{path, 1}, std::string("a scenario must be a map, found ") + root.kind());
    }
    MapReader reader(root, "scenario");
    if (const auto name = reader.take("name")) {
        scenario.name = name->text("name").value_or(scenario.name);
    }
    reader.take("shared"); // a place for anchors
    readTime(reader, scenario);
    readMachine(reader, scenario);
    if (const auto devices = reader.take("devices")) {
        readDevices(*devices, scenario);
    }
    const auto steps = reader.take("steps");
    scenario.steps = steps ? parseSteps(*steps) : usualSteps(root.where());
    reader.finish();
    checkNames(scenario, problems);
    for (ScenarioDevice &device : scenario.devices) {
        namePaths(device.description, device.description.name);
    }
    return scenario;
}

/// Reads with `root` giving the file's content; whatever ends the reading early is told beside what was found before.
template<typename Root>
Scenario parseAll(const std::string &path, Root root) {
    Problems problems;
    Scenario scenario;
    try {
        scenario = parse(root(problems), path, problems);
    } catch (const UnusableFile &unusable) {
        problems.add(unusable.problems());
    }
    if (!problems.empty()) {
        throw UnusableFile(problems.sorted());
    }
    return scenario;
}

} // namespace

Scenario readScenario(const std::string &path) {
    return parseAll(path, [&](Problems &problems) { return YamlNode::fromFile(path, problems); });
}

Scenario parseScenario(const std::string &text, const std::string &path) {
    return parseAll(path, [&](Problems &problems) { return YamlNode::fromText(text, path, problems); });
}

} // namespace cli
