#include "device/usb_class_codes.h"

#include "device/identifiers.h"
#include "support/name_match.h"
#include "support/text.h"

namespace {

/// A form of compatible id, and where its two-digit fields are.
struct ClassPattern {
    UNICODE_STRING pattern;
    USHORT classAt;
    USHORT subclassAt;
    USHORT protocolAt;
};

constexpr ClassPattern classPatterns[] = {
    {literal(L"USB\\CLASS_??&SUBCLASS_??&PROT_??"), 10, 22, 30},
    {literal(L"USB\\DEVCLASS_??&SUBCLASS_??&PROT_??"), 13, 25, 33},
};

/// Two characters that are no hexadecimal digits give 0.
ULONG twoDigits(const UNICODE_STRING &id, USHORT at) {
    const UNICODE_STRING digits = part(id, at, 2);
    ULONG value = 0;
    (void)RtlUnicodeStringToInteger(&digits, 16, &value);
    return value;
}

} // namespace

UsbClassCodes usbClassCodes(const UNICODE_STRING &compatibleIds) {
    UsbClassCodes codes;
    (void)anyOfMultiSz(compatibleIds, [&](const UNICODE_STRING &id) {
        for (const ClassPattern &form : classPatterns) {
            if (matchesExpression(form.pattern, id, CaseRule::ignoreCase)) {
                codes = {twoDigits(id, form.classAt), twoDigits(id, form.subclassAt), twoDigits(id, form.protocolAt)};
                return true;
            }
        }
        return false;
    });
    return codes;
}
