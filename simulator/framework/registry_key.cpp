#include "registry_key.h"

#include "definitions.h"
#include "driver.h"
#include "table.h"

#include <utility>

namespace sim::framework {

namespace {

constexpr ACCESS_MASK readRights = KEY_READ | GENERIC_READ | GENERIC_EXECUTE;

/// Generic rights as the key object type maps them (learn.microsoft.com: ACCESS_MASK, ZwOpenKey).
ACCESS_MASK mapGenericRights(ACCESS_MASK access) {
    ACCESS_MASK rights = access & ~(GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL);
    if (access & (GENERIC_READ | GENERIC_EXECUTE)) {
        rights |= KEY_READ;
    }
    if (access & GENERIC_WRITE) {
        rights |= KEY_WRITE;
    }
    if (access & (GENERIC_ALL | MAXIMUM_ALLOWED)) {
        rights |= KEY_ALL_ACCESS;
    }
    return rights;
}

} // namespace

RegistryKey::RegistryKey(Client &client, std::u16string path, ACCESS_MASK access, const void *callSite)
    : Object(client, objectType, callSite), path_(std::move(path)), rights_(mapGenericRights(access)) {}

NTSTATUS RegistryKey::check(ACCESS_MASK right) const {
    if (!open_) {
        return STATUS_INVALID_HANDLE;
    }
    if ((rights_ & right) != right) {
        return STATUS_ACCESS_DENIED;
    }
    return kernel().registry.keyExists(path_) ? STATUS_SUCCESS : STATUS_KEY_DELETED;
}

namespace {

/// The key's full path; STATUS_OBJECT_PATH_SYNTAX_BAD for a relative name without a parent and the reverse.
NTSTATUS fullPath(const RegistryKey *parent, PCUNICODE_STRING name, std::u16string &path) {
    const NTSTATUS status = validateString(name);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    const std::u16string text = toText(name);
    const bool absolute = !text.empty() && text.front() == u'\\';
    if (absolute == (parent != nullptr)) {
        return STATUS_OBJECT_PATH_SYNTAX_BAD;
    }
    path = !parent ? text : text.empty() ? parent->path() : parent->path() + u"\\" + text;
    return STATUS_SUCCESS;
}

/// What opening and creating a key begin with alike. On success `path` is the key's full path.
NTSTATUS checkArguments(const Call &call, WDFKEY parentKey, PCUNICODE_STRING name, PWDF_OBJECT_ATTRIBUTES attributes,
                        WDFKEY *handle, std::u16string &path) {
    const RegistryKey *parent = call.optionalObject<RegistryKey>(parentKey);
    call.pointer(name, "KeyName");
    call.pointer(handle, "Key");
    *handle = nullptr;
    NTSTATUS status = validateAttributes(attributes, {});
    if (NT_SUCCESS(status)) {
        status = fullPath(parent, name, path);
    }
    return NT_SUCCESS(status) ? call.injectedFailure().value_or(status) : status;
}

// learn.microsoft.com: WdfRegistryOpenKey
NTSTATUS openKey(PWDF_DRIVER_GLOBALS globals, WDFKEY parentKey, PCUNICODE_STRING name, ACCESS_MASK access,
                 PWDF_OBJECT_ATTRIBUTES attributes, WDFKEY *handle) {
    const Call call{"WdfRegistryOpenKey", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    std::u16string path;
    const NTSTATUS status = checkArguments(call, parentKey, name, attributes, handle, path);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (!kernel().registry.keyExists(path)) {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    auto *key = new RegistryKey(client, path, access, call.site);
    return call.publish(*key, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfRegistryCreateKey
NTSTATUS createKey(PWDF_DRIVER_GLOBALS globals, WDFKEY parentKey, PCUNICODE_STRING name, ACCESS_MASK access, ULONG,
                   PULONG disposition, PWDF_OBJECT_ATTRIBUTES attributes, WDFKEY *handle) {
    const Call call{"WdfRegistryCreateKey", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    std::u16string path;
    NTSTATUS status = checkArguments(call, parentKey, name, attributes, handle, path);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    bool created = false;
    status = kernel().registry.createKey(path, created);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (disposition) {
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    }
    auto *key = new RegistryKey(client, path, access, call.site);
    return call.publish(*key, attributes, call.parent(attributes, call.driver(client)), handle);
}

// learn.microsoft.com: WdfRegistryClose; framework source: the handle is closed before the object's deletion begins
VOID closeKey(PWDF_DRIVER_GLOBALS globals, WDFKEY handle) {
    const Call call{"WdfRegistryClose", SIM_CALL_SITE};
    call.client(globals);
    call.passive();
    RegistryKey &key = call.object<RegistryKey>(handle);
    key.close();
    key.remove();
}

// learn.microsoft.com: WdfDriverOpenParametersRegistryKey; framework source: only a wish to write creates the key; that
// a missing key is STATUS_OBJECT_NAME_NOT_FOUND for a reader is recalled
NTSTATUS openParametersKey(PWDF_DRIVER_GLOBALS globals, WDFDRIVER driverHandle, ACCESS_MASK access,
                           PWDF_OBJECT_ATTRIBUTES attributes, WDFKEY *handle) {
    const Call call{"WdfDriverOpenParametersRegistryKey", SIM_CALL_SITE};
    Client &client = call.client(globals);
    call.passive();
    Driver &driver = call.object<Driver>(driverHandle);
    call.pointer(handle, "Key");
    *handle = nullptr;
    const NTSTATUS status = validateAttributes(attributes, {});
    if (!NT_SUCCESS(status)) {
        return status;
    }
    if (const auto failure = call.injectedFailure()) {
        return *failure;
    }
    const std::u16string path = driver.registryPath + u"\\Parameters";
    if (access & ~readRights) {
        bool created = false;
        const NTSTATUS creation = kernel().registry.createKey(path, created);
        if (!NT_SUCCESS(creation)) {
            return creation;
        }
    } else if (!kernel().registry.keyExists(path)) {
        return STATUS_OBJECT_NAME_NOT_FOUND;
    }
    auto *key = new RegistryKey(client, path, access, call.site);
    return call.publish(*key, attributes, call.parent(attributes, driver), handle);
}

} // namespace

void installRegistryKeyRoutines(FunctionTable &table) {
    table.set(WdfRegistryOpenKeyTableIndex, PFN_WDFREGISTRYOPENKEY(openKey));
    table.set(WdfRegistryCreateKeyTableIndex, PFN_WDFREGISTRYCREATEKEY(createKey));
    table.set(WdfRegistryCloseTableIndex, PFN_WDFREGISTRYCLOSE(closeKey));
    table.set(WdfDriverOpenParametersRegistryKeyTableIndex, PFN_WDFDRIVEROPENPARAMETERSREGISTRYKEY(openParametersKey));
}

} // namespace sim::framework
