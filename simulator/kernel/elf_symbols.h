#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/// The functions in the symbol table of an ELF file, hidden ones included (which the host's loader can't name).
class ElfSymbols {
  public:
    struct Function {
        std::uint64_t address; ///< relative to the module's load address
        std::uint64_t size;
        std::string name; ///< as the linker knows it
    };

    /// Reads a 64-bit little-endian file; empty when it can't be read or was stripped.
    explicit ElfSymbols(const std::string &path);

    /// The function that holds the address, null when there is none.
    const Function *find(std::uint64_t address) const;

  private:
    std::vector<Function> functions_; ///< by address
};

} // namespace sim
