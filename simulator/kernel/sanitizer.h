#pragma once

/// 1 when this program is built with AddressSanitizer, whose red zones and quarantine then replace our own.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef SIM_ADDRESS_SANITIZER
#define SIM_ADDRESS_SANITIZER 0
#endif
