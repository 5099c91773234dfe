// Time in 100 ns units since 1601-01-01 UTC.
// The official KeQuerySystemTime is a load from a fixed kernel address and is not offered: use the precise routine.
#pragma once

#include <ntdef.h>

typedef struct _TIME_FIELDS {
    CSHORT Year;
    CSHORT Month;
    CSHORT Day;
    CSHORT Hour;
    CSHORT Minute;
    CSHORT Second;
    CSHORT Milliseconds;
    CSHORT Weekday;
} TIME_FIELDS, *PTIME_FIELDS;

EXTERN_C_START

NTKERNELAPI VOID KeQuerySystemTimePrecise(PLARGE_INTEGER time);
NTKERNELAPI VOID ExSystemTimeToLocalTime(PLARGE_INTEGER systemTime, PLARGE_INTEGER localTime);
/// Weekday 0 is Sunday; months and days count from 1.
NTSYSAPI VOID RtlTimeToTimeFields(PLARGE_INTEGER time, PTIME_FIELDS fields);
/// FALSE, output untouched, outside 1970 to 2106.
NTSYSAPI BOOLEAN RtlTimeToSecondsSince1970(PLARGE_INTEGER time, PULONG seconds);

EXTERN_C_END
