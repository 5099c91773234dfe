#include "status_names.h"

#include <fmt/format.h>

#include <charconv>
#include <unordered_map>

namespace cli {
namespace {

struct StatusName {
    NTSTATUS status;
    const char *name;
};

#define ENTRY(name) {name, #name}
const StatusName table[] = {ENTRY(STATUS_SUCCESS),
                            ENTRY(STATUS_TIMEOUT),
                            ENTRY(STATUS_PENDING),
                            ENTRY(STATUS_SOME_NOT_MAPPED),
                            ENTRY(STATUS_OBJECT_NAME_EXISTS),
                            ENTRY(STATUS_WDF_QUEUED),
                            ENTRY(STATUS_DATATYPE_MISALIGNMENT),
                            ENTRY(STATUS_BUFFER_OVERFLOW),
                            ENTRY(STATUS_NO_MORE_FILES),
                            ENTRY(STATUS_DEVICE_BUSY),
                            ENTRY(STATUS_NO_MORE_ENTRIES),
                            ENTRY(STATUS_UNSUCCESSFUL),
                            ENTRY(STATUS_NOT_IMPLEMENTED),
                            ENTRY(STATUS_INVALID_INFO_CLASS),
                            ENTRY(STATUS_INFO_LENGTH_MISMATCH),
                            ENTRY(STATUS_ACCESS_VIOLATION),
                            ENTRY(STATUS_INVALID_HANDLE),
                            ENTRY(STATUS_INVALID_PARAMETER),
                            ENTRY(STATUS_NO_SUCH_DEVICE),
                            ENTRY(STATUS_NO_SUCH_FILE),
                            ENTRY(STATUS_INVALID_DEVICE_REQUEST),
                            ENTRY(STATUS_END_OF_FILE),
                            ENTRY(STATUS_NO_MEDIA_IN_DEVICE),
                            ENTRY(STATUS_NO_MEMORY),
                            ENTRY(STATUS_ACCESS_DENIED),
                            ENTRY(STATUS_BUFFER_TOO_SMALL),
                            ENTRY(STATUS_OBJECT_TYPE_MISMATCH),
                            ENTRY(STATUS_OBJECT_NAME_INVALID),
                            ENTRY(STATUS_OBJECT_NAME_NOT_FOUND),
                            ENTRY(STATUS_OBJECT_NAME_COLLISION),
                            ENTRY(STATUS_OBJECT_PATH_INVALID),
                            ENTRY(STATUS_OBJECT_PATH_NOT_FOUND),
                            ENTRY(STATUS_OBJECT_PATH_SYNTAX_BAD),
                            ENTRY(STATUS_SHARING_VIOLATION),
                            ENTRY(STATUS_DELETE_PENDING),
                            ENTRY(STATUS_REVISION_MISMATCH),
                            ENTRY(STATUS_PRIVILEGE_NOT_HELD),
                            ENTRY(STATUS_INVALID_ACL),
                            ENTRY(STATUS_INVALID_SID),
                            ENTRY(STATUS_INVALID_SECURITY_DESCR),
                            ENTRY(STATUS_INVALID_IMAGE_FORMAT),
                            ENTRY(STATUS_DISK_FULL),
                            ENTRY(STATUS_RESOURCE_DATA_NOT_FOUND),
                            ENTRY(STATUS_INTEGER_OVERFLOW),
                            ENTRY(STATUS_ALLOTTED_SPACE_EXCEEDED),
                            ENTRY(STATUS_INSUFFICIENT_RESOURCES),
                            ENTRY(STATUS_DEVICE_NOT_CONNECTED),
                            ENTRY(STATUS_MEDIA_WRITE_PROTECTED),
                            ENTRY(STATUS_DEVICE_NOT_READY),
                            ENTRY(STATUS_IO_TIMEOUT),
                            ENTRY(STATUS_FILE_IS_A_DIRECTORY),
                            ENTRY(STATUS_NOT_SUPPORTED),
                            ENTRY(STATUS_DEVICE_DOES_NOT_EXIST),
                            ENTRY(STATUS_BAD_DEVICE_TYPE),
                            ENTRY(STATUS_REQUEST_NOT_ACCEPTED),
                            ENTRY(STATUS_INTERNAL_ERROR),
                            ENTRY(STATUS_BAD_DESCRIPTOR_FORMAT),
                            ENTRY(STATUS_INVALID_PARAMETER_1),
                            ENTRY(STATUS_INVALID_PARAMETER_2),
                            ENTRY(STATUS_INVALID_PARAMETER_3),
                            ENTRY(STATUS_INVALID_PARAMETER_4),
                            ENTRY(STATUS_INVALID_PARAMETER_5),
                            ENTRY(STATUS_DIRECTORY_NOT_EMPTY),
                            ENTRY(STATUS_NOT_A_DIRECTORY),
                            ENTRY(STATUS_NAME_TOO_LONG),
                            ENTRY(STATUS_CANCELLED),
                            ENTRY(STATUS_CANNOT_DELETE),
                            ENTRY(STATUS_DLL_NOT_FOUND),
                            ENTRY(STATUS_ENTRYPOINT_NOT_FOUND),
                            ENTRY(STATUS_DEVICE_CONFIGURATION_ERROR),
                            ENTRY(STATUS_DRIVER_INTERNAL_ERROR),
                            ENTRY(STATUS_INVALID_DEVICE_STATE),
                            ENTRY(STATUS_INVALID_BUFFER_SIZE),
                            ENTRY(STATUS_IMAGE_CHECKSUM_MISMATCH),
                            ENTRY(STATUS_NOT_FOUND),
                            ENTRY(STATUS_RESOURCE_NOT_OWNED),
                            ENTRY(STATUS_DRIVER_UNABLE_TO_LOAD),
                            ENTRY(STATUS_DEVICE_REMOVED),
                            ENTRY(STATUS_WDF_INTERNAL_ERROR),
                            ENTRY(STATUS_WDF_PAUSED),
                            ENTRY(STATUS_WDF_BUSY),
                            ENTRY(STATUS_WDF_DEVICE_REMOVED_NOT_SENT),
                            ENTRY(STATUS_WDF_OBJECT_ATTRIBUTES_INVALID),
                            ENTRY(STATUS_WDF_NO_CALLBACK),
                            ENTRY(STATUS_WDF_PARENT_ASSIGNMENT_NOT_ALLOWED),
                            ENTRY(STATUS_WDF_SYNCHRONIZATION_SCOPE_INVALID),
                            ENTRY(STATUS_WDF_EXECUTION_LEVEL_INVALID),
                            ENTRY(STATUS_WDF_PARENT_NOT_SPECIFIED)};
#undef ENTRY

} // namespace

std::string_view statusName(NTSTATUS status) {
    static const auto names = [] {
        std::unordered_map<NTSTATUS, std::string_view> map;
        for (const StatusName &entry : table) {
            map.emplace(entry.status, entry.name);
        }
        return map;
    }();
    const auto found = names.find(status);
    return found == names.end() ? std::string_view() : found->second;
}

std::string statusCode(NTSTATUS status) {
    return fmt::format("0x{:08X}", static_cast<std::uint32_t>(status));
}

std::string describeStatus(NTSTATUS status) {
    const std::string_view name = statusName(status);
    return name.empty() ? statusCode(status) : fmt::format("{} ({})", name, statusCode(status));
}

std::optional<NTSTATUS> parseStatus(std::string_view text) {
    for (const StatusName &entry : table) {
        if (text == entry.name) {
            return entry.status;
        }
    }
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return static_cast<NTSTATUS>(number);
}

const std::vector<std::string> &statusNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const StatusName &entry : table) {
            list.emplace_back(entry.name);
        }
        return list;
    }();
    return names;
}

} // namespace cli
