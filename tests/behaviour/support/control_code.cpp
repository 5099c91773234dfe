#include "control_code.h"

#include <algorithm>
#include <cstring>

namespace behaviour {

std::u16string ControlAnswer::text(std::size_t offset, std::size_t bytes) const {
    std::u16string field(bytes / 2, u'\0');
    std::memcpy(field.data(), output.data() + offset, bytes);
    return field.substr(0, field.find(u'\0'));
}

std::uint32_t ControlAnswer::number(std::size_t offset) const {
    std::uint32_t value = 0;
    std::memcpy(&value, output.data() + offset, sizeof(value));
    return value;
}

ControlAnswer sendControlCode(sim::DeviceNode &controlNode, std::uint32_t code, std::size_t outputBytes,
                              std::vector<std::uint8_t> input) {
    std::vector<std::uint8_t> buffer(std::max(outputBytes, input.size()), 0xCC);
    std::copy(input.begin(), input.end(), buffer.begin());
    PDEVICE_OBJECT top = IoGetAttachedDeviceReference(controlNode.physicalDevice());
    ULONG_PTR information = 0;
    ControlAnswer answer;
    answer.status = FsRtlIssueDeviceIoControl(top, code, 0, buffer.data(), static_cast<ULONG>(input.size()),
                                              buffer.data(), static_cast<ULONG>(outputBytes), &information);
    ObDereferenceObject(top);
    answer.information = information;
    buffer.resize(outputBytes);
    answer.output = std::move(buffer);
    return answer;
}

} // namespace behaviour
