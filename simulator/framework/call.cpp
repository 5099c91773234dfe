#include "call.h"

#include "device_init.h"
#include "driver.h"

#include <cstring>

namespace sim::framework {

void Call::violation(const char *rule, std::string message) const {
    bugCheck(rule, routine, std::move(message), site);
}

void Call::pointer(const void *value, const char *name) const {
    if (!value) {
        violation("framework pointer", std::string(name) + " is null (bug check 0x10D)");
    }
}

Client &Call::client(PWDF_DRIVER_GLOBALS globals) const {
    Client *client = clientFromGlobals(globals);
    if (!client) {
        violation("framework globals", "the driver globals are not those of a bound driver");
    }
    return *client;
}

Driver &Call::driver(Client &client) const {
    if (!client.driver) {
        violation("framework object", "the driver object does not exist yet");
    }
    return *client.driver;
}

Object &Call::anyObject(const void *handle) const {
    Object *object = objectFromHandle(handle);
    if (!object) {
        violation("framework handle", hex(reinterpret_cast<std::uintptr_t>(handle)) +
                                          " is not the handle of a live object (bug check 0x10D)");
    }
    return *object;
}

Object &Call::object(const void *handle, ObjectType type) const {
    Object &object = anyObject(handle);
    if (object.type != type) {
        violation("framework handle", hex(reinterpret_cast<std::uintptr_t>(handle)) + " is a " +
                                          handleTypeName(object.type) + ", not a " + handleTypeName(type) +
                                          " (bug check 0x10D)");
    }
    return object;
}

DeviceInit &Call::deviceInit(PWDFDEVICE_INIT init) const {
    pointer(init, "DeviceInit");
    DeviceInit *live = DeviceInit::find(init);
    if (!live) {
        violation("framework pointer", "DeviceInit does not belong to an EvtDriverDeviceAdd that is running");
    }
    return *live;
}

std::optional<NTSTATUS> Call::injectedFailure(NTSTATUS usual) const {
    if (!kernel().faults.shouldFail(routine)) {
        return std::nullopt;
    }
    return kernel().faults.statusFor(routine, usual);
}

Object &Call::parent(const WDF_OBJECT_ATTRIBUTES *attributes, Object &fallback) const {
    return attributes && attributes->ParentObject ? anyObject(attributes->ParentObject) : fallback;
}

NTSTATUS Call::settle(Object &made, const WDF_OBJECT_ATTRIBUTES *attributes, Object &owner) const {
    NTSTATUS status = made.addContext(attributes);
    if (NT_SUCCESS(status)) {
        status = made.adopt(owner);
    }
    if (!NT_SUCCESS(status)) {
        made.abandon();
    }
    return status;
}

std::u16string toText(PCUNICODE_STRING text) {
    std::u16string result(text->Length / sizeof(WCHAR), u'\0');
    if (!result.empty()) {
        std::memcpy(result.data(), text->Buffer, result.size() * sizeof(WCHAR));
    }
    return result;
}

NTSTATUS validateString(PCUNICODE_STRING text) {
    const bool odd = text->Length % 2 != 0 || text->MaximumLength % 2 != 0;
    if (odd || text->Length > text->MaximumLength || (text->MaximumLength > 0 && !text->Buffer)) {
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

} // namespace sim::framework
