// Values of property keys and device interface classes.
#include <initguid.h>

#include "check.h"
#include <ntifs.h>

#include <devpkey.h>
#include <usbioctl.h>

// "11223344-5566-7788-99aa-bbccddeeff00" as a GUID.
constexpr unsigned digit(char character) {
    return character >= 'a' ? character - 'a' + 10u : character - '0';
}
constexpr unsigned number(const char *text, int digits) {
    unsigned value = 0;
    for (int i = 0; i < digits; ++i) {
        value = value * 16 + digit(text[i]);
    }
    return value;
}
constexpr bool isGuid(const GUID &guid, const char *text) {
    bool equal =
        guid.Data1 == number(text, 8) && guid.Data2 == number(text + 9, 4) && guid.Data3 == number(text + 14, 4);
    for (int i = 0; i < 8; ++i) {
        equal = equal && guid.Data4[i] == number(text + 19 + 2 * i + (i >= 2), 2);
    }
    return equal;
}

#define CHECK_GUID(name, text) CHECK(isGuid(name, text))
#define CHECK_KEY(name, text, id) CHECK(isGuid(name.fmtid, text) && name.pid == (id))

CHECK_KEY(DEVPKEY_Device_DeviceDesc, "a45c254e-df1c-4efd-8020-67d146a850e0", 2);
CHECK_KEY(DEVPKEY_Device_HardwareIds, "a45c254e-df1c-4efd-8020-67d146a850e0", 3);
CHECK_KEY(DEVPKEY_Device_CompatibleIds, "a45c254e-df1c-4efd-8020-67d146a850e0", 4);
CHECK_KEY(DEVPKEY_Device_Service, "a45c254e-df1c-4efd-8020-67d146a850e0", 6);
CHECK_KEY(DEVPKEY_Device_ClassGuid, "a45c254e-df1c-4efd-8020-67d146a850e0", 10);
CHECK_KEY(DEVPKEY_Device_Driver, "a45c254e-df1c-4efd-8020-67d146a850e0", 11);
CHECK_KEY(DEVPKEY_Device_FriendlyName, "a45c254e-df1c-4efd-8020-67d146a850e0", 14);
CHECK_KEY(DEVPKEY_Device_EnumeratorName, "a45c254e-df1c-4efd-8020-67d146a850e0", 24);
CHECK_KEY(DEVPKEY_Device_LocationPaths, "a45c254e-df1c-4efd-8020-67d146a850e0", 37);
CHECK_KEY(DEVPKEY_Device_InstanceId, "78c34fc8-104a-4aca-9ea4-524d52996e57", 256);
CHECK_KEY(DEVPKEY_Device_Parent, "4340a6c5-93fa-4706-972c-7b648008a5a7", 8);
CHECK_KEY(DEVPKEY_Device_BusReportedDeviceDesc, "540b947e-8b40-45bc-a8a2-6a0b894cbda2", 4);
CHECK_KEY(DEVPKEY_Device_MatchingDeviceId, "a8b865dd-2e3d-4094-ad97-e593a70c75d6", 8);
CHECK_GUID(GUID_DEVINTERFACE_USB_HUB, "f18a0e88-c30c-11d0-8815-00a0c906bed8");
CHECK_GUID(GUID_DEVINTERFACE_USB_DEVICE, "a5dcbf10-6530-11d2-901f-00c04fb951ed");
CHECK_GUID(GUID_DEVINTERFACE_USB_HOST_CONTROLLER, "3abf6f2d-71c4-462a-8a92-1e6861e6af27");
