#include "stack_plan.h"

#include "services.h"

namespace sim::machine {

namespace {

std::u16string classKeyOf(const DeviceDescription &description) {
    return std::u16string(classesKey) + u"\\" + *description.classGuid;
}

void addFilters(std::vector<StackMember> &plan, const std::vector<std::u16string> &services) {
    for (const std::u16string &service : services) {
        if (!service.empty()) {
            plan.push_back({service, StackRole::filter});
        }
    }
}

void addClassFilters(std::vector<StackMember> &plan, const DeviceDescription &description, const Registry &registry,
                     std::u16string_view valueName) {
    if (description.classGuid) {
        addFilters(plan,
                   registry.multiString(classKeyOf(description), valueName).value_or(std::vector<std::u16string>{}));
    }
}

} // namespace

std::vector<StackMember> planStack(const DeviceDescription &description, const Registry &registry) {
    std::vector<StackMember> plan;
    addFilters(plan, description.lowerFilters);
    addClassFilters(plan, description, registry, u"LowerFilters");
    if (description.service) {
        plan.push_back({*description.service, StackRole::function});
    }
    addFilters(plan, description.upperFilters);
    addClassFilters(plan, description, registry, u"UpperFilters");
    return plan;
}

std::vector<std::uint8_t> configuredSecurity(const DeviceDescription &description, const Registry &registry) {
    const std::u16string deviceKey = std::u16string(enumKey) + u"\\" + description.instanceId;
    if (const auto own = registry.value(deviceKey, u"Security"); own && own->type == REG_BINARY) {
        return own->data;
    }
    if (description.classGuid) {
        const auto ofClass = registry.value(classKeyOf(description), u"Security");
        if (ofClass && ofClass->type == REG_BINARY) {
            return ofClass->data;
        }
    }
    return {};
}

} // namespace sim::machine
