#include "log_lines.h"

#include "simulator/kernel/strings.h"

namespace behaviour::lines {

std::string utf8(std::u16string_view text) {
    return sim::toUtf8(text);
}

std::string list(const std::vector<std::u16string> &ids) {
    std::u16string joined;
    for (std::size_t index = 0; index < ids.size(); ++index) {
        joined += (index == 0 ? u"" : std::u16string(1, u'\0')) + ids[index];
    }
    return utf8(joined);
}

Lines asked(const std::vector<std::u16string> &hardwareIds) {
    return {"INFO onDriverDeviceAdd hardwareIds = " + list(hardwareIds)};
}

Lines created(const std::vector<std::u16string> &hardwareIds) {
    return all(asked(hardwareIds), Lines{"INFO UsbFilterDevice create, hardwareIds = " + list(hardwareIds)});
}

Lines searched(const std::vector<std::string> &drivers) {
    Lines lines;
    for (const std::string &driver : drivers) {
        lines.push_back("INFO Search no usbhub devices, check name = " + driver);
    }
    return lines;
}

Lines reload(const Policy &policy) {
    Lines lines{"INFO Release the rule storage resources"};
    for (const auto &[name, list] : policy.values()) {
        lines.push_back("INFO Query multistring key, parameter = " + utf8(name));
        if (list->form == RuleList::Form::text) {
            lines.push_back("INFO Value type in registry is not multistring");
            lines.push_back("INFO Query string key, parameter = " + utf8(name));
        }
        for (const std::u16string &rule : list->rules()) {
            lines.push_back("INFO putIdToContainerWithSerial rule = " + utf8(rule));
        }
    }
    return lines;
}

Lines judged(const Policy &policy, const std::vector<std::u16string> &hardwareIds, std::u16string_view serial,
             bool allowed, bool readOnly) {
    const std::string who = ", hardwareIds = " + list(hardwareIds) + ", serial = " + utf8(serial) + ", result = ";
    Lines lines = all(Lines{"INFO Try to get usb mode from rule storage"}, reload(policy));
    lines.push_back("INFO Check request isAllowed" + who + (allowed ? "1" : "0"));
    if (!allowed) {
        lines.push_back("INFO Check request isReadOnly" + who + (readOnly ? "1" : "0"));
    }
    return lines;
}

Lines notFilterable() {
    return {"INFO retreiveUsbMode Device is not filterable so it will be allowed"};
}

Lines blocked(const std::vector<std::u16string> &hardwareIds) {
    return {"INFO Process rules, UsbMode::Blocked, hardwareIds = " + list(hardwareIds)};
}

Lines removedFromRegister(const std::vector<std::u16string> &hardwareIds) {
    return {"INFO Remove blocked device, hardwareIds = " + list(hardwareIds)};
}

Lines notified(int mode, int ruleType, std::u16string_view deviceName) {
    return {"INFO Send notification, device type = 1, device mode = " + std::to_string(mode) +
            ", rule type = " + std::to_string(ruleType) + ", m_apiRegistered = 0, device name = " + utf8(deviceName)};
}

} // namespace behaviour::lines
