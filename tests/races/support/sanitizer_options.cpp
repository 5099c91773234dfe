// The first race ends the program: what follows would say less.

#include "simulator/kernel/sanitizer.h"

#if SIM_THREAD_SANITIZER
extern "C" const char *__tsan_default_options() {
    return "halt_on_error=1:second_deadlock_stack=1:history_size=4";
}
#endif
