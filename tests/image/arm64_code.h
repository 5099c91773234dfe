// The few ARM64 instructions that the image tests look for.
#pragma once

#include "../../simulator/image/pe_file.h"

using namespace sim::image;

/// Addresses of instructions that call, directly or through a register.
std::vector<std::uint32_t> callSites(const PeFile &image);

/// Addresses of instructions that load 64 bits from `target`, reached by its page.
std::vector<std::uint32_t> loadsOf(const PeFile &image, std::uint32_t target);
