#include "arm64_code.h"

#include <functional>

namespace {

void forEachInstruction(const PeFile &image, const std::function<void(std::uint32_t, std::uint32_t, Bytes)> &visit) {
    for (const Section &section : image.sections()) {
        if (!section.has(Section::execute)) {
            continue;
        }
        for (std::uint32_t offset = 0; offset + 4 <= section.range.size; offset += 4) {
            const std::uint32_t address = section.range.address + offset;
            const Bytes bytes = image.from(address);
            visit(address, read32(bytes, 0), bytes);
        }
    }
}

bool isCall(std::uint32_t instruction) {
    return (instruction & 0xFC000000) == 0x94000000 || (instruction & 0xFFFFFC1F) == 0xD63F0000;
}

// ADRP: the page that the instruction at `address` puts into a register.
std::uint32_t pageOf(std::uint32_t address, std::uint32_t instruction) {
    const std::uint32_t pages = (instruction >> 29 & 3) | (instruction >> 5 & 0x7FFFF) << 2;
    return (address & ~0xFFFu) + (pages << 12); // the sign bit falls out at 32 bits
}

bool isPage(std::uint32_t instruction) {
    return (instruction & 0x9F000000) == 0x90000000;
}

// LDR Xt, [Xn, #offset] with n as given; the offset is returned.
std::optional<std::uint32_t> loadOffset(std::uint32_t instruction, std::uint32_t baseRegister) {
    if ((instruction & 0xFFC00000) != 0xF9400000 || (instruction >> 5 & 31) != baseRegister) {
        return std::nullopt;
    }
    return (instruction >> 10 & 0xFFF) * 8;
}

} // namespace

std::vector<std::uint32_t> callSites(const PeFile &image) {
    std::vector<std::uint32_t> found;
    forEachInstruction(image, [&](std::uint32_t address, std::uint32_t instruction, Bytes) {
        if (isCall(instruction)) {
            found.push_back(address);
        }
    });
    return found;
}

std::vector<std::uint32_t> loadsOf(const PeFile &image, std::uint32_t target) {
    // The load follows its page instruction closely; compilers put only a few others in between.
    constexpr std::uint32_t reach = 16;
    std::vector<std::uint32_t> found;
    forEachInstruction(image, [&](std::uint32_t address, std::uint32_t instruction, Bytes bytes) {
        if (!isPage(instruction) || pageOf(address, instruction) != (target & ~0xFFFu)) {
            return;
        }
        const std::uint32_t page = target & ~0xFFFu;
        for (std::uint32_t i = 1; i <= reach && 4 * i + 4 <= bytes.size(); ++i) {
            const auto offset = loadOffset(read32(bytes, 4 * i), instruction & 31);
            if (offset && page + *offset == target) {
                found.push_back(address + 4 * i);
                return;
            }
        }
    });
    return found;
}
