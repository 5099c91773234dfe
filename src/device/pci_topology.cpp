#include "device/pci_topology.h"

#include <initguid.h>

#include <devpkey.h>

#include "device/device_properties.h"
#include "device/device_tree.h"
#include "support/text.h"
#include "support/text_search.h"

namespace {

/// What the properties of an ancestor must contain, ignoring case.
struct Level {
    UNICODE_STRING description;
    UNICODE_STRING service;
    UNICODE_STRING matchingId;
};

constexpr Level levels[] = {
    {literal(L"NVM"), literal(L"stornvme"), literal(L"PCI\\CC_010802")},
    {literal(L"downstream"), literal(L"pci"), literal(L"PCI\\CC_0604&DT_6")},
    {literal(L"upstream"), literal(L"pci"), literal(L"PCI\\CC_0604&DT_5")},
};

bool contains(const KString &text, const UNICODE_STRING &wanted) {
    return findNoCase(text, wanted) != notFound;
}

bool hasDescription(PDEVICE_OBJECT device, const UNICODE_STRING &wanted) {
    KString text;
    return NT_SUCCESS(getDeviceProperty(device, DevicePropertyDeviceDescription, text)) && contains(text, wanted);
}

bool hasProperty(PDEVICE_OBJECT device, const DEVPROPKEY &key, const UNICODE_STRING &wanted) {
    KString text;
    return NT_SUCCESS(getDevicePropertyData(device, key, text)) && contains(text, wanted);
}

} // namespace

bool isConnectedToPciePorts(PDEVICE_OBJECT physicalDevice) {
    auto device = DeviceReference::share(physicalDevice);
    for (const Level &level : levels) {
        device = getParentDevice(device.get());
        if (!device || !hasDescription(device.get(), level.description) ||
            !hasProperty(device.get(), DEVPKEY_Device_Service, level.service) ||
            !hasProperty(device.get(), DEVPKEY_Device_MatchingDeviceId, level.matchingId)) {
            return false;
        }
    }
    return true;
}
