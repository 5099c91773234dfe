#include "../kernel/strings.h"
#include "device.h"
#include "framework.h"

#include <cstring>

namespace sim::framework {

namespace {

/// The body of a symbolic link object.
struct SymbolicLink {
    std::u16string target;
};

/// "\DosDevices" is another name of "\??".
std::u16string canonicalName(std::u16string_view name) {
    constexpr std::u16string_view alias = u"\\DosDevices\\";
    if (name.size() > alias.size() && equalNoCase(name.substr(0, alias.size()), alias)) {
        return u"\\??\\" + std::u16string(name.substr(alias.size()));
    }
    return std::u16string(name);
}

/// A link that stays for as long as this does.
class FoundLink {
  public:
    explicit FoundLink(std::u16string_view name) : object_(canonicalName(name), true) {}
    SymbolicLink *get() const { return static_cast<SymbolicLink *>(object_.ofType(sim::ObjectType::symbolicLink)); }

  private:
    const NamedObject object_;
};

} // namespace

NTSTATUS Device::nameOfPhysicalDevice(std::u16string &name) const {
    ULONG bytes = 0;
    NTSTATUS status = IoGetDeviceProperty(physical, DevicePropertyPhysicalDeviceObjectName, 0, nullptr, &bytes);
    if (status == STATUS_BUFFER_TOO_SMALL) {
        name.resize(bytes / sizeof(WCHAR));
        status = IoGetDeviceProperty(physical, DevicePropertyPhysicalDeviceObjectName, bytes, name.data(), &bytes);
    }
    name.resize(name.find(u'\0') == std::u16string::npos ? name.size() : name.find(u'\0'));
    return status;
}

// learn.microsoft.com: WdfDeviceCreateSymbolicLink; framework source: a device without a name links to the name of its
// physical device
NTSTATUS Device::createSymbolicLink(std::u16string name) {
    std::lock_guard lock(mutex_);
    if (!linkName_.empty()) {
        return STATUS_INVALID_DEVICE_REQUEST;
    }
    std::u16string target;
    const NTSTATUS status = nameOfPhysicalDevice(target);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (target.empty()) {
        return STATUS_INVALID_DEVICE_STATE;
    }
    name = canonicalName(name);
    if (kernel().objects.find(name, true)) {
        return STATUS_OBJECT_NAME_COLLISION;
    }
    auto *link = new SymbolicLink{std::move(target)};
    kernel().objects.insert(link, sim::ObjectType::symbolicLink, name, [link] { delete link; });
    linkName_ = std::move(name);
    return STATUS_SUCCESS;
}

void Device::deleteSymbolicLink() {
    std::lock_guard lock(mutex_);
    if (linkName_.empty()) {
        return;
    }
    const FoundLink link(linkName_);
    if (link.get() != nullptr) {
        kernel().objects.removeName(link.get());
        kernel().objects.dereference(link.get(), nullptr);
    }
    linkName_.clear();
}

std::optional<std::u16string> symbolicLinkTarget(std::u16string_view name) {
    const FoundLink link(name);
    return link.get() != nullptr ? std::optional(link.get()->target) : std::nullopt;
}

} // namespace sim::framework
