#pragma once

/// 1 when this program is built with AddressSanitizer, whose red zones and quarantine then replace our own.
/// And the same for ThreadSanitizer.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_ADDRESS_SANITIZER 1
#endif
#if __has_feature(thread_sanitizer)
#define SIM_THREAD_SANITIZER 1
#endif
#endif
#ifndef SIM_ADDRESS_SANITIZER
#define SIM_ADDRESS_SANITIZER 0
#endif
#ifndef SIM_THREAD_SANITIZER
#define SIM_THREAD_SANITIZER 0
#endif
