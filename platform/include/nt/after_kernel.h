// For headers that officially expect the kernel's types to be declared before them. The driver keeps to their order in
// the image; natively any order does.
#if defined(_WIN32) && !defined(PLATFORM_KERNEL_TYPES)
#error "Include <ntifs.h> before this header, as the official one demands."
#endif
