#include "object.h"

#include "../kernel/violation.h"
#include "client.h"
#include "live_objects.h"

namespace sim::framework {

const char *handleTypeName(ObjectType type) {
    switch (type) {
    case ObjectType::driver:
        return "WDFDRIVER";
    case ObjectType::device:
        return "WDFDEVICE";
    case ObjectType::ioPackage:
        return "I/O package";
    case ObjectType::queue:
        return "WDFQUEUE";
    case ObjectType::request:
        return "WDFREQUEST";
    case ObjectType::target:
        return "WDFIOTARGET";
    case ObjectType::fileObject:
        return "WDFFILEOBJECT";
    case ObjectType::memory:
        return "WDFMEMORY";
    case ObjectType::collection:
        return "WDFCOLLECTION";
    case ObjectType::string:
        return "WDFSTRING";
    case ObjectType::key:
        return "WDFKEY";
    case ObjectType::waitLock:
        return "WDFWAITLOCK";
    case ObjectType::spinLock:
        return "WDFSPINLOCK";
    case ObjectType::general:
        return "WDFOBJECT";
    case ObjectType::resourceList:
        return "WDFCMRESLIST";
    }
    return "unknown object";
}

std::vector<std::string> liveObjects() {
    std::vector<std::string> lines;
    for (const Object *object : live::objects()) {
        if (object->internal()) {
            continue;
        }
        const Object *parent = object->parent();
        lines.push_back(std::string(handleTypeName(object->type)) + " of " +
                        (parent ? handleTypeName(parent->type) : "no parent") + ", created at " +
                        describeCodeAddress(object->callSite));
    }
    return lines;
}

void forgetUnboundObjects() {
    for (Object *object : live::objects()) {
        if (!object->client().bound) {
            live::bury(*object);
        }
    }
}

} // namespace sim::framework
