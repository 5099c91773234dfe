// Registry Editor exports of any bytes.

#include "cli/reg/reg_file.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *input, std::size_t size) {
    try {
        (void)cli::parseRegFile({reinterpret_cast<const char *>(input), size}, "fuzzed.reg");
    } catch (const cli::UnusableFile &unusable) {
        if (unusable.problems().empty()) {
            __builtin_trap(); // refused without a word
        }
    }
    return 0;
}
