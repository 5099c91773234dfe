#include "storage_device.h"

#include "../kernel/strings.h"
#include "setup_classes.h"

#include <fmt/format.h>

namespace sim {

using namespace machine;

namespace {

/// A field of an INQUIRY answer: exactly so many characters, the rest blank.
std::string inquiryField(const std::string &text, std::size_t width) {
    return fmt::format("{:<{}}", text.substr(0, width), width);
}

/// The same in an id: what may not occur in one becomes "_".
std::string idField(const std::string &text, std::size_t width) {
    std::string field = inquiryField(text, width);
    for (char &letter : field) {
        const bool allowed = letter > 0x20 && letter < 0x7F && letter != ',';
        letter = allowed ? letter : '_';
    }
    return field;
}

std::string withoutBlanks(std::string field) {
    field.resize(field.find_last_not_of('_') + 1);
    return field;
}

std::u16string diskInstance(std::u16string_view enumerator, const DiskIdentity &identity, std::u16string_view own) {
    std::string id = fmt::format("\\DISK&VEN_{}&PROD_{}", withoutBlanks(idField(identity.vendor, 8)),
                                 withoutBlanks(idField(identity.product, 16)));
    if (enumerator == u"USBSTOR") {
        id += "&REV_" + withoutBlanks(idField(identity.revision, 4));
    }
    return upcase(std::u16string(enumerator) + toUtf16(id)) + u"\\" + std::u16string(own);
}

std::vector<std::u16string> diskHardwareIds(std::u16string_view enumerator, const DiskIdentity &identity) {
    const std::string vendor = idField(identity.vendor, 8);
    const std::string product = idField(identity.product, 16);
    const std::string revision = idField(identity.revision, 4);
    const std::string bus = toUtf8(std::u16string(enumerator)) + "\\";
    const std::string shortForm = vendor + product + revision.substr(0, 1);
    std::vector<std::u16string> ids;
    for (const std::string &id : {bus + "Disk" + vendor + product + revision, bus + "Disk" + vendor + product,
                                  bus + "Disk" + vendor, bus + shortForm, shortForm}) {
        ids.push_back(toUtf16(id));
    }
    if (enumerator == u"USBSTOR") {
        ids.push_back(toUtf16(bus + "GenDisk"));
    }
    ids.emplace_back(u"GenDisk");
    return ids;
}

} // namespace

DeviceDescription diskDevice(std::string name, std::u16string_view enumerator, const DiskIdentity &identity,
                             std::u16string_view instance) {
    DeviceDescription device;
    device.name = std::move(name);
    device.instanceId = diskInstance(enumerator, identity, instance);
    device.hardwareIds = diskHardwareIds(enumerator, identity);
    device.compatibleIds = {std::u16string(enumerator) + u"\\Disk", std::u16string(enumerator) + u"\\RAW"};
    device.service = u"disk";
    device.classGuid = setup::diskDrive.guid;
    device.description = u"Disk drive";
    device.friendlyName = toUtf16(identity.vendor + " " + identity.product);
    device.manufacturer = u"(Standard disk drives)";
    device.matchingDeviceId = u"GenDisk";
    device.removable = false;
    DiskDescription &disk = device.disk.emplace();
    disk.removableMedia = identity.removableMedia;
    disk.vendor = inquiryField(identity.vendor, 8);
    disk.product = inquiryField(identity.product, 16);
    disk.revision = inquiryField(identity.revision, 4);
    if (!identity.serial.empty()) {
        disk.serial = identity.serial;
    }
    return device;
}

} // namespace sim
