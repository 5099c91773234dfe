#include "disk_room.h"

#include "linked_driver.h"
#include "simulator/framework/framework.h"
#include "simulator/machine/usb_device.h"

#include <fmt/format.h>

#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t transferBytes = 4096;
constexpr std::uint32_t geometryCode = 0x70000;
constexpr std::size_t geometryBytes = 24;

sim::MachineOptions optionsOfDisks() {
    sim::MachineOptions options;
    options.openImage = openLinkedDriver;
    return options;
}

void expectStatus(const sim::UserProcess::Io &io, NTSTATUS status, const char *what) {
    if (io->status() != status) {
        throw std::runtime_error(fmt::format("{}: 0x{:08x}", what, static_cast<std::uint32_t>(io->status())));
    }
}

} // namespace

DiskRoom::DiskRoom(bool filtered) : filtered_(filtered), machine_(optionsOfDisks()) {
    if (filtered) {
        machine_.presetClassFilters();
        sim::Registry &registry = machine_.kernel().registry;
        registry.setString(sim::Machine::parametersKey(), u"BlockedCompatibleIds", u"Class_08");
        registry.setString(sim::Machine::parametersKey(), u"AllowedHardwareIds", u"none");
        registry.setMultiString(sim::Machine::parametersKey(), u"ReadOnlyHardwareIds", {u"*"});
        demand(machine_.loadDriver(), "loading the driver");
        machine_.plugControlNode();
    }
    plugStick();
    if (filtered) {
        checkReadsPassBy();
    }
}

DiskRoom::~DiskRoom() {
    program_.die();
    machine_.unloadDriver();
}

void DiskRoom::plugStick() {
    machine_.plug(sim::usbFlashDrive("stick", {0x0781, 0x5581, 0x0100, u"SanDisk", u"Ultra", u"A20054F50D478A23"}));
    const sim::DeviceNode *disk = machine_.find("stick disk");
    if (disk == nullptr || !disk->started()) {
        throw std::runtime_error("the disk does not run");
    }
    demand(program_.open(disk->physicalDevice(), handle_), "opening the disk");
}

/// What is told of reads is only true while none of them enters the driver.
void DiskRoom::checkReadsPassBy() {
    read();
    PDEVICE_OBJECT filter = machine_.find("stick disk")->physicalDevice();
    while (filter->AttachedDevice != nullptr) {
        filter = filter->AttachedDevice;
    }
    if (sim::framework::handlerCalls(filter).reads != 0 || sim::framework::passedDown(filter).reads != 1) {
        throw std::runtime_error("a read entered the driver");
    }
}

void DiskRoom::read() {
    expectStatus(program_.read(handle_, 0, transferBytes), STATUS_SUCCESS, "read");
}

void DiskRoom::write() {
    expectStatus(program_.write(handle_, 0, std::vector<std::uint8_t>(transferBytes, 0x5A)),
                 filtered_ ? STATUS_ACCESS_DENIED : STATUS_SUCCESS, "write");
}

void DiskRoom::control() {
    expectStatus(program_.control(handle_, {geometryCode, {}, geometryBytes}), STATUS_SUCCESS, "control request");
}

} // namespace bench
