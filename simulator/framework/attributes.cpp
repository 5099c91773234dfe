#include "attributes.h"

namespace sim::framework {

namespace {

NTSTATUS validateContextType(const WDF_OBJECT_ATTRIBUTES &attributes) {
    const auto *type = attributes.ContextTypeInfo;
    if (!type) {
        return attributes.ContextSizeOverride == 0 ? STATUS_SUCCESS : STATUS_WDF_OBJECT_ATTRIBUTES_INVALID;
    }
    const bool tooSmall = attributes.ContextSizeOverride != 0 && attributes.ContextSizeOverride < type->ContextSize;
    const bool badType = type->Size != sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO) || !type->ContextName;
    return tooSmall || badType ? STATUS_WDF_OBJECT_ATTRIBUTES_INVALID : STATUS_SUCCESS;
}

} // namespace

// learn.microsoft.com: WDF_OBJECT_ATTRIBUTES; framework source: validation of object attributes.
NTSTATUS validateAttributes(const WDF_OBJECT_ATTRIBUTES *attributes, const AttributeRules &rules) {
    if (!attributes) {
        return rules.parentRequired ? STATUS_WDF_PARENT_NOT_SPECIFIED : STATUS_SUCCESS;
    }
    if (attributes->Size != sizeof(WDF_OBJECT_ATTRIBUTES)) {
        return STATUS_INFO_LENGTH_MISMATCH;
    }
    if (attributes->ExecutionLevel < WdfExecutionLevelInheritFromParent ||
        attributes->ExecutionLevel > WdfExecutionLevelDispatch ||
        attributes->SynchronizationScope < WdfSynchronizationScopeInheritFromParent ||
        attributes->SynchronizationScope > WdfSynchronizationScopeNone) {
        return STATUS_WDF_OBJECT_ATTRIBUTES_INVALID;
    }
    if (const NTSTATUS status = validateContextType(*attributes); !NT_SUCCESS(status)) {
        return status;
    }
    if (attributes->ParentObject && !rules.parentAllowed) {
        return STATUS_WDF_PARENT_ASSIGNMENT_NOT_ALLOWED;
    }
    if (!attributes->ParentObject && rules.parentRequired) {
        return STATUS_WDF_PARENT_NOT_SPECIFIED;
    }
    if (!rules.callbacksMeaningful) {
        if (attributes->SynchronizationScope != WdfSynchronizationScopeInheritFromParent &&
            attributes->SynchronizationScope != WdfSynchronizationScopeNone) {
            return STATUS_WDF_SYNCHRONIZATION_SCOPE_INVALID;
        }
        if (attributes->ExecutionLevel != WdfExecutionLevelInheritFromParent) {
            return STATUS_WDF_EXECUTION_LEVEL_INVALID;
        }
    }
    return STATUS_SUCCESS;
}

} // namespace sim::framework
