// System time and its conversions.

#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <chrono>

using namespace sim;

namespace {

constexpr std::int64_t unitsPerSecond = 10'000'000;
constexpr std::int64_t secondsPerDay = 86'400;
constexpr std::int64_t seconds1601To1970 = 11'644'473'600;

} // namespace

// learn.microsoft.com: KeQuerySystemTimePrecise
extern "C" VOID KeQuerySystemTimePrecise(PLARGE_INTEGER time) {
    time->QuadPart = kernel().clock.now();
}

// learn.microsoft.com: ExSystemTimeToLocalTime
extern "C" VOID ExSystemTimeToLocalTime(PLARGE_INTEGER systemTime, PLARGE_INTEGER localTime) {
    localTime->QuadPart = systemTime->QuadPart - kernel().clock.bias();
}

// learn.microsoft.com: RtlTimeToTimeFields
extern "C" VOID RtlTimeToTimeFields(PLARGE_INTEGER time, PTIME_FIELDS fields) {
    if (time->QuadPart < 0) {
        bugCheck("time", "RtlTimeToTimeFields", "negative time " + std::to_string(time->QuadPart), SIM_CALL_SITE);
    }
    const std::int64_t seconds = time->QuadPart / unitsPerSecond;
    const std::int64_t secondOfDay = seconds % secondsPerDay;
    const std::chrono::sys_days day{std::chrono::days{(seconds - secondOfDay - seconds1601To1970) / secondsPerDay}};
    const std::chrono::year_month_day date{day};
    fields->Year = static_cast<CSHORT>(static_cast<int>(date.year()));
    fields->Month = static_cast<CSHORT>(static_cast<unsigned>(date.month()));
    fields->Day = static_cast<CSHORT>(static_cast<unsigned>(date.day()));
    fields->Hour = static_cast<CSHORT>(secondOfDay / 3600);
    fields->Minute = static_cast<CSHORT>(secondOfDay / 60 % 60);
    fields->Second = static_cast<CSHORT>(secondOfDay % 60);
    fields->Milliseconds = static_cast<CSHORT>(time->QuadPart % unitsPerSecond / 10'000);
    fields->Weekday = static_cast<CSHORT>(std::chrono::weekday{day}.c_encoding());
}

// learn.microsoft.com: RtlTimeToSecondsSince1970. The exact end of the range and the untouched output are recalled.
extern "C" BOOLEAN RtlTimeToSecondsSince1970(PLARGE_INTEGER time, PULONG seconds) {
    requireIrqlAtMost(APC_LEVEL, "RtlTimeToSecondsSince1970", SIM_CALL_SITE);
    const std::int64_t since1970 = time->QuadPart / unitsPerSecond - seconds1601To1970;
    if (time->QuadPart < seconds1601To1970 * unitsPerSecond || since1970 > MAXULONG) {
        return FALSE;
    }
    *seconds = static_cast<ULONG>(since1970);
    return TRUE;
}
