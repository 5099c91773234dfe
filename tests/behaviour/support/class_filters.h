#pragma once

#include "simulator/kernel/strings.h"

#include <string>
#include <string_view>

namespace behaviour {

/// The driver's name in the lists.
inline const std::u16string ourName = u"TarvenholtMyrtelhavenDriver";

/// One of the lists that the driver enters its name into, spelled as the driver spells it.
struct ClassFilterRow {
    std::u16string_view guid;
    std::u16string_view valueName;

    std::u16string key() const {
        return u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Class\\" + std::u16string(guid);
    }
    /// What the lines about the row have in common.
    std::string logText() const {
        return "name = " + sim::toUtf8(valueName) +
               ", value = TarvenholtMyrtelhavenDriver, path = " + sim::toUtf8(key());
    }
};

/// In the driver's order.
inline constexpr ClassFilterRow classFilterRows[] = {
    {u"{36FC9E60-C465-11CF-8056-444553540000}", u"LowerFilters"},
    {u"{eec5ad98-8080-425f-922a-dabf3de3f69a}", u"LowerFilters"},
    {u"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}", u"LowerFilters"},
    {u"{6bdd1fc6-810f-11d0-bec7-08002be2092f}", u"LowerFilters"},
    {u"{4d36e97b-e325-11ce-bfc1-08002be10318}", u"LowerFilters"},
    {u"{50dd5230-ba8a-11d1-bf5d-0000f805f530}", u"LowerFilters"},
    {u"{88BAE032-5A81-49f0-BC3D-A4FF138216D6}", u"LowerFilters"},
    {u"{4d36e972-e325-11ce-bfc1-08002be10318}", u"LowerFilters"},
    {u"{4d36e967-e325-11ce-bfc1-08002be10318}", u"UpperFilters"},
};

inline const std::string serviceKeyText =
    "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\TarvenholtMyrtelhavenDriver";

} // namespace behaviour
