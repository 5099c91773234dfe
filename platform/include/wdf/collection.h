// Collections and string objects. learn.microsoft.com: "wdfcollection.h header", "wdfstring.h header".
// Collections: IRQL <= DISPATCH_LEVEL. Strings: PASSIVE_LEVEL.
#pragma once

#include <wdf/object.h>

typedef NTSTATUS(NTAPI *PFN_WDFCOLLECTIONCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals,
                                                 PWDF_OBJECT_ATTRIBUTES CollectionAttributes,
                                                 WDFCOLLECTION *Collection);
FORCEINLINE NTSTATUS WdfCollectionCreate(PWDF_OBJECT_ATTRIBUTES CollectionAttributes, WDFCOLLECTION *Collection) {
    return wdfFunction<PFN_WDFCOLLECTIONCREATE>(WdfCollectionCreateTableIndex)(WdfDriverGlobals, CollectionAttributes,
                                                                               Collection);
}

typedef NTSTATUS(NTAPI *PFN_WDFCOLLECTIONADD)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFCOLLECTION Collection,
                                              WDFOBJECT Object);
FORCEINLINE NTSTATUS WdfCollectionAdd(WDFCOLLECTION Collection, WDFOBJECT Object) {
    return wdfFunction<PFN_WDFCOLLECTIONADD>(WdfCollectionAddTableIndex)(WdfDriverGlobals, Collection, Object);
}

typedef ULONG(NTAPI *PFN_WDFCOLLECTIONGETCOUNT)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFCOLLECTION Collection);
FORCEINLINE ULONG WdfCollectionGetCount(WDFCOLLECTION Collection) {
    return wdfFunction<PFN_WDFCOLLECTIONGETCOUNT>(WdfCollectionGetCountTableIndex)(WdfDriverGlobals, Collection);
}

typedef WDFOBJECT(NTAPI *PFN_WDFCOLLECTIONGETITEM)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFCOLLECTION Collection,
                                                   ULONG Index);
/// Null past the end; adds no reference.
FORCEINLINE WDFOBJECT WdfCollectionGetItem(WDFCOLLECTION Collection, ULONG Index) {
    return wdfFunction<PFN_WDFCOLLECTIONGETITEM>(WdfCollectionGetItemTableIndex)(WdfDriverGlobals, Collection, Index);
}

typedef VOID(NTAPI *PFN_WDFCOLLECTIONREMOVEITEM)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFCOLLECTION Collection,
                                                 ULONG Index);
FORCEINLINE VOID WdfCollectionRemoveItem(WDFCOLLECTION Collection, ULONG Index) {
    wdfFunction<PFN_WDFCOLLECTIONREMOVEITEM>(WdfCollectionRemoveItemTableIndex)(WdfDriverGlobals, Collection, Index);
}

typedef NTSTATUS(NTAPI *PFN_WDFSTRINGCREATE)(PWDF_DRIVER_GLOBALS DriverGlobals, PCUNICODE_STRING UnicodeString,
                                             PWDF_OBJECT_ATTRIBUTES StringAttributes, WDFSTRING *String);
FORCEINLINE NTSTATUS WdfStringCreate(PCUNICODE_STRING UnicodeString, PWDF_OBJECT_ATTRIBUTES StringAttributes,
                                     WDFSTRING *String) {
    return wdfFunction<PFN_WDFSTRINGCREATE>(WdfStringCreateTableIndex)(WdfDriverGlobals, UnicodeString,
                                                                       StringAttributes, String);
}

typedef VOID(NTAPI *PFN_WDFSTRINGGETUNICODESTRING)(PWDF_DRIVER_GLOBALS DriverGlobals, WDFSTRING String,
                                                   PUNICODE_STRING UnicodeString);
/// The buffer belongs to the object.
FORCEINLINE VOID WdfStringGetUnicodeString(WDFSTRING String, PUNICODE_STRING UnicodeString) {
    wdfFunction<PFN_WDFSTRINGGETUNICODESTRING>(WdfStringGetUnicodeStringTableIndex)(WdfDriverGlobals, String,
                                                                                    UnicodeString);
}
