#pragma once

#include <wdf.h>

namespace sim::framework {

/// What object attributes may say for one kind of object.
struct AttributeRules {
    bool parentAllowed = true;
    bool parentRequired = false;
    bool callbacksMeaningful = false; ///< execution level and synchronisation scope have a meaning
};

/// STATUS_SUCCESS for null attributes, unless a parent is required; else the first fault found.
NTSTATUS validateAttributes(const WDF_OBJECT_ATTRIBUTES *attributes, const AttributeRules &rules);

} // namespace sim::framework
