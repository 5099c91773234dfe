#include "unwind.h"

#include "../kernel/violation.h"

#include <algorithm>
#include <cstring>

namespace sim::image {

namespace {

constexpr unsigned framePointer = 29;
constexpr unsigned link = 30;

std::uint64_t load(std::uint64_t address) {
    std::uint64_t value = 0;
    std::memcpy(&value, reinterpret_cast<const void *>(address), sizeof value);
    return value;
}

/// Undoes what one function did to the registers.
class Undo {
  public:
    explicit Undo(Registers &registers) : registers_(registers) {}

    void free(std::uint64_t bytes) { registers_.sp += bytes; }
    void stackFromFrame(std::uint64_t below) { registers_.sp = registers_.x[framePointer] - below; }
    void restore(unsigned number, std::uint64_t offset) { registers_.x.at(number) = load(registers_.sp + offset); }
    void restoreDouble(unsigned number, std::uint64_t offset) {
        registers_.d.at(number) = load(registers_.sp + offset);
    }

  private:
    Registers &registers_;
};

/// The function that holds an address, with the second word of its record.
struct Record {
    Range function;
    std::uint32_t data = 0;
};

[[noreturn]] void unusable(const MappedImage &image, std::uint32_t address, const char *why) {
    throw BadImage(image.name() + " cannot be unwound at " + hex(address) + ": " + why);
}

Record recordOf(const MappedImage &image, std::uint32_t address) {
    const PeFile &file = image.file();
    const std::vector<Range> functions = file.functions();
    const auto found = std::find_if(functions.begin(), functions.end(),
                                    [address](const Range &function) { return function.contains(address); });
    if (found == functions.end()) {
        unusable(image, address, "no function with unwind data is there");
    }
    const auto index = static_cast<std::uint32_t>(found - functions.begin());
    return {*found, read32(file.from(file.directory(Directory::exceptions).address + 8 * index), 4)};
}

/// Undoes a prologue that is told code by code, the last instruction's first.
class Codes {
  public:
    Codes(const MappedImage &image, std::uint32_t function, Bytes codes, Registers &registers)
        : image_(image), function_(function), codes_(codes), undo_(registers) {}

    void run() {
        while (step()) {
        }
    }

  private:
    std::uint32_t next() {
        if (at_ == codes_.size()) {
            unusable(image_, function_, "its codes have no end");
        }
        return codes_[at_++];
    }

    /// One code; false at the end.
    bool step() {
        const std::uint32_t code = next();
        if (code < 0x20) { // alloc_s
            undo_.free(code * 16);
        } else if (code < 0x40) { // save_r19r20_x
            pair(19, 0);
            undo_.free((code & 0x1F) * 8);
        } else if (code < 0x80) { // save_fplr
            pair(framePointer, (code & 0x3F) * 8);
        } else if (code < 0xC0) { // save_fplr_x
            pair(framePointer, 0);
            undo_.free(((code & 0x3F) + 1) * 8);
        } else if (code < 0xC8) { // alloc_m
            undo_.free(((code & 7) << 8 | next()) * 16);
        } else if (code < 0xE0) {
            save(code << 8 | next());
        } else {
            return special(code);
        }
        return true;
    }

    /// The codes of two bytes: six bits of offset (five where the register is stored on the way down), then the
    /// register.
    void save(std::uint32_t code) {
        const std::uint32_t offset = (code & 0x3F) * 8;
        const std::uint32_t down = offset + 8;
        const std::uint32_t shortDown = (code & 0x1F) * 8 + 8;
        const unsigned four = code >> 6 & 0xF;
        const unsigned three = code >> 6 & 7;
        switch (code >> 9) {
        case 0xC8 >> 1:
        case 0xCA >> 1: // save_regp
            pair(19 + four, offset);
            break;
        case 0xCC >> 1:
        case 0xCE >> 1: // save_regp_x
            pair(19 + four, 0);
            undo_.free(down);
            break;
        case 0xD0 >> 1:
        case 0xD2 >> 1: // save_reg
            undo_.restore(19 + four, offset);
            break;
        case 0xD4 >> 1: // save_reg_x
            undo_.restore(19 + (code >> 5 & 0xF), 0);
            undo_.free(shortDown);
            break;
        case 0xD6 >> 1: // save_lrpair
            undo_.restore(19 + 2 * three, offset);
            undo_.restore(link, offset + 8);
            break;
        case 0xD8 >> 1: // save_fregp
            doublePair(8 + three, offset);
            break;
        case 0xDA >> 1: // save_fregp_x
            doublePair(8 + three, 0);
            undo_.free(down);
            break;
        case 0xDC >> 1: // save_freg
            undo_.restoreDouble(8 + three, offset);
            break;
        default: // save_freg_x; 0xDF is for vectors that no kernel code uses
            if (code >> 8 != 0xDE) {
                unusable(image_, function_, "a code for scalable vectors");
            }
            undo_.restoreDouble(8 + (code >> 5 & 7), 0);
            undo_.free(shortDown);
        }
    }

