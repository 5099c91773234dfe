#include "setup_classes.h"

namespace sim::machine {

const std::vector<SetupClass> &setupClasses() {
    static const std::vector<SetupClass> classes{
        setup::usb,         setup::portable,        setup::humanInterface, setup::image,
        setup::scsiAdapter, setup::smartCardReader, setup::usbDevice,      setup::network,
        setup::diskDrive,   setup::system,          setup::computer,       setup::bluetooth,
        setup::keyboard,    setup::mouse,           setup::volume,         setup::media,
        setup::camera,      setup::ports,           setup::diskController, setup::sdHost};
    return classes;
}

const std::array<FilterList, 9> &driverFilterLists() {
    static const std::array<FilterList, 9> lists{{
        {setup::usb, u"LowerFilters"},
        {setup::portable, u"LowerFilters"},
        {setup::humanInterface, u"LowerFilters"},
        {setup::image, u"LowerFilters"},
        {setup::scsiAdapter, u"LowerFilters"},
        {setup::smartCardReader, u"LowerFilters"},
        {setup::usbDevice, u"LowerFilters"},
        {setup::network, u"LowerFilters"},
        {setup::diskDrive, u"UpperFilters"},
    }};
    return lists;
}

} // namespace sim::machine
