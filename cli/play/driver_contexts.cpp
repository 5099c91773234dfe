// The only file of the command that knows layouts of the driver: its own headers, read from outside.

#include "driver_contexts.h"

#include "../../simulator/framework/framework.h"
#include "../facts/message_fields.h"

#include "control/control_device.h"
#include "driver/driver_context.h"
#include "driver/usb_filter_device.h"

#include <type_traits>

namespace cli {
namespace {

struct ContextKind {
    const char *typeName;
    const char *word;
};

constexpr ContextKind contextKinds[] = {
    {"UsbFilterDevice", "usb-filter"},
    {"ControlDevice", "control-device"},
};

static_assert(sizeof(ServiceMessage) == serviceMessageSize);

} // namespace

std::string attachedKind(PDEVICE_OBJECT device) {
    if (device == nullptr) {
        return "nothing";
    }
    for (const ContextKind &kind : contextKinds) {
        if (sim::framework::contextOfDevice(device, kind.typeName) != nullptr) {
            return kind.word;
        }
    }
    return "disk";
}

std::optional<FilterValues> readFilterValues(PDEVICE_OBJECT device) {
    if (device == nullptr) {
        return std::nullopt;
    }
    const auto *context =
        static_cast<const UsbFilterDevice *>(sim::framework::contextOfDevice(device, "UsbFilterDevice"));
    if (context == nullptr) {
        return std::nullopt;
    }
    FilterValues values;
    values.filterable = context->filterable;
    values.mode = static_cast<std::uint32_t>(context->mode);
    values.ruleType = static_cast<std::uint32_t>(context->ruleType);
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(&context->message);
    values.message.assign(bytes, bytes + sizeof context->message);
    return values;
}

std::optional<DriverState> readDriverState(PDRIVER_OBJECT driver) {
    if (driver == nullptr) {
        return std::nullopt;
    }
    const auto *context = static_cast<const DriverContext *>(sim::framework::contextOfDriver(driver, "DriverContext"));
    if (context == nullptr) {
        return std::nullopt;
    }
    DriverState state;
    const ControlDevice *control = context->controlDevice;
    state.controlDevice = control != nullptr;
    state.serviceRegistered = control != nullptr && control->m_apiRegistered != FALSE;
    if (control != nullptr) {
        state.serviceProcess = control->m_processId;
        state.serviceHandles = control->m_openCount;
    }
    state.callbackMode = context->callbackMode;
    state.fallbackAction = context->callbackFallbackAction;
    return state;
}

} // namespace cli
