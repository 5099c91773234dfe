#pragma once

#include "../kernel/thread.h"
#include "../kernel/violation.h"
#include "attributes.h"
#include "client.h"
#include "object.h"

#include <optional>
#include <string>

namespace sim::framework {

class DeviceInit;

/// One call of a framework routine by a driver: checks what the caller handed over, in the caller's name. Every check
/// that fails stops the run, as bug check 0x10D does for handles and pointers and the framework's verifier for the
/// rest.
struct Call {
    const char *routine;
    const void *site;

    void irqlAtMost(KIRQL highest) const { requireIrqlAtMost(highest, routine, site); }
    void passive() const { requirePassive(routine, site); }

    [[noreturn]] void violation(const char *rule, std::string message) const;
    void pointer(const void *value, const char *name) const; ///< mandatory pointer parameter

    Client &client(PWDF_DRIVER_GLOBALS globals) const;
    Driver &driver(Client &client) const; ///< stops the run before WdfDriverCreate
    Object &anyObject(const void *handle) const;
    Object &object(const void *handle, ObjectType type) const;
    template<typename T>
    T &object(const void *handle) const {
        return static_cast<T &>(object(handle, T::objectType));
    }
    template<typename T>
    T *optionalObject(const void *handle) const {
        return handle ? &object<T>(handle) : nullptr;
    }
    DeviceInit &deviceInit(PWDFDEVICE_INIT init) const;

    /// The status to fail with when this call was chosen to fail.
    std::optional<NTSTATUS> injectedFailure(NTSTATUS usual = STATUS_INSUFFICIENT_RESOURCES) const;

    /// The parent that the attributes name, else `fallback`.
    Object &parent(const WDF_OBJECT_ATTRIBUTES *attributes, Object &fallback) const;
    /// The last step of a creation: contexts and parent. On failure the object is gone and *handle stays null.
    template<typename Handle>
    NTSTATUS publish(Object &made, const WDF_OBJECT_ATTRIBUTES *attributes, Object &owner, Handle *handle) const {
        const NTSTATUS status = settle(made, attributes, owner);
        if (NT_SUCCESS(status) && handle) {
            *handle = static_cast<Handle>(made.handle());
        }
        return status;
    }

  private:
    NTSTATUS settle(Object &made, const WDF_OBJECT_ATTRIBUTES *attributes, Object &owner) const;
};

/// Copies a counted string that passed validation.
std::u16string toText(PCUNICODE_STRING text);
/// STATUS_INVALID_PARAMETER for odd lengths, Length above MaximumLength, or MaximumLength without a buffer.
NTSTATUS validateString(PCUNICODE_STRING text);

} // namespace sim::framework
