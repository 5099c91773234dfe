// Registry keys. All routines PASSIVE_LEVEL. learn.microsoft.com: "wdfregistry.h header".
#pragma once

#include <wdf/driver.h>

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYOPENKEY)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY ParentKey,
                                                PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                                                PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY *Key);
FORCEINLINE NTSTATUS WdfRegistryOpenKey(WDFKEY ParentKey, PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                                        PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY *Key) {
    return wdfFunction<PFN_WDFREGISTRYOPENKEY>(WdfRegistryOpenKeyTableIndex)(WdfDriverGlobals, ParentKey, KeyName,
                                                                             DesiredAccess, KeyAttributes, Key);
}

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYCREATEKEY)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY ParentKey,
                                                  PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                                                  ULONG CreateOptions, PULONG CreateDisposition,
                                                  PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY *Key);
FORCEINLINE NTSTATUS WdfRegistryCreateKey(WDFKEY ParentKey, PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                                          ULONG CreateOptions, PULONG CreateDisposition,
                                          PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY *Key) {
    return wdfFunction<PFN_WDFREGISTRYCREATEKEY>(WdfRegistryCreateKeyTableIndex)(
        WdfDriverGlobals, ParentKey, KeyName, DesiredAccess, CreateOptions, CreateDisposition, KeyAttributes, Key);
}

typedef VOID(NTAPI *PFN_WDFREGISTRYCLOSE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY Key);
FORCEINLINE VOID WdfRegistryClose(WDFKEY Key) {
    wdfFunction<PFN_WDFREGISTRYCLOSE>(WdfRegistryCloseTableIndex)(WdfDriverGlobals, Key);
}

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYQUERYMULTISTRING)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY Key,
                                                         PCUNICODE_STRING ValueName,
                                                         PWDF_OBJECT_ATTRIBUTES StringsAttributes,
                                                         WDFCOLLECTION Collection);
FORCEINLINE NTSTATUS WdfRegistryQueryMultiString(WDFKEY Key, PCUNICODE_STRING ValueName,
                                                 PWDF_OBJECT_ATTRIBUTES StringsAttributes, WDFCOLLECTION Collection) {
    return wdfFunction<PFN_WDFREGISTRYQUERYMULTISTRING>(WdfRegistryQueryMultiStringTableIndex)(
        WdfDriverGlobals, Key, ValueName, StringsAttributes, Collection);
}

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYQUERYMEMORY)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY Key,
                                                    PCUNICODE_STRING ValueName, POOL_TYPE PoolType,
                                                    PWDF_OBJECT_ATTRIBUTES MemoryAttributes, WDFMEMORY *Memory,
                                                    PULONG ValueType);
FORCEINLINE NTSTATUS WdfRegistryQueryMemory(WDFKEY Key, PCUNICODE_STRING ValueName, POOL_TYPE PoolType,
                                            PWDF_OBJECT_ATTRIBUTES MemoryAttributes, WDFMEMORY *Memory,
                                            PULONG ValueType) {
    return wdfFunction<PFN_WDFREGISTRYQUERYMEMORY>(WdfRegistryQueryMemoryTableIndex)(
        WdfDriverGlobals, Key, ValueName, PoolType, MemoryAttributes, Memory, ValueType);
}

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYASSIGNMULTISTRING)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY Key,
                                                          PCUNICODE_STRING ValueName, WDFCOLLECTION StringsCollection);
FORCEINLINE NTSTATUS WdfRegistryAssignMultiString(WDFKEY Key, PCUNICODE_STRING ValueName,
                                                  WDFCOLLECTION StringsCollection) {
    return wdfFunction<PFN_WDFREGISTRYASSIGNMULTISTRING>(WdfRegistryAssignMultiStringTableIndex)(
        WdfDriverGlobals, Key, ValueName, StringsCollection);
}

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYASSIGNULONG)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY Key,
                                                    PCUNICODE_STRING ValueName, ULONG Value);
FORCEINLINE NTSTATUS WdfRegistryAssignULong(WDFKEY Key, PCUNICODE_STRING ValueName, ULONG Value) {
    return wdfFunction<PFN_WDFREGISTRYASSIGNULONG>(WdfRegistryAssignULongTableIndex)(WdfDriverGlobals, Key, ValueName,
                                                                                     Value);
}

typedef NTSTATUS(NTAPI *PFN_WDFREGISTRYQUERYVALUE)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFKEY Key,
                                                   PCUNICODE_STRING ValueName, ULONG ValueLength, PVOID Value,
                                                   PULONG ValueLengthQueried, PULONG ValueType);
/// Raw data of any type; a null Value asks for type and length.
FORCEINLINE NTSTATUS WdfRegistryQueryValue(WDFKEY Key, PCUNICODE_STRING ValueName, ULONG ValueLength, PVOID Value,
                                           PULONG ValueLengthQueried, PULONG ValueType) {
    return wdfFunction<PFN_WDFREGISTRYQUERYVALUE>(WdfRegistryQueryValueTableIndex)(
        WdfDriverGlobals, Key, ValueName, ValueLength, Value, ValueLengthQueried, ValueType);
}