    bool special(std::uint32_t code) {
        switch (code) {
        case 0xE0: { // alloc_l
            const std::uint32_t high = next();
            const std::uint32_t middle = next();
            undo_.free((high << 16 | middle << 8 | next()) * 16);
            return true;
        }
        case 0xE1: // set_fp
            undo_.stackFromFrame(0);
            return true;
        case 0xE2: // add_fp
            undo_.stackFromFrame(next() * 8);
            return true;
        case 0xE3: // nop
            return true;
        case 0xE4: // end
        case 0xE5: // end_c
            return false;
        case 0xE6: // save_next: one more pair behind the one that a later code names
            ++pairsBehind_;
            return true;
        default:
            unusable(image_, function_, "an unknown code");
        }
    }

    using Restore = void (Undo::*)(unsigned number, std::uint64_t offset);

    void pair(unsigned first, std::uint64_t offset) { pairs(&Undo::restore, first, offset); }
    void doublePair(unsigned first, std::uint64_t offset) { pairs(&Undo::restoreDouble, first, offset); }

    /// The pair that a code names, and those behind it that codes before asked for.
    void pairs(Restore restore, unsigned first, std::uint64_t offset) {
        for (unsigned number = 0; number < 2 * (pairsBehind_ + 1); ++number) {
            (undo_.*restore)(first + number, offset + 8 * number);
        }
        pairsBehind_ = 0;
    }

    const MappedImage &image_;
    std::uint32_t function_;
    Bytes codes_;
    std::size_t at_ = 0;
    unsigned pairsBehind_ = 0;
    Undo undo_;
};

UnwoundFunction unwindFull(const MappedImage &image, const Record &record, Registers &registers) {
    const Bytes data = image.file().from(record.data);
    const std::uint32_t header = read32(data, 0);
    const bool hasHandler = (header >> 20 & 1) != 0;
    const bool oneEpilogue = (header >> 21 & 1) != 0;
    std::uint32_t epilogues = header >> 22 & 0x1F;
    std::uint32_t words = header >> 27;
    std::uint32_t at = 4;
    if (epilogues == 0 && words == 0) {
        const std::uint32_t extension = read32(data, at);
        epilogues = extension & 0xFFFF;
        words = extension >> 16 & 0xFF;
        at += 4;
    }
    at += oneEpilogue ? 0 : 4 * epilogues;
    if (at + 4 * words > data.size()) {
        unusable(image, record.function.address, "its codes lie outside of their section");
    }
    Codes(image, record.function.address, data.subspan(at, 4 * words), registers).run();
    UnwoundFunction function{record.function};
    if (hasHandler) {
        function.handler = read32(data, at + 4 * words);
        function.handlerData = record.data + at + 4 * words + 4;
    }
    return function;
}

/// A prologue of the usual form, told in one word.
UnwoundFunction unwindPacked(const Record &record, Registers &registers) {
    const std::uint32_t data = record.data;
    const unsigned integers = data >> 16 & 0xF;
    const unsigned doubles = (data >> 13 & 7) == 0 ? 0 : (data >> 13 & 7) + 1;
    const bool homesParameters = (data >> 20 & 1) != 0;
    const unsigned chain = data >> 21 & 3;
    const std::uint64_t frameBytes = (data >> 23) * 16ULL;
    const bool savesLink = chain == 1;
    const std::uint64_t integerBytes = (integers + (savesLink ? 1 : 0)) * 8ULL;
    const std::uint64_t savedBytes = (integerBytes + doubles * 8 + (homesParameters ? 64 : 0) + 15) / 16 * 16;
    Undo undo(registers);
    if (chain >= 2) {
        undo.stackFromFrame(0);
        undo.restore(framePointer, 0);
        undo.restore(link, 8);
    }
    undo.free(frameBytes - savedBytes);
    for (unsigned i = 0; i < integers; ++i) {
        undo.restore(19 + i, i * 8);
    }
    if (savesLink) {
        undo.restore(link, integers * 8);
    }
    for (unsigned i = 0; i < doubles; ++i) {
        undo.restoreDouble(8 + i, integerBytes + i * 8);
    }
    undo.free(savedBytes);
    return {record.function};
}

} // namespace

UnwoundFunction unwindFrame(const MappedImage &image, Registers &registers) {
    const auto place = image.relative(reinterpret_cast<const void *>(registers.pc));
    if (!place || *place < 4) {
        unusable(image, 0, "the address is not in it");
    }
    const Record record = recordOf(image, *place - 4); // the call itself: the last instruction of a function may be one
    const UnwoundFunction function =
        (record.data & 3) == 0 ? unwindFull(image, record, registers) : unwindPacked(record, registers);
    registers.pc = registers.x[link];
    return function;
}

} // namespace sim::image
