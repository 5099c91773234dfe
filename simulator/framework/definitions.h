#pragma once

#include <ntifs.h>

// Values that only the machine's own side uses and the driver's headers therefore lack.
#ifndef STATUS_MORE_PROCESSING_REQUIRED
#define STATUS_MORE_PROCESSING_REQUIRED ((NTSTATUS)0xC0000016L)
#endif
#ifndef STATUS_KEY_DELETED
#define STATUS_KEY_DELETED ((NTSTATUS)0xC000017CL)
#endif
#ifndef REG_CREATED_NEW_KEY
#define REG_CREATED_NEW_KEY 1
#define REG_OPENED_EXISTING_KEY 2
#endif
