#pragma once

#include <string>
#include <vector>

namespace sim {

struct FolderEntry {
    std::u16string name;
    std::u16string upperName;
    std::u16string shortName; ///< empty when the name itself is a short one
};

/// Gives each entry that needs one its 8.3 name, such as "LONGNA~1.LOG". Entries are sorted by upcased name; the
/// numbers follow that order, where a real volume's follow the order of creation. Shape of the names recalled.
void addShortNames(std::vector<FolderEntry> &entries);

} // namespace sim
