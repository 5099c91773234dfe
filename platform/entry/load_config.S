// What the image tells the loader: where the stack cookie is, and the tables of control flow guard, which the linker
// makes. Written in assembly because two members hold the *addresses* of linker symbols as 32-bit and 64-bit numbers.
// Layout: IMAGE_LOAD_CONFIG_DIRECTORY64 of <ntimage.h>.

    // This object follows the rules of control flow guard: it takes no address of a function as a call target.
    .globl  "@feat.00"
    .set    "@feat.00", 0x800

    .section .rdata, "dr"
    .p2align 3
    .globl  _load_config_used
_load_config_used:
    .word   0x140                               // 00 Size
    .zero   0x4e - 0x04
    .hword  0                                   // 4E DependentLoadFlags
    .xword  0                                   // 50 EditList
    .xword  __security_cookie                   // 58 SecurityCookie
    .xword  0                                   // 60 SEHandlerTable
    .xword  0                                   // 68 SEHandlerCount
    .xword  __guard_check_icall_fptr            // 70 GuardCFCheckFunctionPointer
    .xword  __guard_dispatch_icall_fptr         // 78 GuardCFDispatchFunctionPointer
    .xword  __guard_fids_table                  // 80 GuardCFFunctionTable
    .xword  __guard_fids_count                  // 88 GuardCFFunctionCount
    .word   __guard_flags                       // 90 GuardFlags
    .zero   0xa0 - 0x94                         // 94 CodeIntegrity
    .xword  __guard_iat_table                   // A0 GuardAddressTakenIatEntryTable
    .xword  __guard_iat_count                   // A8 GuardAddressTakenIatEntryCount
    .xword  __guard_longjmp_table               // B0 GuardLongJumpTargetTable
    .xword  __guard_longjmp_count               // B8 GuardLongJumpTargetCount
    .zero   0x108 - 0xc0
    .xword  __guard_eh_cont_table               // 108 GuardEHContinuationTable
    .xword  __guard_eh_cont_count               // 110 GuardEHContinuationCount
    .zero   0x140 - 0x118

    // The loader puts its own routines here when it enforces control flow guard; until then every target passes.
    .section .00cfg, "dr"
    .p2align 3
    .globl  __guard_check_icall_fptr
__guard_check_icall_fptr:
    .xword  guardCheckAcceptsAll
    .globl  __guard_dispatch_icall_fptr
__guard_dispatch_icall_fptr:
    .xword  guardDispatchUnused

    .text
    .p2align 2
    // Called with the target in x15; every other register belongs to the call that is about to be made.
guardCheckAcceptsAll:
    ret

    .p2align 2
    // The compiler makes this image check, then call; nothing dispatches. Arriving here is a failed guard check.
guardDispatchUnused:
    mov     w0, #10
    brk     #0xf003
