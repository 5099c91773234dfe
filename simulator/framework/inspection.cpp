#include "call.h"
#include "client.h"
#include "device.h"
#include "driver.h"
#include "framework.h"
#include "io_package.h"
#include "live_objects.h"
#include "queue.h"
#include "request.h"

#include <algorithm>

namespace sim::framework {

void *contextOfDevice(PDEVICE_OBJECT device, std::string_view typeName) {
    const Device *found = device ? deviceOf(device) : nullptr;
    return found ? found->contextNamed(typeName) : nullptr;
}

void *contextOfDriver(PDRIVER_OBJECT driver, std::string_view typeName) {
    const Client *client = clientOfDriver(driver);
    return client && client->driver ? client->driver->contextNamed(typeName) : nullptr;
}

QueueCounts queueCounts(WDFQUEUE queue) {
    const Call call{"queueCounts", nullptr};
    QueueCounts counts;
    static_cast<void>(call.object<Queue>(queue).state(&counts.queued, &counts.withDriver));
    return counts;
}

std::vector<WDFREQUEST> requestsWithDriver(WDFQUEUE queue) {
    const Call call{"requestsWithDriver", nullptr};
    std::vector<WDFREQUEST> handles;
    for (Request *request : call.object<Queue>(queue).referencedOwned()) {
        handles.push_back(static_cast<WDFREQUEST>(request->handle()));
        request->dereference(call.routine, nullptr);
    }
    return handles;
}

void completeForgotten(WDFREQUEST request, NTSTATUS status) {
    const Call call{"completeForgotten", nullptr};
    call.object<Request>(request).complete(status, 0);
}

RequestCounts handlerCalls(PDEVICE_OBJECT device) {
    const Device *found = device ? deviceOf(device) : nullptr;
    return found ? found->handlerCalls.counts() : RequestCounts();
}

RequestCounts passedDown(PDEVICE_OBJECT device) {
    const Device *found = device ? deviceOf(device) : nullptr;
    return found ? found->passedDown.counts() : RequestCounts();
}

bool takesWrites(PDEVICE_OBJECT device) {
    const Device *found = device ? deviceOf(device) : nullptr;
    Queue *queue = found && found->io ? found->io->defaultQueue() : nullptr;
    return queue && queue->hasHandler(IRP_MJ_WRITE);
}

std::vector<std::string> leaks() {
    return liveObjects();
}

std::size_t liveObjectCount() {
    return live::objects().size();
}

std::size_t liveObjectCountWithoutSentRequests() {
    const auto isSent = [](const Object *object) {
        return object != nullptr && object->type == ObjectType::request &&
               !static_cast<const Request *>(object)->presentable();
    };
    const std::vector<Object *> objects = live::objects();
    return static_cast<std::size_t>(std::count_if(objects.begin(), objects.end(), [&](const Object *object) {
        return !isSent(object) && !isSent(object->parent());
    }));
}

} // namespace sim::framework
