#include "generic_rights.h"

namespace sim {

ACCESS_MASK mapGenericRights(ACCESS_MASK access) {
    constexpr ACCESS_MASK everything = 0x1F01FF;
    constexpr ACCESS_MASK genericExecute = 0x1200A0;
    constexpr ACCESS_MASK symbolic =
        GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL | static_cast<ACCESS_MASK>(MAXIMUM_ALLOWED);
    ACCESS_MASK mapped = access & ~symbolic;
    mapped |= (access & GENERIC_READ) != 0 ? FILE_GENERIC_READ : 0;
    mapped |= (access & GENERIC_WRITE) != 0 ? FILE_GENERIC_WRITE : 0;
    mapped |= (access & GENERIC_EXECUTE) != 0 ? genericExecute : 0;
    mapped |= (access & (GENERIC_ALL | MAXIMUM_ALLOWED)) != 0 ? everything : 0;
    return mapped;
}

} // namespace sim
