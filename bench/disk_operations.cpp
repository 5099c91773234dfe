#include "disk_operations.h"

#include "disk_room.h"

#include <memory>

namespace bench {
namespace {

std::function<std::function<void()>()> onDisk(bool filtered, void (DiskRoom::*request)()) {
    return [=] {
        auto room = std::make_shared<DiskRoom>(filtered);
        return [room, request] { (room.get()->*request)(); };
    };
}

} // namespace

void addDiskOperations(std::vector<Operation> &operations) {
    constexpr std::uint64_t counted = 100;
    operations.push_back({"read/unfiltered", onDisk(false, &DiskRoom::read), counted, 1, ""});
    operations.push_back({"read/filtered", onDisk(true, &DiskRoom::read), counted, 1, ""});
    operations.push_back({"write/unfiltered", onDisk(false, &DiskRoom::write), counted, 1, ""});
    operations.push_back({"write/refused", onDisk(true, &DiskRoom::write), counted, 1, ""});
    operations.push_back({"write/handler", onDisk(true, &DiskRoom::write), counted, 1, "*onWrite*"});
    operations.push_back({"control/unfiltered", onDisk(false, &DiskRoom::control), counted, 1, ""});
    operations.push_back({"control/forwarded", onDisk(true, &DiskRoom::control), counted, 1, ""});
    operations.push_back({"control/handler", onDisk(true, &DiskRoom::control), counted, 1, "*onDeviceControl*"});
}

} // namespace bench
