#include "crash_report.h"

#include "../../framework/function_table.h"
#include "../../kernel/fail_fast.h"
#include "../../kernel/violation.h"
#include "../loaded_images.h"
#include "../mapped_image.h"

#include <csignal>
#include <cstdint>
#include <optional>
#include <pthread.h>
#include <string>
#include <ucontext.h>

namespace sim::image {

namespace {

constexpr std::uint32_t fastFailInstruction = 0xD43E0060; // brk #0xf003
constexpr std::uint32_t breakMask = 0xFFE0001F;
constexpr std::uint32_t breakInstruction = 0xD4200000;

std::uint64_t endOfStack() {
    pthread_attr_t attributes;
    void *start = nullptr;
    std::size_t bytes = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getstack(&attributes, &start, &bytes);
        pthread_attr_destroy(&attributes);
    }
    return reinterpret_cast<std::uint64_t>(start) + bytes;
}

/// The innermost code of an image on the stack, as a return address; null when there is none. Everybody keeps a frame
/// record: the caller's x29, then the return address.
const void *innermostOfImage(const mcontext_t &machine) {
    if (loadedImageAt(reinterpret_cast<const void *>(machine.pc)) != nullptr) {
        return reinterpret_cast<const void *>(machine.pc + 1); // as if the instruction were the call
    }
    if (const auto *link = reinterpret_cast<const void *>(machine.regs[30]); loadedImageAt(link) != nullptr) {
        return link;
    }
    const std::uint64_t end = endOfStack();
    std::uint64_t frame = machine.regs[29];
    for (std::uint64_t lowest = machine.sp; frame >= lowest && frame % 16 == 0 && frame + 16 <= end;) {
        const auto *record = reinterpret_cast<const std::uint64_t *>(frame);
        if (const auto *caller = reinterpret_cast<const void *>(record[1]); loadedImageAt(caller) != nullptr) {
            return caller;
        }
        lowest = frame + 16;
        frame = record[0];
    }
    return nullptr;
}

std::string describeAddress(const void *address) {
    const std::string number = hex(reinterpret_cast<unsigned long long>(address));
    if (const auto entry = framework::entryBehindFunctionTable(address)) {
        return "entry " + std::to_string(*entry) + " of the framework's function table, which has " +
               std::to_string(framework::functionTableEntries());
    }
    const MappedImage *image = loadedImageAt(address);
    const Section *section = image == nullptr ? nullptr : image->sectionAt(address);
    if (section == nullptr) {
        return "address " + number;
    }
    return "address " + number + " in section " + section->name + ", which " +
           (image->discarded(*section)     ? "was discarded after the entry point"
            : section->has(Section::write) ? "is not code"
                                           : "is read-only");
}

void onFault(int signal, siginfo_t *information, void *context) {
    const mcontext_t &machine = static_cast<ucontext_t *>(context)->uc_mcontext;
    const void *place = innermostOfImage(machine);
    if (place == nullptr) {
        std::signal(signal, SIG_DFL); // not the driver's doing
        return;
    }
    if (signal == SIGTRAP) {
        const std::uint32_t instruction = *reinterpret_cast<const std::uint32_t *>(machine.pc);
        if (instruction == fastFailInstruction) {
            failFast(static_cast<unsigned>(machine.regs[0]), place);
        }
        const bool isBreak = (instruction & breakMask) == breakInstruction;
        bugCheck("trap", "processor",
                 isBreak ? "code that the compiler took for unreachable was reached"
                         : "the image was stopped by a breakpoint",
                 place);
    }
    if (signal == SIGILL) {
        bugCheck("illegal instruction", "processor", "the code at " + hex(machine.pc) + " is none", place);
    }
    bugCheck("bad pointer", "processor", describeAddress(information->si_addr) + " was touched", place);
}

} // namespace

void reportImageCrashes() {
    struct sigaction action{};
    action.sa_sigaction = onFault;
    action.sa_flags = SA_SIGINFO;
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGTRAP}) {
        sigaction(signal, &action, nullptr);
    }
}

} // namespace sim::image
