#include "guard_check.h"

#include "../../kernel/violation.h"
#include "../loaded_images.h"
#include "../mapped_image.h"

using namespace sim;
using namespace sim::image;

extern "C" {
void simulatedGuardCheck();

__attribute__((used)) void simulatedGuardCheckTarget(const void *target, const void *callSite) {
    const MappedImage *image = loadedImageAt(target);
    if (image != nullptr && !image->isCallTarget(*image->relative(target))) {
        bugCheck("control flow guard", "indirect call",
                 hex(reinterpret_cast<unsigned long long>(target)) +
                     " is not the start of a function whose address was taken",
                 callSite);
    }
}
}

// learn.microsoft.com: "Control Flow Guard"; which registers the check keeps is clang's CFGuard_Check convention.
asm(R"(
    .text
    .p2align 2
    .globl simulatedGuardCheck
    .type simulatedGuardCheck, %function
simulatedGuardCheck:
    stp x29, x30, [sp, #-272]!
    mov x29, sp
    stp x0, x1, [sp, #16]
    stp x2, x3, [sp, #32]
    stp x4, x5, [sp, #48]
    stp x6, x7, [sp, #64]
    stp x8, x9, [sp, #80]
    stp x10, x11, [sp, #96]
    stp x12, x13, [sp, #112]
    stp x14, x15, [sp, #128]
    stp q0, q1, [sp, #144]
    stp q2, q3, [sp, #176]
    stp q4, q5, [sp, #208]
    stp q6, q7, [sp, #240]
    mov x0, x15
    mov x1, x30
    bl simulatedGuardCheckTarget
    ldp x0, x1, [sp, #16]
    ldp x2, x3, [sp, #32]
    ldp x4, x5, [sp, #48]
    ldp x6, x7, [sp, #64]
    ldp x8, x9, [sp, #80]
    ldp x10, x11, [sp, #96]
    ldp x12, x13, [sp, #112]
    ldp x14, x15, [sp, #128]
    ldp q0, q1, [sp, #144]
    ldp q2, q3, [sp, #176]
    ldp q4, q5, [sp, #208]
    ldp q6, q7, [sp, #240]
    ldp x29, x30, [sp], #272
    ret
    .size simulatedGuardCheck, . - simulatedGuardCheck
)");

namespace sim::image {

const void *guardCheckRoutine() {
    return reinterpret_cast<const void *>(&simulatedGuardCheck);
}

} // namespace sim::image
