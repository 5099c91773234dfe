#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

/// What must hold for every input. Where it does not, the run stops and the input is kept as a finding.
inline void require(bool holds, const std::string &what) {
    if (!holds) {
        std::fprintf(stderr, "\nfuzz: does not hold: %s\n", what.c_str());
        std::abort();
    }
}

/// The same for two values that must be equal; `what` names them.
template<typename Number>
void requireEqual(Number found, Number expected, const char *what) {
    if (found != expected) {
        require(false, std::string(what) + " is " + std::to_string(found) + ", expected " + std::to_string(expected));
    }
}

} // namespace fuzz
