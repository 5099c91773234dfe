#include "machine_room.h"

#include "simulator/kernel/io.h"
#include "simulator/kernel/strings.h"
#include "support/text.h"

#include <fmt/format.h>

#include <stdexcept>
#include <vector>

namespace bench {
namespace {

WCHAR libraryName[] = L"KmdfLibrary";

constexpr std::u16string_view parametersKey =
    u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver\\Parameters";

NTSTATUS NTAPI refuseDevice(WDFDRIVER, PWDFDEVICE_INIT) {
    return STATUS_NOT_SUPPORTED;
}

void require(NTSTATUS status, const char *what) {
    if (!NT_SUCCESS(status)) {
        throw std::runtime_error(fmt::format("{}: 0x{:08x}", what, static_cast<std::uint32_t>(status)));
    }
}

} // namespace

MachineRoom::MachineRoom()
    : path_(u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver"),
      driver_(sim::createDriverObject(u"Bench")) {
    const auto bytes = static_cast<USHORT>(path_.size() * sizeof(char16_t));
    registryPath_ = {bytes, bytes, reinterpret_cast<PWSTR>(path_.data())};
    bindInfo_ = {sizeof(WDF_BIND_INFO),          libraryName,   {1, 15, 0},
                 WDF_FUNCTION_TABLE_NUM_ENTRIES, &WdfFunctions, nullptr};
    WDF_DRIVER_CONFIG config;
    WDF_DRIVER_CONFIG_INIT(&config, refuseDevice);
    require(WdfVersionBind(driver_, &registryPath_, &bindInfo_, &WdfDriverGlobals), "binding to the framework");
    require(WdfDriverCreate(driver_, &registryPath_, WDF_NO_OBJECT_ATTRIBUTES, &config, nullptr), "driver object");
    openLogger(log_, driver_);
    enableLog();
    setLogLevel(0);
}

MachineRoom::~MachineRoom() {
    kernel.workers.resume();
    kernel.workers.drain();
    closeLogger(log_);
    driver_->DriverUnload(driver_);
    WdfVersionUnbind(&registryPath_, &bindInfo_, WdfDriverGlobals);
    WdfFunctions = nullptr;
    WdfDriverGlobals = nullptr;
    sim::deleteDriverObject(driver_);
}

RuleRoom::RuleRoom(unsigned count) {
    std::vector<std::u16string> rules;
    for (unsigned number = 0; number < count; ++number) {
        rules.push_back(sim::toUtf16(
            fmt::format("VID_{:04X}&PID_{:04X}\\4C5300{:014}", 0x1000 + number % 251, number % 65521, number)));
    }
    kernel.registry.makeKey(parametersKey);
    kernel.registry.setString(parametersKey, u"BlockedCompatibleIds", u"Class_08 MS_COMP_MTP");
    kernel.registry.setMultiString(parametersKey, u"AllowedHardwareIds", rules);
    kernel.registry.setMultiString(parametersKey, u"ReadOnlyHardwareIds", {u"VID_0951&PID_1666"});
    storage_.initializeRules();
    storage_.initializeLock();
    reload();
}

RuleRoom::~RuleRoom() {
    storage_.clearRules();
    storage_.deleteLock();
}

void RuleRoom::reload() {
    require(storage_.reload(), "reading the rules");
}

bool RuleRoom::match() {
    // A list as Plug and Play gives it: two ids with a NUL between them.
    static const WCHAR list[] = L"USB\\VID_0781&PID_5581&REV_0100\0USB\\VID_0781&PID_5581";
    const UNICODE_STRING ids = literal(list);
    const UNICODE_STRING serial = literal(L"A20054F50D478A23");
    return storage_.isAllowed(ids, serial) || storage_.isReadOnly(ids, serial);
}

} // namespace bench
