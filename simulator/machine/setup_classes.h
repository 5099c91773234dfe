#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace sim::machine {

/// A device setup class as the machine's registry has it from the start.
struct SetupClass {
    std::u16string_view guid; ///< as the class's set-up wrote it, letter case included
    std::u16string_view name;
};

namespace setup {
inline constexpr SetupClass usb{u"{36fc9e60-c465-11cf-8056-444553540000}", u"USB"};
inline constexpr SetupClass portable{u"{eec5ad98-8080-425f-922a-dabf3de3f69a}", u"WPD"};
inline constexpr SetupClass humanInterface{u"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}", u"HIDClass"};
inline constexpr SetupClass image{u"{6bdd1fc6-810f-11d0-bec7-08002be2092f}", u"Image"};
inline constexpr SetupClass scsiAdapter{u"{4d36e97b-e325-11ce-bfc1-08002be10318}", u"SCSIAdapter"};
inline constexpr SetupClass smartCardReader{u"{50dd5230-ba8a-11d1-bf5d-0000f805f530}", u"SmartCardReader"};
inline constexpr SetupClass usbDevice{u"{88bae032-5a81-49f0-bc3d-a4ff138216d6}", u"USBDevice"};
inline constexpr SetupClass network{u"{4d36e972-e325-11ce-bfc1-08002be10318}", u"Net"};
inline constexpr SetupClass diskDrive{u"{4d36e967-e325-11ce-bfc1-08002be10318}", u"DiskDrive"};
inline constexpr SetupClass system{u"{4d36e97d-e325-11ce-bfc1-08002be10318}", u"System"};
inline constexpr SetupClass computer{u"{4d36e966-e325-11ce-bfc1-08002be10318}", u"Computer"};
inline constexpr SetupClass bluetooth{u"{e0cbf06c-cd8b-4647-bb8a-263b43f0f974}", u"Bluetooth"};
inline constexpr SetupClass keyboard{u"{4d36e96b-e325-11ce-bfc1-08002be10318}", u"Keyboard"};
inline constexpr SetupClass mouse{u"{4d36e96f-e325-11ce-bfc1-08002be10318}", u"Mouse"};
inline constexpr SetupClass volume{u"{71a27cdd-812a-11d0-bec7-08002be2092f}", u"Volume"};
inline constexpr SetupClass media{u"{4d36e96c-e325-11ce-bfc1-08002be10318}", u"MEDIA"};
inline constexpr SetupClass camera{u"{ca3e7ab9-b4c3-4ae6-8251-579ef933890f}", u"Camera"};
inline constexpr SetupClass ports{u"{4d36e978-e325-11ce-bfc1-08002be10318}", u"Ports"};
inline constexpr SetupClass diskController{u"{4d36e96a-e325-11ce-bfc1-08002be10318}", u"hdc"};
inline constexpr SetupClass sdHost{u"{a0a588a4-c46f-4b37-b7ea-c82fe89870c6}", u"SDHost"};
} // namespace setup

/// Every class that the machine's registry holds at first.
const std::vector<SetupClass> &setupClasses();

/// A class filter list that the driver under test enters its name into.
struct FilterList {
    SetupClass setupClass;
    std::u16string_view valueName; ///< "LowerFilters" or "UpperFilters"
};

/// The nine lists, in the order in which the driver fills them.
const std::array<FilterList, 9> &driverFilterLists();

} // namespace sim::machine
