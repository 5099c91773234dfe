// Exceptions that a simulated routine raises into an image: the stack is searched and unwound by the image's own unwind
// data and scope tables. learn.microsoft.com: "ARM64 exception handling", "__C_specific_handler"

#include "structured_exceptions.h"

#include "../../kernel/name_expression.h"
#include "../../kernel/violation.h"
#include "../loaded_images.h"
#include "../unwind.h"

#include <excpt.h>
#include <ntifs.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

using namespace sim;
using namespace sim::image;

namespace {

/// One function of the stack while a handler for the exception is looked for, and what its own handler found.
struct Dispatch {
    const MappedImage *image;
    std::uint32_t place; ///< the call in the function, relative to the image
    const UnwoundFunction *function;
    std::uint32_t target = 0; ///< where the function goes on; 0: it does not handle the exception
};

using LanguageHandler = int (*)(void *record, void *frame, void *context, void *dispatcher);
constexpr int continueSearch = 1;

// One row of the table behind the handler.
struct Scope {
    std::uint32_t begin;
    std::uint32_t end;
    std::uint32_t filter; ///< 1: always handled; otherwise a function to ask, or to run on the way out
    std::uint32_t target; ///< 0: a termination handler
};
constexpr std::uint32_t alwaysHandled = 1;

/// The registers as the entry below leaves them.
struct SavedRegisters {
    std::uint64_t x19to30[12];
    std::uint64_t d8to15[8];
    std::uint64_t sp;
};
static_assert(offsetof(SavedRegisters, d8to15) == 96 && offsetof(SavedRegisters, sp) == 160);

Registers registersOf(const SavedRegisters &saved) {
    Registers registers;
    std::ranges::copy(saved.x19to30, &registers.x[19]);
    std::ranges::copy(saved.d8to15, &registers.d[8]);
    registers.sp = saved.sp;
    registers.pc = registers.x[30];
    return registers;
}

SavedRegisters savedFrom(const Registers &registers) {
    SavedRegisters saved;
    std::copy_n(&registers.x[19], std::size(saved.x19to30), saved.x19to30);
    std::copy_n(&registers.d[8], std::size(saved.d8to15), saved.d8to15);
    saved.sp = registers.sp;
    return saved;
}

} // namespace

extern "C" {

[[noreturn]] void simulatedResume(const SavedRegisters *registers, const void *place, std::uint64_t code);
void simulatedNameInExpression();

// learn.microsoft.com: "__C_specific_handler". An image reaches it through its import.
int __C_specific_handler(void *, void *, void *, void *dispatcher) {
    auto &dispatch = *static_cast<Dispatch *>(dispatcher);
    const Bytes table = dispatch.image->file().from(dispatch.function->handlerData);
    const std::uint32_t count = read32(table, 0);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t row = 4 + i * sizeof(Scope);
        const Scope scope{read32(table, row), read32(table, row + 4), read32(table, row + 8), read32(table, row + 12)};
        if (dispatch.place < scope.begin || dispatch.place >= scope.end) {
            continue;
        }
        if (scope.filter != alwaysHandled || scope.target == 0) {
            notSimulated("__C_specific_handler", "a filter function or a termination handler",
                         dispatch.image->base() + dispatch.place + 4);
        }
        dispatch.target = scope.target;
        return continueSearch;
    }
    return continueSearch;
}

} // extern "C"

namespace {

/// Goes on where the image handles the exception; a bug check when it does so nowhere.
[[noreturn]] void raise(Registers registers, NTSTATUS code) {
    const auto *raisedAt = reinterpret_cast<const void *>(registers.pc);
    for (;;) {
        const MappedImage *image = loadedImageAt(reinterpret_cast<const void *>(registers.pc));
        if (image == nullptr) {
            bugCheck("unhandled exception", "KeBugCheckEx",
                     "no function handles the exception " + hex(static_cast<ULONG>(code)) + " (bug check 0x1E)",
                     raisedAt);
        }
        const Registers inFunction = registers;
        const std::uint32_t place = *image->relative(reinterpret_cast<const void *>(registers.pc)) - 4;
        UnwoundFunction function;
        try {
            function = unwindFrame(*image, registers);
        } catch (const std::exception &error) {
            bugCheck("unwind data", "RtlVirtualUnwind", error.what(), raisedAt);
        }
        if (function.handler == 0) {
            continue;
        }
        Dispatch dispatch{image, place, &function};
        reinterpret_cast<LanguageHandler>(image->base() + function.handler)(nullptr, nullptr, nullptr, &dispatch);
        if (dispatch.target != 0) {
            const SavedRegisters resumed = savedFrom(inFunction);
            simulatedResume(&resumed, image->base() + dispatch.target, static_cast<ULONG>(code));
        }
    }
}

} // namespace

extern "C" __attribute__((used)) BOOLEAN simulatedNameInExpressionCatching(PUNICODE_STRING expression,
                                                                           PUNICODE_STRING name, BOOLEAN ignoreCase,
                                                                           PWCH upcaseTable,
                                                                           const SavedRegisters *registers) {
    NTSTATUS code = STATUS_SUCCESS;
    try {
        return isNameInExpression(expression, name, ignoreCase, upcaseTable,
                                  reinterpret_cast<const void *>(registers->x19to30[11]));
    } catch (const PlatformStructuredException &exception) {
        code = exception.code;
    }
    raise(registersOf(*registers), code);
}

// FsRtlIsNameInExpression for an image: keeps the registers that its caller expects back, should the routine raise.
// And the way back into a function that handles an exception.
asm(R"(
    .text
    .p2align 2
    .globl simulatedNameInExpression
    .type simulatedNameInExpression, %function
simulatedNameInExpression:
    sub sp, sp, #176
    stp x19, x20, [sp]
    stp x21, x22, [sp, #16]
    stp x23, x24, [sp, #32]
    stp x25, x26, [sp, #48]
    stp x27, x28, [sp, #64]
    stp x29, x30, [sp, #80]
    stp d8, d9, [sp, #96]
    stp d10, d11, [sp, #112]
    stp d12, d13, [sp, #128]
    stp d14, d15, [sp, #144]
    add x29, sp, #176
    str x29, [sp, #160]
    add x29, sp, #80
    mov x4, sp
    bl simulatedNameInExpressionCatching
    ldp x29, x30, [sp, #80]
    add sp, sp, #176
    ret
    .size simulatedNameInExpression, . - simulatedNameInExpression

    .globl simulatedResume
    .type simulatedResume, %function
simulatedResume:
    ldp x19, x20, [x0]
    ldp x21, x22, [x0, #16]
    ldp x23, x24, [x0, #32]
    ldp x25, x26, [x0, #48]
    ldp x27, x28, [x0, #64]
    ldp x29, x30, [x0, #80]
    ldp d8, d9, [x0, #96]
    ldp d10, d11, [x0, #112]
    ldp d12, d13, [x0, #128]
    ldp d14, d15, [x0, #144]
    ldr x9, [x0, #160]
    mov sp, x9
    mov x0, x2
    br x1
    .size simulatedResume, . - simulatedResume
)");

namespace sim::image {

void *raisingRoutine(const std::string &name) {
    return name == "FsRtlIsNameInExpression" ? reinterpret_cast<void *>(&simulatedNameInExpression) : nullptr;
}

} // namespace sim::image
