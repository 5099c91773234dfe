#include "elf_symbols.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>

namespace sim {

namespace {

std::vector<char> readFile(const std::string &path) {
    std::ifstream stream(path, std::ios::binary | std::ios::ate);
    std::vector<char> bytes(stream ? static_cast<std::size_t>(stream.tellg()) : 0);
    stream.seekg(0);
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

template<typename Record>
bool readRecord(const std::vector<char> &file, std::uint64_t offset, Record &record) {
    if (offset > file.size() || file.size() - offset < sizeof(Record)) {
        return false;
    }
    std::memcpy(&record, file.data() + offset, sizeof(Record));
    return true;
}

std::string readName(const std::vector<char> &file, const Elf64_Shdr &strings, std::uint32_t offset) {
    if (strings.sh_offset > file.size() || file.size() - strings.sh_offset < strings.sh_size ||
        offset >= strings.sh_size) {
        return {};
    }
    const char *text = file.data() + strings.sh_offset + offset;
    return {text, strnlen(text, strings.sh_size - offset)};
}

} // namespace

ElfSymbols::ElfSymbols(const std::string &path) {
    const std::vector<char> file = readFile(path);
    Elf64_Ehdr header;
    if (!readRecord(file, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64) {
        return;
    }
    for (unsigned index = 0; index < header.e_shnum; ++index) {
        Elf64_Shdr symbols;
        Elf64_Shdr strings;
        if (!readRecord(file, header.e_shoff + index * sizeof(Elf64_Shdr), symbols) || symbols.sh_type != SHT_SYMTAB ||
            !readRecord(file, header.e_shoff + symbols.sh_link * sizeof(Elf64_Shdr), strings)) {
            continue;
        }
        for (std::uint64_t at = 0; at + sizeof(Elf64_Sym) <= symbols.sh_size; at += sizeof(Elf64_Sym)) {
            Elf64_Sym symbol;
            if (readRecord(file, symbols.sh_offset + at, symbol) && ELF64_ST_TYPE(symbol.st_info) == STT_FUNC &&
                symbol.st_value != 0) {
                functions_.push_back({symbol.st_value, symbol.st_size, readName(file, strings, symbol.st_name)});
            }
        }
    }
    std::sort(functions_.begin(), functions_.end(),
              [](const Function &a, const Function &b) { return a.address < b.address; });
}

const ElfSymbols::Function *ElfSymbols::find(std::uint64_t address) const {
    auto after = std::upper_bound(functions_.begin(), functions_.end(), address,
                                  [](std::uint64_t value, const Function &entry) { return value < entry.address; });
    if (after == functions_.begin()) {
        return nullptr;
    }
    const Function &function = *std::prev(after);
    return address - function.address <= function.size ? &function : nullptr;
}

} // namespace sim
